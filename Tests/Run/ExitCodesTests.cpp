// Each end of a run, reached by a real run: its exit code, and the events, message boxes, log line and
// analytics that go with it. 770 is in ServiceFaultsTests.cpp, 1025 and 1793 in PatchFileTests.cpp. Not
// reachable from outside and so left out: 256 (nothing throws an exception of unknown type), 513 (a dialog
// that can't be made keeps the run), 514, 515, 1024, 1280, 1536 and 1537 (the system's own functions would
// have to fail).
#include "Tests/Run/Sandbox.h"
#include "Tests/Support/WideText.h"

#include <doctest/doctest.h>

#include <fstream>

using Tests::CSandbox;
namespace fs = std::filesystem;

namespace
{
constexpr const char* Xml = "<?xml version=\"1.0\"?>";

Tests::HttpReply WithoutLength(const Tests::HttpRequest&)
{
    Tests::HttpReply reply = Tests::TextReply(Tests::UpdateXml(""));
    reply.Head = Tests::HttpHead("200 OK", {"Content-Type: text/xml", "Connection: close"});
    reply.End = Tests::HttpReply::Ending::Close;
    return reply;
}

Tests::HttpReply Reset(const Tests::HttpRequest&)
{
    Tests::HttpReply reply;
    reply.End = Tests::HttpReply::Ending::Reset;
    return reply;
}

using Preparation = std::function<void(CSandbox&)>;

Preparation Answering(const std::string& body)
{
    return [body](CSandbox& sandbox) { sandbox.Query = Tests::Answer(body); };
}

Preparation Sending(const char* sample)
{
    return [sample](CSandbox& sandbox) { sandbox.Patch = Tests::Sample(sample); };
}

void Nothing(CSandbox&) {}
void GoOffline(CSandbox& sandbox)
{
    sandbox.SetOnline(false);
}

const struct
{
    std::string Promise;
    std::uint32_t Code;
    std::string Events;
    /// What analytics are told; the text up to a "*" is a beginning, ROOT is the sandbox.
    std::string Marks;
    /// What the log must say about it.
    std::string Logged;
    Preparation Prepare = Nothing;
    const wchar_t* Options = L"";
    /// With "/from=" of a real client.
    bool From = true;
    int Answer = IDOK;
    const wchar_t* Box = nullptr;
} Cases[] = {
    {"the patch ran", 0, "Yes", "NewDLSuccess 1; Update 9", "Returning success: 0"},
    {"the user agreed", 0, "Yes", "NewDLSuccess 1; Update 9", "Returning success: 0", Nothing,
     L"/prompt /locale=ko", true, IDYES, L"사용할 수 있는 업데이트가 있습니다. 지금 받으시겠습니까?"},
    {"the user was told", 0, "Yes", "NewDLSuccess 1; Update 9", "Returning success: 0", Nothing,
     L"/notify /locale=de", true, IDCLOSE,
     L"Zum Anzeigen dieser Webseite ist ein Update erforderlich. Nach dem Update kehren Sie zur Webseite "
     L"zurück."},
    {"offline, started by the client", 2, "No", "", "Not online", GoOffline},
    {"no update", 3, "No", "Update 3", "no way to update", Answering(Tests::UpdateXml(""))},
    {"the user declined", 4, "Deny No", "", "user rejected update", Nothing, L"/prompt", true, IDNO,
     L"There is an update available. Would you like to receive it?"},
    {"the user declined in Spanish", 4, "Deny No", "", "user rejected update", Nothing,
     L"/prompt /locale=es-es", true, IDNO, L"Hay una actualización disponible. ¿Quiere recibirla?"},
    {"offline, started by a web page", 259, "No", "", "in Fallback mode", GoOffline, L"/locale=fr-ca", false,
     IDCLOSE,
     L"Désolé, une recherche de mises à jour est nécessaire. Veuillez vous connecter à Internet, puis "
     L"réessayer."},
    {"nobody signed the patch", 260, "No",
     "NewDLSuccess 1; PatchLSSigned_New NA; OldDLSuccess NA; PatchLSSigned_Old NA; CExitCodeException 260; "
     "Update 260",
     "!validSig() : throwing out", Sending("unsigned")},
    {"no request can be made for the service's name", 768, "No", "CExitCodeException 768; Update 768", "",
     [](CSandbox& s) { s.SetDebug(L"UpdateHost", std::wstring(L"")); }},
    {"an answer of unknown length", 771, "No", "GetURLBadLen NA; CExitCodeException 771; Update 771",
     "got exit code 0x303", [](CSandbox& s) { s.Query = WithoutLength; }},
    {"the connection is reset", 772, "No", "GetURLNoResp NA; CExitCodeException 772; Update 772",
     "got exit code 0x304", [](CSandbox& s) { s.Query = Reset; }},
    {"an HTML page", 773, "No", "GetURLNoXMLDeclaration NA; CExitCodeException 773; Update 773",
     "got exit code 0x305", Answering("<html></html>")},
    {"a byte-order mark", 773, "No", "GetURLNoXMLDeclaration NA; CExitCodeException 773; Update 773",
     "got exit code 0x305", Answering("\xEF\xBB\xBF" + Tests::UpdateXml(""))},
    {"no string element", 774, "No", "GetURLNoStringElem NA; CExitCodeException 774; Update 774",
     "got exit code 0x306", Answering(std::string(Xml) + "<text></text>")},
    {"a start tag without an end", 775, "No", "GetURLBadStringNode NA; CExitCodeException 775; Update 775",
     "got exit code 0x307", Answering(std::string(Xml) + "<string xmlns=")},
    {"a value without an end", 776, "No", "GetURLBadStringValue NA; CExitCodeException 776; Update 776",
     "got exit code 0x308", Answering(std::string(Xml) + "<string>http:")},
    {"the URL is none", 1026, "No", "NewDL 0 1*; CExitCodeException 1026; Update 1026",
     "failed to create httpWebRequest object", Nothing, L"/patchURL=nothing"},
    {"the patch isn't there", 1027, "No",
     "NewDL 0 1DL T Error.-HTTP status is bad:404 *; OldDL NA; CExitCodeException 1027; Update 1027",
     "Download complete but !DownloadIsOk()",
     [](CSandbox& s) { s.File = [](const Tests::HttpRequest&) { return Tests::NotFound(); }; }},
    {"the patch can't be started", 1281, "Yes No",
     "NewDLSuccess 1; ShellExec_Patch ProcessElevation:true; CExitCodeException 1281; Update 1281",
     "ShellExecuteEx() returned false", Sending("not-a-program")},
    {"no Park", 1792, "Yes No",
     "NewDLSuccess 1; ParkMissing2 ROOT\\App\\PatchTools\\Park.exe; CExitCodeException 1792; Update 1792",
     "CFile::Exists failed for ParkSourceExe", [](CSandbox& s) { fs::remove(s.Program / L"Park.exe"); }},
    {"the named Park isn't there", 1792, "Yes No",
     "NewDLSuccess 1; ParkMissing1 C:\\none.exe; CExitCodeException 1792; Update 1792",
     "CFile::Exists failed for Park.exe", Nothing, L"/parkpath=C:\\none.exe"},
    {"a Park that isn't a program", 1794, "Yes No",
     "NewDLSuccess 1; ShellExec_Park ROOT*; CExitCodeException 1794; Update 1794",
     "ShellExecuteEx() failed for Park",
     [](CSandbox& s) { std::ofstream(s.Program / L"Park.exe", std::ios::trunc) << "text"; }},
};

/// Whether the marks are the expected ones; each part of these may end in a "*".
bool Fits(const std::string& marks, const std::string& expected)
{
    const auto star = expected.find('*');
    if (star == std::string::npos)
        return marks == expected;
    const std::string end = expected.substr(star + 1);
    return marks.rfind(expected.substr(0, star), 0) == 0 && marks.size() >= star + end.size() &&
           marks.substr(marks.size() - end.size()) == end;
}
} // namespace

