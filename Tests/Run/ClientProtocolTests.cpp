// What the outside sees of a run that goes well: the service, the patch, Park and the client.
#include "Ls/System/String/Convert.h"
#include "Tests/Run/Sandbox.h"

#include <doctest/doctest.h>

using Tests::CSandbox;
namespace fs = std::filesystem;

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
        {L"Other", L"/from=C:\\none.exe", false, "AppName:Other|Version:0"},
        {L"BlueStacks", L"", true, "AppName:BlueStacks|Version:0.9.7.4101"},
        // In UTF-8; what can't stand in a request line is percent-encoded.
        {L"\u041F\u0440\u043E\u0434", L"", false, "AppName:%D0%9F%D1%80%D0%BE%D0%B4|Version:0"},
        {L"\U0001F3AE Play & Deck", L"", false, "AppName:%F0%9F%8E%AE%20Play%20&%20Deck|Version:0"},
    };
    const Tests::CTemporaryValue bluestacks(HKEY_LOCAL_MACHINE, L"SOFTWARE\\BlueStacks", L"Version",
                                            L"0.9.7.4101");
    for (const auto& one : cases)
    {
        CAPTURE(one.Parameters);
        CSandbox sandbox(one.Product);
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
        CHECK(sandbox.Logged("Patch installer returned: " +
                             std::to_string(static_cast<std::int32_t>(std::wcstoul(code, nullptr, 0)))));
    }
}

TEST_CASE("the client of the documentation learns the outcome")
{
    CSandbox sandbox;
    const fs::path told = sandbox.Root / L"told.txt";
    std::wstring line = L"\"" + fs::absolute(LS_EXAMPLE_EXE).wstring() + L"\" \"" +
                        (sandbox.Program / L"Updater.exe").wstring() + L"\" \"" + sandbox.Product +
                        L"\"  /noparking \"/appargs=a b\" /installerargs=\"/record=" +
                        sandbox.PatchRecord.wstring() + L"\" /x=\"y z\"";
    SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
    LS::System::Win32::CFileHandle output(
        ::CreateFileW(told.c_str(), GENERIC_WRITE, 0, &inherited, CREATE_NEW, 0, nullptr));
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output.Get();
    PROCESS_INFORMATION process = {};
    REQUIRE(::CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                             &process));
    const LS::System::Win32::CKernelHandle thread(process.hThread), client(process.hProcess);
    REQUIRE(::WaitForSingleObject(client.Get(), Tests::CUpdaterProcess::LongestRunMs) == WAIT_OBJECT_0);
    output.Reset();
    const std::string text = *Tests::ReadWholeFile(told.wstring());
    CAPTURE(text);
    CHECK(text.starts_with("UpdateYes: a patch is about to run"));
    CHECK(text.ends_with("the updater has ended, exit code 0\r\n"));
    CHECK(CSandbox::FromRecord(sandbox.PatchRecord, "CommandLine").ends_with(L" /x=\"y z\""));
}

TEST_CASE("the debug values for the least times make the run wait that long")
{
    CSandbox sandbox;
    sandbox.SetDebug(L"UpdaterMinDownloadTimeMs", 1500u);
    sandbox.SetDebug(L"UpdaterMinInstallTimeMs", 1500u);
    const auto outcome = sandbox.Run(L"/noparking", L"/exit=0");
    CHECK(outcome.ExitCode == 0);
    CHECK(outcome.Milliseconds >= 3000);
}
