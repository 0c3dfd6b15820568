// What the outside sees of a run that goes well: the service, the patch, Park and the client.
#include "Ls/System/String/Convert.h"
#include "Tests/Run/Sandbox.h"
#include "Tests/Support/StartProcess.h"
#include "Tests/Support/TempFolder.h"

#include <doctest/doctest.h>

#include <thread>

using Tests::CSandbox;

TEST_CASE("the query names product, installed version and throttling, byte for byte")
{
    const struct
    {
        const wchar_t *Product, *Options;
        bool From;
        std::string Parameters;
    } cases[] = {
        {L"PlayDeck", L"", true, "AppName:PlayDeck|Version:2.1.0.7"},
        {L"PlayDeck", L"/nothrottling", true, "AppName:PlayDeck|Version:2.1.0.7|throttle:0"},
        {L"Other", L"", false, "AppName:Other|Version:0"},
        {L"C# 100%", L"/nothrottling", false, "AppName:C%23%20100%|Version:0|throttle:0"},
        {L"Other", L"/from=C:\\none.exe", false, "AppName:Other|Version:0"},
        {L"BlueStacks", L"", true, "AppName:BlueStacks|Version:0.9.7.4101"},
        // In UTF-8; what can't stand in a request line is percent-encoded.
        {L"\u041F\u0440\u043E\u0434", L"", false, "AppName:%D0%9F%D1%80%D0%BE%D0%B4|Version:0"},
        {L"\U0001F3AE Play & Deck", L"", false, "AppName:%F0%9F%8E%AE%20Play%20&%20Deck|Version:0"},
    };
    for (const auto& one : cases)
    {
        CAPTURE(one.Parameters);
        CSandbox sandbox(one.Product);
        sandbox.SetMachine(L"SOFTWARE\\BlueStacks", L"Version", std::wstring(L"0.9.7.4101"));
        sandbox.Query = Tests::Answer(Tests::UpdateXml(""));
        CHECK(sandbox.Run(one.Options + (one.From ? L" " + sandbox.From() : std::wstring())).ExitCode == 3);
        const auto requests = sandbox.Server().Requests();
        REQUIRE(!requests.empty());
        for (const auto& request : requests)
        {
            CHECK(request.Method == "GET");
            CHECK(request.Target == "/Update.asmx/GetUpdate2?parameters=" + one.Parameters);
            CHECK(request.Header("User-Agent") == "Mozilla/4.0 (compatible; MSIE 5.0; Updater 1.1.1.13)");
        }
    }
}

TEST_CASE(
    "standard output tells what the log tells, to a client that reads it; nobody waits for one that doesn't")
{
    for (const bool read : {true, false})
    {
        CAPTURE(read);
        CSandbox sandbox;
        SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
        HANDLE ends[2] = {};
        REQUIRE(::CreatePipe(&ends[0], &ends[1], &inheritable, 1));
        const LS::System::Win32::CKernelHandle reader(ends[0]);
        LS::System::Win32::CKernelHandle writer(ends[1]);
        ::SetHandleInformation(reader.Get(), HANDLE_FLAG_INHERIT, 0);
        sandbox.Output = writer.Get();
        std::filesystem::create_directories(sandbox.LogFile.parent_path());
        Tests::WriteBytes(sandbox.LogFile, std::string(1000, 'o')); // of the run before
        std::string told;
        const auto stamp = [] {
            SYSTEMTIME now = {};
            ::GetLocalTime(&now);
            return "stamp is: " + std::to_string(now.wMonth) + "/" + std::to_string(now.wDay) + "/";
        };
        const std::string before = stamp(); // midnight may pass
        // More than the pipe holds.
        const auto updater = sandbox.StartAnswered(sandbox.From(), L"/exit=0 " + std::wstring(28000, L'x'));
        writer.Reset();
        std::thread reading([&] {
            char bytes[1000];
            for (DWORD size = 0; read && ::ReadFile(reader.Get(), bytes, 1000, &size, nullptr);)
                told.append(bytes, size);
        });
        const auto outcome = updater->Finish();
        reading.join();
        CHECK(outcome.ExitCode == 0);
        CHECK(outcome.Events == "Yes");
        const std::string log = Tests::ReadBytes(sandbox.LogFile.wstring()).erase(0, 104); // its header
        CHECK(log.ends_with("Returning success: 0\r\n"));
        CHECK(log.size() > 28000);
        CHECK((log.find(before) != log.npos || log.find(stamp()) != log.npos));
        CHECK(told.ends_with(log) == read);
    }
}

TEST_CASE("with /patchURL= the service isn't asked")
{
    CSandbox sandbox;
    sandbox.Query = Tests::Answer(Tests::UpdateXml(""));
    const auto outcome =
        sandbox.Run(sandbox.From() + L" /patchURL=" + LS::AnsiToWide(sandbox.PatchUrl()), L"/exit=0");
    CHECK(outcome.ExitCode == 0);
    const auto requests = sandbox.Server().Requests();
    REQUIRE(!requests.empty());
    for (const auto& request : requests)
        CHECK(request.Target == "/files/Patch.exe");
}

TEST_CASE("the patch's exit code is logged and never returned; the client is told before it starts")
{
    for (const wchar_t* code : {L"0", L"1", L"3010", L"0xC0000005"})
    {
        CAPTURE(LS::WideToAnsi(code));
        CSandbox sandbox;
        // The patch looks before the client does: this client takes the event only when the run is over.
        const auto updater = sandbox.StartAnswered(
            sandbox.From(), L"/exit=" + std::wstring(code) +
                                L" \"/peek-event={FCBD3DBA-DB17-4EC5-999E-5CF45A722924}-UpdateYes-" +
                                sandbox.Product + L"\"");
        REQUIRE(::WaitForSingleObject(updater->Process(), Tests::CUpdaterProcess::LongestRunMs) ==
                WAIT_OBJECT_0);
        CHECK(CSandbox::FromRecord(sandbox.PatchRecord, "Event") == L"set");
        const auto outcome = updater->Finish();
        CHECK(outcome.ExitCode == 0);
        CHECK(outcome.Events == "Yes");
        const auto number = static_cast<std::int32_t>(std::wcstoul(code, nullptr, 0));
        CHECK(sandbox.Logged("Patch installer returned: " + std::to_string(number)));
        CHECK(sandbox.Marks() == "NewDLSuccess 1; Update " + std::to_string(number));
    }
}

TEST_CASE("the client of the documentation learns the outcome")
{
    CSandbox sandbox;
    const auto client = Tests::StartProcess(L"\"" + Tests::InKit(L"ClientExample.exe").wstring() + L"\" \"" +
                                            (sandbox.Program / L"Updater.exe").wstring() + L"\" \"" +
                                            sandbox.Product + L"\"  /noparking /installerargs=\"/record=" +
                                            sandbox.PatchRecord.wstring() + L"\" /x=\"y z\"");
    REQUIRE(::WaitForSingleObject(client.Get(), Tests::CUpdaterProcess::LongestRunMs) == WAIT_OBJECT_0);
    DWORD code = STILL_ACTIVE;
    ::GetExitCodeProcess(client.Get(), &code);
    CHECK(code == 0);
    CHECK(CSandbox::FromRecord(sandbox.PatchRecord, "CommandLine").ends_with(L" /x=\"y z\""));
}