TEST_CASE("a run ends with its code, events, message boxes and analytics")
{
    for (const auto& one : Cases)
    {
        CAPTURE(one.Promise);
        CSandbox sandbox;
        one.Prepare(sandbox);
        const auto outcome = sandbox.Run(one.Options + (one.From ? L" " + sandbox.From() : std::wstring()),
                                         L"/exit=9", one.Answer);
        CHECK(outcome.ExitCode == one.Code);
        CHECK(outcome.Events == one.Events);
        CHECK(sandbox.Logged(one.Logged));
        CHECK(outcome.Boxes == (one.Box ? std::vector<std::wstring>{one.Box} : std::vector<std::wstring>()));
        std::string marks = sandbox.Marks();
        const std::string root = sandbox.Root.string();
        for (auto at = marks.find(root); at != std::string::npos; at = marks.find(root))
            marks.replace(at, root.size(), "ROOT");
        CAPTURE(marks);
        CHECK(Fits(marks, one.Marks));
    }
}

TEST_CASE("an empty product name ends with 257 before there are events")
{
    CSandbox sandbox(L"");
    const auto outcome = sandbox.Run();
    CHECK(outcome.ExitCode == 257);
    CHECK(outcome.Events == "");
    CHECK(sandbox.Logged("ProductName required"));
    CHECK(sandbox.Marks() == "CExitCodeException 257; Update 257");
    CHECK(sandbox.Server().Requests().empty());
}

