// StartBench UPDATER: what a run costs that finds no update, from the start of the process to its end, each
// stretch beside what it has to wait for, measured in turn: the start of a program that only loads the same
// libraries of the system, one bare request to the same server. Prints lines of a table.
// Without an argument it is that program.
#include "Bench/Clock.h"
#include "Ls/System/Io/Path.h"
#include "Ls/System/String/Convert.h"
#include "Tests/Support/CollectorHost.h"
#include "Tests/Support/UpdateAnswers.h"
#include "Tests/Support/UpdaterProcess.h"
#include "Tests/Unit/Analytics/Machine.h"

#include <windows.h>

#include <psapi.h>
#include <wininet.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <vector>

using LS::System::Win32::CKernelHandle;

namespace
{
constexpr int Rounds = 11;

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// This program without an argument, from its start to its end.
double LoadingProgram()
{
    const std::wstring program = LS::System::IO::ProgramPath();
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    const double begin = Now();
    if (!::CreateProcessW(program.c_str(), nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                          &process))
        throw std::runtime_error("can't start this program again");
    const CKernelHandle handle(process.hProcess), thread(process.hThread);
    ::WaitForSingleObject(handle.Get(), INFINITE);
    return Now() - begin;
}

double BareRequest(const std::string& url)
{
    const double begin = Now();
    const HINTERNET session = ::InternetOpenA("bench", INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0);
    const HINTERNET request =
        ::InternetOpenUrlA(session, url.c_str(), nullptr, 0, INTERNET_FLAG_NO_CACHE_WRITE, 0);
    char bytes[4096];
    for (DWORD read = 1; read > 0 && ::InternetReadFile(request, bytes, sizeof(bytes), &read);)
    {
    }
    ::InternetCloseHandle(request);
    ::InternetCloseHandle(session);
    return Now() - begin;
}

/// Handles of another process; its own count is always 0 under Wine.
unsigned HandlesOf(HANDLE process)
{
    unsigned count = 0;
    for (ULONG_PTR value = 4; value < 0x1000; value += 4)
    {
        HANDLE copy = nullptr;
        if (::DuplicateHandle(process, reinterpret_cast<HANDLE>(value), ::GetCurrentProcess(), &copy, 0,
                              FALSE, DUPLICATE_SAME_ACCESS))
        {
            ++count;
            ::CloseHandle(copy);
        }
    }
    return count;
}

/// Times in seconds.
void Line(const char* what, double took, const char* waits, double least)
{
    std::printf("| %s | %.0f ms | %s %.0f ms%s |\n", what, took * 1000, waits, least * 1000,
                took - least > 0.02 ? "; over by more than 20 ms" : "");
}

void Measure(const std::wstring& updater)
{
    CMachine machine;
    std::atomic<double> asked{0};
    std::atomic<bool> stall{false};
    Tests::CFaultServer service([&](const Tests::HttpRequest&) {
        asked = Now();
        Tests::HttpReply reply = Tests::TextReply(Tests::UpdateXml(""));
        reply.StallBeforeHead = stall;
        return reply;
    });
    Tests::CCollectorHost collector;
    machine.Set(L"SOFTWARE\\Larkspur\\Debugging", L"UpdateHost", LS::AnsiToWide(service.Host()));
    machine.Set(L"SOFTWARE\\Larkspur\\Debugging", L"AnalyticsHost", LS::AnsiToWide(collector.Host()));

    std::vector<double> loading, bare, toQuery, toEvent, toEnd;
    for (int round = 0; round < Rounds; ++round)
    {
        loading.push_back(LoadingProgram());
        bare.push_back(BareRequest(service.Url("/")));
        const double begin = Now();
        Tests::CUpdaterProcess run(updater, L"LsBench", L"/product=LsBench /from=none", machine.Path(L"."));
        if (!run.WaitForEvent("No"))
            throw std::runtime_error("the run didn't come to its end");
        const double told = Now();
        if (run.Finish().ExitCode != 3)
            throw std::runtime_error("the run found something else");
        toQuery.push_back(asked - begin);
        toEvent.push_back(told - asked);
        toEnd.push_back(Now() - told);
    }
    const double oneRequest = Median(bare);
    Line("start to the query", Median(toQuery), "a program that loads the same libraries", Median(loading));
    Line("query to UpdateNo", Median(toEvent), "a bare request", oneRequest);
    Line("UpdateNo to the end", Median(toEnd), "a bare request, of analytics, looked at every 20 ms",
         oneRequest);

    stall = true;
    const auto before = static_cast<unsigned>(service.Requests().size());
    Tests::CUpdaterProcess run(updater, L"LsBench", L"/product=LsBench", machine.Path(L"."));
    if (!service.WaitForRequests(before + 1))
        throw std::runtime_error("the run asked for nothing");
    PROCESS_MEMORY_COUNTERS memory = {};
    ::GetProcessMemoryInfo(run.Process(), &memory, sizeof(memory));
    std::printf("| peak memory | %.1f MiB | |\n", static_cast<double>(memory.PeakWorkingSetSize) / 1048576);
    std::printf("| handles | %u | |\n", HandlesOf(run.Process()));
    WIN32_FILE_ATTRIBUTE_DATA file = {};
    ::GetFileAttributesExW(updater.c_str(), GetFileExInfoStandard, &file);
    std::printf("| program | %.0f KB | |\n", file.nFileSizeLow / 1000.0);
}
} // namespace

int wmain(int count, wchar_t** arguments)
{
    if (count < 2)
    {
        for (const wchar_t* name : {L"advapi32", L"comctl32", L"ole32", L"oleaut32", L"rpcrt4", L"shell32",
                                    L"shlwapi", L"user32", L"wininet"})
            ::LoadLibraryW(name);
        return 0;
    }
    try
    {
        Measure(arguments[1]);
        return 0;
    }
    catch (const std::exception& failure)
    {
        std::printf("| failed: %s | | |\n", failure.what());
        return 1;
    }
}
