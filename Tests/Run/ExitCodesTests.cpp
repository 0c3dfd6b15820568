// Each exit code of the program, reached by a real run, with the events and message boxes that the client
// sees; 770 is in ServiceFaultsTests.cpp and 1025 in PatchFileTests.cpp, with what belongs to them. Not
// reachable from outside and so left out: 256 (no exception of unknown type is thrown anywhere), 1024, 1280,
// 1536 and 1537 (the system's own functions would have to fail).
#include "Tests/Run/Sandbox.h"

#include <doctest/doctest.h>

#include <fstream>

using Tests::CSandbox;
namespace fs = std::filesystem;

namespace
{
constexpr const char* Xml = "<?xml version=\"1.0\"?>";

Tests::HttpReply WithoutLength(const Tests::HttpRequest& request)
{
    Tests::HttpReply reply = Tests::TextReply(Tests::UpdateXml(""));
    (void)request;
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

struct Case
{
    std::string Promise;
    std::uint32_t Code;
    std::string Events;
    /// What the log must say about it.
    std::string Logged;
    std::function<void(CSandbox&)> Prepare = [](CSandbox&) {};
    const wchar_t* Options = L"";
    /// With "/from=" of a real client.
    bool From = true;
    int Answer = IDOK;
    const wchar_t* Box = nullptr;
};

std::function<void(CSandbox&)> Answering(const std::string& body)
{
    return [body](CSandbox& sandbox) { sandbox.Query = Tests::Answer(body); };
}

const wchar_t* const OfflineText =
    L"Sorry, a check for updates is needed. Please connect to the Internet and try again.";
const wchar_t* const PromptText = L"There is an update available. Would you like to receive it?";
const wchar_t* const NotifyText = L"An update is needed to show this web page. After the update, you will be "
                                  L"returned to the web page.";

const Case Cases[] = {
    {"the patch ran", 0, "Yes", "Returning success: 0"},
    {"the user agreed", 0, "Yes", "Returning success: 0", {}, L"/prompt", true, IDYES, PromptText},
    {"the user was told", 0, "Yes", "Returning success: 0", {}, L"/notify", true, IDOK, NotifyText},
    {"offline, started by the client", 2, "No", "Not online", [](CSandbox& s) { s.SetOnline(false); }},
    {"no update", 3, "No", "no way to update", Answering(Tests::UpdateXml(""))},
    {"the user declined", 4, "Deny No", "user rejected update", {}, L"/prompt", true, IDNO, PromptText},
    {"offline, started by a web page", 259, "No", "in Fallback mode", [](CSandbox& s) { s.SetOnline(false); },
     L"", false, IDOK, OfflineText},
    {"nobody signed the patch", 260, "No", "!validSig() : throwing out",
     [](CSandbox& s) { s.Patch = Tests::Sample("unsigned"); }},
    {"no request can be made for the service's name", 768, "No", "",
     [](CSandbox& s) { s.SetDebug(L"UpdateHost", std::wstring(L"")); }},
    {"an answer of unknown length", 771, "No", "got exit code 0x303",
     [](CSandbox& s) { s.Query = WithoutLength; }},
    {"the connection is reset", 772, "No", "got exit code 0x304", [](CSandbox& s) { s.Query = Reset; }},
    {"an HTML page", 773, "No", "got exit code 0x305", Answering("<html></html>")},
    {"a byte-order mark", 773, "No", "got exit code 0x305", Answering("\xEF\xBB\xBF" + Tests::UpdateXml(""))},
    {"no string element", 774, "No", "got exit code 0x306", Answering(std::string(Xml) + "<text></text>")},
    {"a start tag without an end", 775, "No", "got exit code 0x307",
     Answering(std::string(Xml) + "<string xmlns=")},
    {"a value without an end", 776, "No", "got exit code 0x308",
     Answering(std::string(Xml) + "<string>http:")},
    {"the URL is none", 1026, "No", "failed to create httpWebRequest object", {}, L"/patchURL=nothing"},
    {"the patch isn't there", 1027, "No", "Download complete but !DownloadIsOk()",
     [](CSandbox& s) { s.File = [](const Tests::HttpRequest&) { return Tests::NotFound(); }; }},
    {"the patch can't be started", 1281, "Yes No", "ShellExecuteEx() returned false",
     [](CSandbox& s) { s.Patch = Tests::Sample("not-a-program"); }},
    {"no Park", 1792, "Yes No", "CFile::Exists failed for ParkSourceExe",
     [](CSandbox& s) { fs::remove(s.Program / L"Park.exe"); }},
    {"the named Park isn't there",
     1792,
     "Yes No",
     "CFile::Exists failed for Park.exe",
     {},
     L"/parkpath=C:\\none.exe"},
    {"a Park that isn't a program", 1794, "Yes No", "ShellExecuteEx() failed for Park",
     [](CSandbox& s) { std::ofstream(s.Program / L"Park.exe", std::ios::trunc) << "text"; }},
};
} // namespace

TEST_CASE("a run ends with its code, events and message boxes")
{
    for (const Case& one : Cases)
    {
        CAPTURE(one.Promise);
        CSandbox sandbox;
        if (one.Prepare)
            one.Prepare(sandbox);
        const auto outcome = sandbox.Run(one.Options + (one.From ? L" " + sandbox.From() : std::wstring()),
                                         L"/exit=9", one.Answer);
        CHECK(outcome.ExitCode == one.Code);
        CHECK(outcome.Events == one.Events);
        CHECK(sandbox.Logged(one.Logged));
        CHECK(outcome.Boxes.size() == (one.Box ? 1u : 0u));
        if (one.Box && !outcome.Boxes.empty())
            CHECK(outcome.Boxes[0] == one.Box);
    }
}

TEST_CASE("an empty product name ends with 257 before there are events")
{
    CSandbox sandbox(L"");
    const auto outcome = sandbox.Run();
    CHECK(outcome.ExitCode == 257);
    CHECK(outcome.Events == "");
    CHECK(sandbox.Logged("ProductName required"));
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
}

TEST_CASE("a failure of the foundation ends with 261")
{
    CSandbox sandbox;
    const fs::path folder = sandbox.LogFile.parent_path().parent_path();
    fs::create_directories(folder.parent_path());
    std::ofstream(folder) << "a file where the log's folder should be";
    const auto outcome = sandbox.Run(sandbox.From());
    CHECK(outcome.ExitCode == 261);
    CHECK(outcome.Events == "");
}