TEST_CASE("a second updater for the product ends with 258 and touches no event; one of the other kind runs")
{
    CSandbox sandbox;
    const auto first = sandbox.StartAnswered(L"", L"/wait-event=LsRunRelease");
    const LS::System::Win32::CKernelHandle release(::CreateEventW(nullptr, TRUE, FALSE, L"LsRunRelease"));
    REQUIRE(first->WaitForEvent("Yes"));

    const auto second = sandbox.Run();
    CHECK(second.ExitCode == 258);
    CHECK(second.Events == "");

    // A run that was given "/from=" has a mutex of its own; it finds no update.
    sandbox.Query = Tests::Answer(Tests::UpdateXml(""));
    const auto third = sandbox.Run(sandbox.From());
    CHECK(third.ExitCode == 3);
    CHECK(third.Events == "No");

    ::SetEvent(release.Get());
    const auto end = first->Finish();
    CHECK(end.ExitCode == 0);
    CHECK(end.Events == "Yes");
    CHECK(sandbox.Marks() == "NewDLSuccess 1; CExitCodeException 258; Update 258; Update 3; Update 0");
}

TEST_CASE("a failure of the foundation ends with 261, with events only once there are any")
{
    {
        CSandbox sandbox(L"BlueStacks");
        sandbox.SetMachine(L"SOFTWARE\\BlueStacks", L"Version", 7u); // not a text
        const auto outcome = sandbox.Run(sandbox.From());
        CHECK(outcome.ExitCode == 261);
        CHECK(outcome.Events == "No");
        CHECK(sandbox.Logged("_tWinMain() : catch CException"));
        CHECK(Fits(sandbox.Marks(), "CException *; Update 261"));
    }
    CSandbox sandbox;
    const fs::path folder = sandbox.LogFile.parent_path().parent_path();
    fs::create_directories(folder.parent_path());
    std::ofstream(folder) << "a file where the log's folder should be";
    const auto outcome = sandbox.Run(sandbox.From());
    CHECK(outcome.ExitCode == 261);
    CHECK(outcome.Events == "");
    CHECK(sandbox.Marks() == "");
}
