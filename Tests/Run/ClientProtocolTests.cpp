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
        const wchar_t* Product;
        const wchar_t* Options;
        bool From;
        std::string Target;
    } cases[] = {
        {L"PlayDeck", L"", true, "/Update.asmx/GetUpdate2?parameters=AppName:PlayDeck|Version:2.1.0.7"},
        {L"PlayDeck", L"/nothrottling", true,
         "/Update.asmx/GetUpdate2?parameters=AppName:PlayDeck|Version:2.1.0.7|throttle:0"},
        {L"Other", L"", false, "/Update.asmx/GetUpdate2?parameters=AppName:Other|Version:0"},
        {L"Other", L"/from=C:\\none.exe", false,
         "/Update.asmx/GetUpdate2?parameters=AppName:Other|Version:0"},
        {L"BlueStacks", L"", true,
         "/Update.asmx/GetUpdate2?parameters=AppName:BlueStacks|Version:0.9.7.4101"},
    };
    const Tests::CRegistryValue bluestacks(HKEY_LOCAL_MACHINE, L"SOFTWARE\\BlueStacks", L"Version",
                                           L"0.9.7.4101");
    for (const auto& one : cases)
    {
        CAPTURE(one.Target);
        CSandbox sandbox(one.Product);
        sandbox.Query = Tests::Answer(Tests::UpdateXml(""));
        CHECK(sandbox.Run(one.Options + (one.From ? L" " + sandbox.From() : std::wstring())).ExitCode == 3);
        const auto requests = sandbox.Server().Requests();
        REQUIRE(!requests.empty());
        for (const auto& request : requests)
        {
            CHECK(request.Method == "GET");
            CHECK(request.Target == one.Target);
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

TEST_CASE("Park and the patch are started with their exact parameters and working folders")
{
    wchar_t programFiles[MAX_PATH] = {};
    ::GetEnvironmentVariableW(L"ProgramFiles", programFiles, MAX_PATH); // the 32-bit one in a 32-bit program
    const std::wstring client = std::wstring(programFiles) + L"\\Larkspur Games\\App\\PlayDeck-ls.exe";
    const std::wstring events =
        L"\" /EventTerminate \"Global\\LSPARKTERM\" /EventExecute \"Global\\LSPARKEXEC\"";
    const struct
    {
        const wchar_t* Options;
        const wchar_t* Launch;
        bool SearchedFurther;
    } cases[] = {
        {L"", L"/noupdate! /userlocale  /dp ", false},
        {L"/locale=de-DE /dp=start", L"/noupdate! /userlocale de-DE /dp start", true},
        {L"/locale=ko /dp=unused \"/appargs=/room 7 /quiet\"", L"/noupdate! /userlocale ko /room 7 /quiet",
         false},
    };
    for (const auto& one : cases)
    {
        CAPTURE(LS::WideToAnsi(one.Launch));
        CSandbox sandbox;
        if (one.SearchedFurther)
        {
            fs::create_directory(sandbox.Program / L"PatchTools");
            fs::rename(sandbox.Program / L"Park.exe", sandbox.Program / L"PatchTools" / L"Park.exe");
        }
        const std::wstring installer = L"/S  \"/D=C:\\Program Files\\x\" /exit=0 ";
        REQUIRE(sandbox.Run(one.Options, installer).ExitCode == 0);

        const fs::path park = sandbox.ParkRecord();
        const std::wstring copy = CSandbox::FromRecord(park, "Path");
        const std::wstring data = sandbox.DataFolder.wstring();
        const std::wstring prefix = data + L"\\Park-{";
        REQUIRE(copy.size() == prefix.size() + 36 + 5);
        CHECK(copy.substr(0, prefix.size()) == prefix);
        CHECK(copy.substr(copy.size() - 5) == L"}.exe");
        const std::wstring parkLine = CSandbox::FromRecord(park, "CommandLine");
        const std::wstring expected = L" /Execute \"" + client + L"\" /LaunchParams \"" + one.Launch + events;
        REQUIRE(parkLine.size() > expected.size());
        CHECK(parkLine.substr(parkLine.size() - expected.size()) == expected);
        CHECK(CSandbox::FromRecord(park, "Folder") == data);

        // The copy's path keeps the doubled backslash that joins folder and name.
        const std::wstring patchLine = CSandbox::FromRecord(sandbox.PatchRecord, "CommandLine");
        const std::wstring patchEnd = L" /park=\"" + data + L"\\" + copy.substr(data.size()) +
                                      L"\" \"/record=" + sandbox.PatchRecord.wstring() + L"\" " + installer;
        REQUIRE(patchLine.size() > patchEnd.size());
        CHECK(patchLine.substr(patchLine.size() - patchEnd.size()) == patchEnd);
        CHECK(CSandbox::FromRecord(sandbox.PatchRecord, "Path") == sandbox.PatchFile().wstring());
        CHECK(CSandbox::FromRecord(sandbox.PatchRecord, "Folder") == data);
    }
}

TEST_CASE("/noparking copies Park and doesn't start it")
{
    CSandbox sandbox;
    REQUIRE(sandbox.Run(L"/noparking", L"/exit=0").ExitCode == 0);
    unsigned copies = 0;
    for (const auto& entry : fs::directory_iterator(sandbox.DataFolder))
    {
        CHECK(entry.path().extension() == L".exe");
        copies += entry.path().filename().wstring().rfind(L"Park-{", 0) == 0 ? 1 : 0;
    }
    CHECK(copies == 1);
    CHECK(CSandbox::FromRecord(sandbox.PatchRecord, "CommandLine").find(L"/park=\"") != std::wstring::npos);
}

TEST_CASE("a patch that can't be started makes Park give up")
{
    CSandbox sandbox;
    sandbox.Patch = Tests::Sample("not-a-program");
    REQUIRE(sandbox.Run(sandbox.From(), L"/exit=0").ExitCode == 1281);
    const fs::path park = sandbox.ParkRecord();
    const LS::System::Win32::CKernelHandle process(
        ::OpenProcess(SYNCHRONIZE, FALSE, std::stoul(CSandbox::FromRecord(park, "ProcessId"))));
    if (process) // else it has ended already
        CHECK(::WaitForSingleObject(process.Get(), Tests::CUpdaterProcess::LongestRunMs) == WAIT_OBJECT_0);
    CHECK(CSandbox::FromRecord(park, "Ended") == L"terminate");
    const std::wstring line = CSandbox::FromRecord(sandbox.ParkRecord(true), "CommandLine");
    const std::wstring expected = L" /EventTerminate \"Global\\LSPARKTERM\" /SignalTerminate";
    REQUIRE(line.size() > expected.size());
    CHECK(line.substr(line.size() - expected.size()) == expected);
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
