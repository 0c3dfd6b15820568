// What a request puts on the wire, what it makes of everything that a server does, and what lies on the disk
// afterwards. Not shown, because Wine 8 doesn't have it: a chunked body that breaks off (it reads as a good
// end; no length could tell), the error that a reset in mid-body gives (the missing bytes tell instead), and
// that closing a handle ends a call that blocks on it (dropped workers end here when the server lets go).
#include "Ls/System/Net/HttpWebRequest.h"
#include "Ls/System/Net/ResponseMetadata.h"
#include "Ls/System/String/Printf.h"
#include "Tests/Support/FaultServer.h"
#include "Tests/Support/ProcessCounts.h"
#include "Tests/Support/Soak.h"
#include "Tests/Support/TempFolder.h"

#include <doctest/doctest.h>

using namespace Tests;
using namespace LS::System;
using namespace LS::System::Net;
using Web = CHttpWebRequest;
using Request = CRefPtr<Web>;
using Setup = std::function<void(Web&)>;
using Ending = HttpReply::Ending;

// clang-format off
static const auto Begin = [](const std::string& url, const Setup& setup = {}, std::uint32_t receiveMs = 0) {
    Request request = CHttpWebRequest::CreateHttp(url, 0, 0, receiveMs, 0);
    if (setup) setup(*request);
    request->Start();
    return request;
};
static const auto Fetch = [](const std::string& url, const Setup& setup = {}, std::uint32_t receiveMs = 0) {
    Request request = Begin(url, setup, receiveMs);
    CHECK(WaitFor([&] { return request->PercentDone() == 100.0F; }));
    return request;
};
static const auto Pattern = [](std::uint64_t begin, std::size_t size) {
    std::string bytes(size, '\0');
    FillPattern(begin, bytes.data(), size);
    return bytes;
};
/// A body of the pattern behind a status that may bring headers of its own.
static const auto Reply = [](const std::string& status, std::uint64_t length, std::uint64_t cut = UINT64_MAX,
                             Ending end = Ending::Close) {
    const std::string head = HttpHead(status, {});
    return HttpReply{.Head = head, .Body = FillPattern, .BodyLength = length, .CutAfter = cut, .End = end};
};
static const std::string Date = "Sat, 14 Nov 2026 05:56:03 GMT", Later = "Sun, 15 Nov 2026 05:56:03 GMT";
static const auto Range = [](std::int64_t a, std::int64_t b, const std::string& date = "") {
    return [=](Web& it) { it.SetRange({"bytes", a, b}); it.SetConditionalDate(date); it.SetSendIfRange(true); };
};

