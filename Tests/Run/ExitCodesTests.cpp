// Each end of a run, reached by a real run: its exit code, and the events, message boxes, log line and
// analytics that go with it. 260 is in FetchTests.cpp, 1281 in LaunchRouteTests.cpp. Not reachable from
// outside and so left out: 256 (nothing throws an exception of unknown type), 513 (a dialog that can't be
// made keeps the run), 514, 515, 1024, 1280 and 1536 (the system's own functions would have to fail).
#include "Tests/Run/Sandbox.h"
#include "Tests/Support/WideText.h"

#include <doctest/doctest.h>

#include <fstream>

using Tests::BrokenReply;
using Tests::CSandbox;
using Ending = Tests::HttpReply::Ending;
namespace fs = std::filesystem;

namespace
{
using Preparation = std::function<void(CSandbox&)>;

constexpr const char* Xml = "<?xml version=\"1.0\"?>";
/// The limit for the service's answer.
constexpr std::uint32_t AnswerLimitMs = 5000;
/// How long the transport itself would wait for a service that is silent.
constexpr std::uint32_t TransportLimitMs = 30000;
/// How long a run waits at its end for its records to be sent.
constexpr std::uint32_t FlushLimitMs = 5000;

Preparation Answering(const std::string& body)
{
    return [body](CSandbox& sandbox) { sandbox.Query = Tests::Answer(body); };
}

Preparation Breaking(Ending end, std::uint64_t length = 0, std::uint64_t cutAfter = 0)
{
    return [=](CSandbox& sandbox) {
        sandbox.Query = [=](const Tests::HttpRequest&) { return BrokenReply(end, length, cutAfter); };
    };
}

/// Nobody else may open Park's file.
void LockPark(CSandbox& sandbox)
{
    const fs::path path = sandbox.Program / L"Park.exe";
    sandbox.Held.emplace_back(
        ::CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
}

/// A file where a folder should be.
void Block(const fs::path& folder)
{
    fs::create_directories(folder.parent_path());
    std::ofstream(folder) << "in the way";
}

void Nothing(CSandbox&) {}
void GoOffline(CSandbox& sandbox)
{
    sandbox.SetMachine(L"Software\\Larkspur", L"ConnectionStatusOverride", 0u);
}

const struct
{
    std::string Promise;
    std::uint32_t Code;
    std::string Events;
    /// What analytics are told; "!" stands for the code's own two, "*" for any text.
    std::string Marks;
    /// What the log must say about it.
    std::string Logged;
    Preparation Prepare = Nothing;
    const wchar_t* Options = L"";
    /// With "/from=" of a real client.
    bool From = true;
    int Answer = IDOK;
    const wchar_t* Box = nullptr;
    const wchar_t* Product = nullptr;
} Cases[] = {
    // clang-format off
    {"the patch ran", 0, "Yes", "NewDLSuccess 1; Update 9", "Returning success: 0"},
    {"the user agreed", 0, "Yes", "NewDLSuccess 1; Update 9", "Returning success: 0", Nothing,
     L"/prompt /locale=ko", true, IDYES, L"사용할 수 있는 업데이트가 있습니다. 지금 받으시겠습니까?"},
    {"the user was told", 0, "Yes", "NewDLSuccess 1; Update 9", "Returning success: 0", Nothing,
     L"/notify /locale=de", true, IDCLOSE, L"Zum Anzeigen dieser Webseite ist ein Update erforderlich. Nach dem Update "
     L"kehren Sie zur Webseite zurück."},
    {"an old patch file makes way", 0, "Yes", "NewDLSuccess 1; Update 9", "Returning success: 0",
     [](CSandbox& s) { Block(s.PatchFile()); }},
    {"offline, started by the client", 2, "No", "", "Not online", GoOffline},
    {"no update", 3, "No", "Update 3", "no way to update", Answering(Tests::UpdateXml(""))},
    {"the user declined", 4, "Deny No", "", "user rejected update", Nothing, L"/prompt", true, IDNO,
     L"There is an update available. Would you like to receive it?"},
    {"the system says that the machine is online", 3, "No", "Update 3", "no way to update", [](CSandbox& s) {
         s.SetMachine(L"Software\\Larkspur", L"ConnectionStatusOverride", 2u); // none
         s.Query = Tests::Answer(Tests::UpdateXml("")); }},
    {"no product name", 257, "", "!", "ProductName required", Nothing, L"", false, IDOK, nullptr, L""},
    {"offline, started by a web page", 259, "No", "", "in Fallback mode", GoOffline, L"/locale=fr-ca", false, IDCLOSE,
     L"Désolé, une recherche de mises à jour est nécessaire. Veuillez vous connecter à Internet, puis réessayer."},
    {"a value of the wrong type", 261, "No", "CException *; Update 261", "_tWinMain() : catch CException",
     [](CSandbox& s) { s.SetMachine(L"SOFTWARE\\BlueStacks", L"Version", 7u); }, L"", true, IDOK, nullptr, L"BlueStacks"},
    {"no log can be written", 261, "", "", "", [](CSandbox& s) { Block(s.LogFile.parent_path().parent_path()); }},
    {"no request can be made for the service's name", 768, "No", "!", "",
     [](CSandbox& s) { s.SetDebug(L"UpdateHost", std::wstring()); }},
    {"a service that never answers", 770, "No", "GetURLTimeOut NA; !", "got exit code 0x302", Breaking(Ending::Stall)},
    {"an endless body", 770, "No", "GetURLTimeOut NA; !", "", Breaking(Ending::KeepAlive, UINT64_MAX / 4, UINT64_MAX)},
    {"an answer of unknown length", 771, "No", "GetURLBadLen NA; !", "got exit code 0x303", [](CSandbox& s) {
         s.Query = [](const Tests::HttpRequest&) {
             auto reply = BrokenReply(Ending::Close, 1000, 1000);
             reply.Head = Tests::HttpHead("200 OK", {"Content-Type: text/xml", "Connection: close"});
             return reply;
         }; }},
    {"the connection is reset", 772, "No", "GetURLNoResp NA; !", "got exit code 0x304", Breaking(Ending::Reset)},
    {"closed in the answer", 772, "No", "GetURLNoResp NA; !", "", Breaking(Ending::Close, 1000, 500)},
    {"an HTML page", 773, "No", "GetURLNoXMLDeclaration NA; !", "got exit code 0x305", Answering("<html></html>")},
    {"no string element", 774, "No", "GetURLNoStringElem NA; !", "got exit code 0x306",
     Answering(std::string(Xml) + "<text></text>")},
    {"a start tag without an end", 775, "No", "GetURLBadStringNode NA; !", "got exit code 0x307",
     Answering(std::string(Xml) + "<string xmlns=")},
    {"a value without an end", 776, "No", "GetURLBadStringValue NA; !", "got exit code 0x308",
     Answering(std::string(Xml) + "<string>http:")},
    {"there can't be a data folder", 1025, "No", "*!", "Failed to delete old patch file",
     [](CSandbox& s) { Block(s.DataFolder); }},
    {"a folder has the patch's name", 1025, "No", "*!", "Failed to delete old patch file",
     [](CSandbox& s) { fs::create_directories(s.PatchFile()); }},
    {"the URL is none", 1026, "No", "NewDL 0 1*; !", "failed to create httpWebRequest object", Nothing,
     L"/patchURL=nothing.exe"},
    {"the patch isn't there", 1027, "No", "NewDL 0 1DL T Error.-HTTP status is bad:404 *; OldDL NA; !",
     "Download complete but !DownloadIsOk()",
     [](CSandbox& s) { s.File = [](const Tests::HttpRequest&) { return Tests::NotFound(); }; }},
    {"the patch has 4 GiB", 1027, "No", "NewDL 0 1DL T Error.-File is too large*; OldDL NA; !", "failed : Error=13 ",
     [](CSandbox& s) { s.File = [](auto&) { return BrokenReply(Ending::Close, 1ULL << 32, 0); }; }},
    {"no folder for programs", 1537, "Yes No", "NewDLSuccess 1; !", "SHGetSpecialFolderPath failed", [](CSandbox& s) {
         for (const wchar_t* name : {L"ProgramFilesDir", L"ProgramFilesDir (x86)"})
             s.SetMachine(L"Software\\Microsoft\\Windows\\CurrentVersion", name, std::wstring(L"Y:\\none")); }},
    {"no Park", 1792, "Yes No", "NewDLSuccess 1; ParkMissing2 *\\App\\PatchTools\\Park.exe; !",
     "CFile::Exists failed for ParkSourceExe", [](CSandbox& s) { fs::remove(s.Program / L"Park.exe"); }},
    {"the named Park isn't there", 1792, "Yes No", "NewDLSuccess 1; ParkMissing1 C:\\none.exe; !",
     "CFile::Exists failed for Park.exe", Nothing, L"/parkpath=C:\\none.exe"},
    {"no Park, though it isn't to be started", 1792, "Yes No", "NewDLSuccess 1; ParkMissing2 *; !", "",
     [](CSandbox& s) { fs::remove(s.Program / L"Park.exe"); }, L"/noparking"},
    {"Park can't be copied", 1793, "Yes No", "NewDLSuccess 1; !", "CopyFile failed for Park.exe", LockPark},
    {"Park isn't a program", 1794, "Yes No", "NewDLSuccess 1; ShellExec_Park *; !",
     "ShellExecuteEx() failed for Park", [](CSandbox& s) { std::ofstream(s.Program / L"Park.exe") << "text"; }},
    // clang-format on
};
} // namespace

TEST_CASE("a run ends with its code, events, message boxes and analytics")
{
    for (const auto& one : Cases)
    {
        CAPTURE(one.Promise);
        if (one.Code == 1537 && !Tests::IsWine()) // Windows always knows that folder
            continue;
        CSandbox sandbox(one.Product ? std::optional<std::wstring>(one.Product) : std::nullopt);
        one.Prepare(sandbox);
        const std::wstring options = one.Options + (one.From ? L" " + sandbox.From() : std::wstring());
        const auto outcome =
            one.Code == 770 ? sandbox.Start(options)->Finish() : sandbox.Run(options, L"/exit=9", one.Answer);
        CHECK(outcome.ExitCode == one.Code);
        CHECK(outcome.Events == one.Events);
        if (one.Code == 770)
        {
            CHECK(outcome.Milliseconds >= AnswerLimitMs);
            CHECK(outcome.Milliseconds < TransportLimitMs);
        }
        if (!one.Logged.empty())
            CHECK(sandbox.Logged(one.Logged));
        CHECK(outcome.Boxes == (one.Box ? std::vector<std::wstring>{one.Box} : std::vector<std::wstring>()));
        CHECK(fs::exists(sandbox.PatchRecord) == (one.Code == 0)); // whether the patch was started
        std::string expected = one.Marks;
        const std::string marks = sandbox.Marks(), code = std::to_string(one.Code);
        if (const auto at = expected.find('!'); at != std::string::npos)
            expected.replace(at, 1, "CExitCodeException " + code + "; Update " + code);
        CAPTURE(marks);
        CHECK(Tests::Fits(marks, expected));
    }
}

TEST_CASE("a second updater for the product ends with 258 and touches no event; one of the other kind runs")
{
    CSandbox sandbox;
    const auto first = sandbox.StartAnswered(L"", L"/wait-event=LsRunRelease");
    const LS::System::Win32::CKernelHandle release(::CreateEventW(nullptr, TRUE, FALSE, L"LsRunRelease"));
    REQUIRE(first->WaitForEvent("Yes"));

    // It leaves what it has to tell to the first one, even where the collector is silent.
    sandbox.Collect = [](const Tests::HttpRequest&) { return BrokenReply(Ending::Stall); };
    const auto second = sandbox.Run();
    CHECK(second.ExitCode == 258);
    CHECK(second.Events == "");
    CHECK(second.Milliseconds < FlushLimitMs);
    sandbox.Collect = [](const Tests::HttpRequest&) { return Tests::TextReply(""); };

    // A run that was given "/from=" has a mutex of its own, here that of a run of another user.
    LS::System::Win32::CKernelHandle foreign(
        ::CreateMutexW(Tests::CGuarded(L"").Get(), TRUE,
                       (L"{FCBD3DBA-DB17-4EC5-999E-5CF45A722924}-Updater-" + sandbox.Product).c_str()));
    CHECK(sandbox.Run(sandbox.From()).ExitCode == 258);
    foreign.Reset();

    // Without that one it finds no update.
    sandbox.Query = Tests::Answer(Tests::UpdateXml(""));
    const auto third = sandbox.Run(sandbox.From());
    CHECK(third.ExitCode == 3);
    CHECK(third.Events == "No");

    ::SetEvent(release.Get());
    const auto end = first->Finish();
    CHECK(end.ExitCode == 0);
    CHECK(end.Events == "Yes");
    CHECK(Tests::Fits(
        sandbox.Marks(),
        "*CExitCodeException 258; Update 258*CExitCodeException 258; Update 258*Update 3; Update 0"));
}
