// Plays the client for the demo: makes the outcome events, starts the updater and prints what it sees.
//   DemoClient UPDATER PRODUCT -- ARGUMENTS...
// The shell would show 8 bits of the updater's exit code; this prints all 32.
#include "Tests/StandIns/Record.h"
#include "Tests/Support/UpdaterProcess.h"

#include <cstdio>
#include <exception>

int wmain()
{
    const auto own = StandIns::Arguments();
    const std::wstring commandLine = ::GetCommandLineW();
    const auto tail = commandLine.find(L" -- ");
    if (own.size() < 2 || tail == std::wstring::npos)
    {
        std::puts("usage: DemoClient UPDATER PRODUCT -- ARGUMENTS...");
        return 2;
    }
    const std::wstring arguments = commandLine.substr(tail + 4);
    try
    {
        const auto begin = ::GetTickCount64();
        const auto seconds = [begin] { return static_cast<double>(::GetTickCount64() - begin) / 1000; };
        std::printf("client: starting Updater.exe %ls\n", arguments.c_str());
        Tests::CUpdaterProcess updater(own[0], own[1], arguments, L".");
        updater.Answer = IDYES;
        updater.OnEvent = [&](const std::string& name) {
            std::printf("client: %5.2f s  event Update%s\n", seconds(), name.c_str());
        };
        const auto outcome = updater.Finish();
        for (const std::wstring& text : outcome.Boxes)
            std::printf("client:          message box answered: %ls\n", text.c_str());
        std::printf("client: %5.2f s  the updater has ended, exit code %lu\n", seconds(),
                    static_cast<unsigned long>(outcome.ExitCode));
        return 0;
    }
    catch (const std::exception& failure)
    {
        std::printf("client: %s\n", failure.what());
        return 1;
    }
}