TEST_CASE("every answer and every fault of a server ends the transfer as it must")
{
    const std::string length = "\r\nContent-Length: 65536", good = "200 OK" + length;
    const struct { HttpReply Answer; std::string Outcome; Setup Ask = {}; unsigned Begin = 0; } table[] = {
        // error, status, content length (-1: unknown), bytes stored, start of the range afterwards
        {Reply(good, 65536), "0 200 65536 65536 -1 ok"},
        {Reply("200 OK\r\nContent-Length: 0", 0), "0 200 0 0 -1 ok"},
        {Reply("200 OK", 65536), "0 200 -1 65536 -1 ok"},
        {{.Head = "HTTP/1.1 200\r\nTransfer-Encoding:chunked\r\n\r\n1\r\na\r\n0\r\n\r\n"}, "0 200 -1 1 -1 ok"},
        {Reply("200 OK\r\nContent-Length: 100", 1000), "0 200 100 100 -1 ok"},
        {Reply("200 OK\r\nContent-Length: 18446744073709551614", 100), "7 200 -2 100 -1 "},
        {Reply(good, 65536, 40000), "7 200 65536 40000 -1 "},
        {Reply(good, 65536, 16384, Ending::Reset), "7 200 65536 0 -1 "},
        {Reply(good, 65536, 32768, Ending::Stall), "7 200 65536 32768 -1 "},
        {{.StallBeforeHead = true}, "6 0 -1 0 -1 "},
        {{.End = Ending::Close}, "8 0 -1 0 -1 "},
        {Reply("404 Not Found" + length, 65536), "0 404 65536 0 -1 "},
        {Reply("304 Not Modified", 0), "0 304 -1 0 -1 "},
        {Reply("300 Multiple Choices" + length, 65536), "0 300 65536 0 -1 "},
        {Reply("206 Partial\r\nContent-Range: bytes 0-65535/70000" + length, 65536), "8 206 65536 0 -1 "},
        {Reply("302 Found\r\nContent-Length: 0", 0), "8 0 -1 0 -1 "},
        {Reply("302 Found\r\nContent-Length: 0\r\nLocation: /loop", 0), "8 0 -1 0 -1 "},
        {Reply("200 OK", UINT64_MAX), "9 200 -1 16777216 -1 "},
        {Reply("206 Partial\r\nContent-Range: bytes 0-4/1000", 5), "8 206 -1 0 6 ", Range(6, 9)},
        // From here on a file server.
        {{}, "0 206 5 5 5 ok", Range(5, 9), 5},
        {{}, "0 206 10 10 990 ok", Range(990, -1), 990},
        {{}, "0 206 10 10 -1 ok", Range(-1, 10), 990},
        {{}, "0 416 0 0 1000 ", Range(1000, -1)},
        {{}, "0 206 5 5 5 ok", Range(5, 9, Date), 5},
        {{}, "0 200 1000 1000 -1 ok", Range(5, 9, Later)}};
    for (const auto& row : table)
    {
        CAPTURE(&row - table);
        const HttpReply& answer = row.Answer;
        const bool isFile = answer.Head.empty() && !answer.StallBeforeHead && answer.End != Ending::Close;
        CFaultServer server([&](const auto& request) { return isFile ? FileReply(request, 1000) : answer; });
        const bool stalls = answer.StallBeforeHead || answer.End == Ending::Stall;
        const Request it = Fetch(server.Url("/"), row.Ask, stalls ? 2000 : 0);
        const std::string& body = it->ResponseBody();
        // How much arrives before a reset is the network's affair.
        const auto size = answer.End == Ending::Reset ? 0 : static_cast<unsigned>(body.size());
        CHECK(LS::Printf("%u %u %I64d %u %I64d %s", it->ErrorCode(), it->StatusCode(), it->ContentLength(),
                         size, it->Range().Start, it->DownloadIsOk() ? "ok" : "") == row.Outcome);
        CHECK(((!isFile && !answer.Body) || body == Pattern(row.Begin, body.size())));
        CHECK(server.Requests().size() == (answer.Head.find("/loop") < 99 ? 11U : 1U));
        server.GoAway();
        CHECK((&row != table || Fetch(server.Url("/"))->ErrorCode() == 5));
    }
    CHECK_FALSE(CHttpWebRequest::CreateHttp("gopher://host/", 0, 0, 0, 0));
}

TEST_CASE("target and headers arrive as asked for; redirects take the cookies along to the first host only")
{
    CFaultServer other([](const HttpRequest&) { return TextReply("other"); });
    CFaultServer server([&](const HttpRequest& request) {
        const std::string away = "http://localhost:" + std::to_string(other.Port()) + "/end";
        return request.Target == "/dir/1" ? Reply("302 Found\r\nLocation: 2 b?c\r\nSet-Cookie: s=1;Path=/", 0)
             : request.Target == "/dir/2%20b?c" ? Reply("308 Permanent Redirect\r\nLocation: " + away, 0)
                                               : FileReply(request, 1000, "D");
    });
    const std::string accept = "Accept: */*\r\n", host = "Host: " + server.Host() + "\r\nUser-Agent: ";
    const std::string agent = host + "Mozilla/4.0 (compatible; MSIE 5.0; CDA 6.0)";
    const Setup cookies = [](Web& it) { it.SetCookiesEnabled(true); it.SetCookies("a=1; b=2"); };
    const Setup own = [](Web& it) {
        it.SetUserAgent("Agent 1");
        it.SetContentType("text/html");
        it.SetConditionalDate("a\r\nEvil: b");
        it.SetSendIfModifiedSince(true);
    };
    const Setup all = [&](Web& it) { cookies(it); Range(5, 9, Date)(it); it.SetSendIfModifiedSince(true); };
    const Setup time = [](Web& it) {
        Range(5, -1)(it);
        it.SetConditionalDate(SYSTEMTIME{2026, 11, 0, 14, 5, 56, 3, 0});
    };
    const struct { std::string Written, Arrives; Setup Ask; std::string Headers; } table[] = {
        {"/G?p=A:Play Deck|V:2.1|t:0", "/G?p=A:Play%20Deck|V:2.1|t:0", {}, accept + agent},
        {"/?\xD0\x98\xED\x95\x9C\xFF\x80", "/?%D0%98%ED%95%9C%FF%80",
         own, "Accept: text/html, */*\r\n" + host + "Agent 1"},
        {"/a%20b?c=%d0+d&e=\"<>^`{}~'()*", "/a%20b?c=%d0+d&e=\"<>^`{}~'()*", all,
         accept + "Cookie: a=1; b=2\r\nIf-Modified-Since: " + Date + "\r\nIf-Range: " + Date +
         "\r\nRange: bytes=5-9\r\n" + agent},
        {"?q", "/?q", time, accept + "If-Range: Sat, 14 Nov 2026 05:56:03 UT\r\nRange: bytes=5-\r\n" + agent},
        {"/dir/1", "/dir/2%20b?c", cookies, accept + "Cookie: a=1; b=2; s=1\r\n" + agent},
        {"/dir/1", "/dir/2%20b?c", [](Web& it) { it.SetCookies("a=1"); }, accept + agent}};
    for (const auto& row : table)
    {
        const Request request = Fetch(server.Url(row.Written), row.Ask);
        CHECK(server.Requests().back().Target == row.Arrives);
        CHECK(server.Requests().back().HeaderBlock == row.Headers);
        CHECK((row.Written != "/dir/1" || request->ResponseBody() == "other"));
        CHECK((row.Headers.find("s=1") > 99 || request->Cookies() == "a=1; b=2; s=1"));
    }
    CHECK((other.Requests().back().Target == "/end" && !other.Requests().at(0).Header("Cookie")));
}

TEST_CASE("a file takes the body whole, keeps what it had when the server has none, or is told as unwritable")
{
    const CTempFolder folder;
    const std::wstring path = folder.Path(L"\x041F \xD55C.exe"), full = L"\\\\?\\unix\\dev\\full"; // of Wine
    CFaultServer server([](const HttpRequest& request) {
        return request.Target == "/cut" ? Reply("200 OK\r\nContent-Length: 65536", 65536, 40000)
             : request.Target == "/none" ? Reply("404 Not Found", 5) : FileReply(request, 8388613);
    });
    const auto error = [&](const char* target, const std::wstring& file) {
        return Fetch(server.Url(target), [&](Web& it) { it.SetDestination(file); })->ErrorCode();
    };
    WriteBytes(path, "old");
    CHECK((error("/none", path) == 0 && ReadBytes(path) == "old"));
    CHECK((error("/file", path) == 0 && ReadBytes(path) == Pattern(0, 8388613)));
    CHECK((error("/cut", path) == 7 && ReadBytes(path) == Pattern(0, 40000)));
    CHECK((error("/file", folder.Path()) == 9 && error("/file", folder.Path(L"missing\\file")) == 9));
    CHECK((!std::ofstream(std::filesystem::path(full)).is_open() || error("/file", full) == 10));
}

/// Remembers what it is told and pauses the request the first time.
struct CWatcher : CHttpProgress
{
    void OnProgress(std::uint64_t received, std::uint64_t total) override
    {
        Ordered = Ordered && received > Received && total == 1048576;
        Received = received;
        if (Count++ == 0) It->Pause();
    }
    CHttpWebRequest* It = nullptr;
    std::atomic<unsigned> Count{0};
    std::atomic<bool> Ordered{true};
    std::uint64_t Received = 0;
};

TEST_CASE("a paused transfer stands still until it is resumed, progress is told, results come last")
{
    const HttpReply reply = Reply("200 OK\r\nContent-Length: 1048576", 1048576, 524288, Ending::Stall);
    CFaultServer server([&](const HttpRequest&) { return reply; });
    const auto watcher = MakeRef<CWatcher>();
    const DWORD begin = ::GetTickCount();
    const Setup watch = [&](Web& it) { watcher->It = &it; it.SetProgress(watcher); };
    const Request request = Begin(server.Url("/"), watch);
    request->Start(); // does nothing
    REQUIRE(WaitFor([&] { return watcher->Count > 0; }));
    const float percent = request->PercentDone();
    CHECK((percent > 0.0F && percent < 10.0F));
    CHECK_FALSE(WaitFor([&] { return request->PercentDone() != percent; }, 300)); // half would be here
    request->Resume();
    CHECK(WaitFor([&] { return request->PercentDone() == 50.0F; }));
    CHECK((request->StatusCode() == 0 && request->ResponseBody().empty() && !request->DownloadIsOk()));
    server.Release();
    REQUIRE(WaitFor([&] { return request->PercentDone() == 100.0F; }));
    CHECK((request->ResponseBody() == Pattern(0, 1048576) && server.Requests().size() == 1));
    CHECK((watcher->Ordered && watcher->Count >= 2 && watcher->Count <= (::GetTickCount() - begin) / 50 + 2));
}

TEST_CASE("requests dropped in mid-transfer return at once and leave nothing behind")
{
    const CTempFolder folder;
    DWORD slowest = 0;
    bool filesFree = true;
    const auto runRounds = [&](unsigned rounds) {
        CFaultServer server([](const HttpRequest& request) {
            HttpReply reply = Reply("200 OK\r\nContent-Length: 67108864", 67108864);
            if (request.Target == "/1") reply.CutAfter = 524288, reply.End = Ending::Stall;
            reply.StallBeforeHead = request.Target == "/0";
            return reply;
        });
        for (unsigned round = 0; round < rounds; ++round)
        {
            const std::wstring path = folder.Path(std::to_wstring(round));
            Request request = Begin(server.Url("/" + std::to_string(round % 3)), [&](Web& setup) {
                if (round % 2 == 1) setup.SetDestination(path);
                if (round % 7 == 0) setup.Pause();
            });
            // Dropped at a different moment each time: before anything, asked, or in the body.
            if (round % 5 != 0) server.WaitForRequests(round % 20 + 1, 50);
            if (round % 5 > 2) WaitFor([&] { return request->PercentDone() > 0.0F; }, 20);
            const DWORD begin = ::GetTickCount();
            request.Reset();
            slowest = std::max(slowest, ::GetTickCount() - begin);
            filesFree = filesFree && (::DeleteFileW(path.c_str()) || ::GetLastError() == 2);
            if (round % 20 == 19) { server.GoAway(); server.Reopen(); }
        }
    };
    runRounds(20); // what the system keeps for the first requests of a process
    const unsigned threads = ThreadCount(), handles = HandleCount();
    runRounds(Loops(200, 2000));
    CHECK(WaitFor([&] { return ThreadCount() <= threads && HandleCount() <= handles; }));
    CHECK((filesFree && std::filesystem::is_empty(folder.Path()))); // and never made again
    CHECK(slowest < 10000); // the workers' time-out is 30 s; a drop that waited for one would show
}

/// A server whose file and behaviour change between the requests, and the files on this side.
struct Download
{
    const CTempFolder Folder;
    const std::wstring Path = Folder.Path(L"file.bin"), Part = Path + L"_cache", Metadata = Part + L".txt";
    std::size_t Size = 300000;
    std::string LastModified = Date, PartialHead; // the latter sent instead of the head of a 206
    std::uint64_t CutAfter = UINT64_MAX;
    CFaultServer Server{[this](const HttpRequest& request) {
        HttpReply reply = FileReply(request, Size, LastModified);
        reply.CutAfter = CutAfter;
        reply.End = Ending::Close;
        if (!PartialHead.empty() && reply.Head.starts_with("HTTP/1.1 206")) reply.Head = PartialHead;
        return reply;
    }};
    const Setup Cached = [this](Web& it) { it.SetDestination(Path); it.SetCached(true); };
    Request Run() { return Fetch(Server.Url("/f"), Cached); }
    std::string Expected() const { return ResponseMetadata{LastModified, Size, Server.Url("/f")}.Text(); }
    bool Knows() const { return std::filesystem::exists(Metadata) || std::filesystem::exists(Path); }
    /// "If-Modified-Since|If-Range|Range status" of a run after which all is well.
    std::string Whole()
    {
        const Request request = Run();
        const HttpRequest sent = Server.Requests().back();
        CHECK((request->DownloadIsOk() && ReadBytes(Path) == Pattern(0, Size)));
        CHECK((ReadBytes(Metadata) == Expected() && !std::filesystem::exists(Part)));
        const auto header = [&](const char* name) { return sent.Header(name).value_or(""); };
        return header("If-Modified-Since") + "|" + header("If-Range") + "|" + header("Range") + " " +
               std::to_string(request->StatusCode());
    }
    void BreakOff(std::uint64_t after)
    {
        CutAfter = after;
        CHECK(Run()->ErrorCode() == 7);
        CutAfter = UINT64_MAX;
    }
};

TEST_CASE("a cached file is asked for again only when it changed, continued where it broke off, or replaced")
{
    Download whole;
    CHECK(whole.Whole() == "|| 200");
    CHECK(whole.Whole() == Date + "|| 304");
    whole.Size = 200000, whole.LastModified = Later;
    CHECK(whole.Whole() == Date + "|| 200");
    WriteBytes(whole.Path, "shorter than the metadata says");
    CHECK(whole.Whole() == "|| 200");
    for (const bool changed : {false, true})
    {
        Download download;
        download.BreakOff(100000);
        download.BreakOff(50000); // and again
        CHECK(ReadBytes(download.Part) == Pattern(0, 150000));
        CHECK(ReadBytes(download.Metadata) == download.Expected());
        if (changed) download.Size = 200000, download.LastModified = Later;
        CHECK(download.Whole() == "|" + Date + "|bytes=150000- " + (changed ? "200" : "206"));
    }
    const std::string partial = "206 Partial Content\r\nContent-Range: ";
    for (const std::string& head :
         {partial + "bytes 99999-299999/300000", partial + "bytes 100000-299999/300001", partial + "none",
          partial + "bytes 100000-299999/300000\r\nLast-Modified: later", std::string("416 Not Satisfiable")})
    {
        Download download;
        download.BreakOff(100000);
        download.PartialHead = HttpHead(head, {"Content-Length: 200000"});
        const Request request = download.Run(); // the part is forgotten
        CHECK(request->ErrorCode() == (head[0] == '2' ? 8 : 0));
        CHECK((!request->DownloadIsOk() && !download.Knows()));
        CHECK(download.Whole() == "|| 200");
    }
    Download download;
    download.LastModified = "\x01"; // no date
    download.BreakOff(100000);
    CHECK((!download.Knows() && !std::filesystem::exists(download.Part)));
    download.LastModified = Date;
    const std::string good = download.Expected();
    std::string otherUrl = good, otherVersion = good, tooShort = good;
    otherUrl.insert(good.size() - 2, "x");
    otherVersion.replace(good.find('1'), 1, "2");
    tooShort.replace(good.find("300000"), 6, "100000"); // the part would be longer than the whole
    for (const std::string& metadata : {otherUrl, otherVersion, tooShort, std::string()})
    {
        WriteBytes(download.Part, std::string(100000, 'x'));
        WriteBytes(download.Metadata, metadata);
        CHECK(download.Whole() == "|| 200");
    }
}
// clang-format on
