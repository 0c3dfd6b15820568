// What the engine makes of everything that a server, a disk and an earlier run can do wrong: restarts,
// messages, outcome, the ranges that were asked for, and that from what a failed download leaves the next one
// ends whole. All downloads run side by side, each from a server of its own, since some of them wait for
// seconds before they try again.
//
// Wine doesn't report a server that stalls as a time-out (12030 or 10060 instead of 12002), so the rule for
// time-outs is shown by its function only. Nor does it free a call that blocks when its handle is closed:
// that a slow server is given up within its time, and not at the end of the head or the block that it is at,
// is to be seen on Windows.
#include "Ls/System/Util/Log.h"
#include "Tests/Support/WideText.h"
#include "Tests/Unit/Download/DownloadRun.h"

#include <deque>
#include <numeric>
#include <set>

using namespace Tests;

namespace
{
/// What is there before the download, and what is particular about its course.
struct Scene
{
    /// Where the streams of an interrupted download have come to.
    std::vector<std::uint32_t> At = {};
    /// The size that it knew. The size of the file in the end. The server goes away when the download has
    /// Away bytes, until every stream has been refused.
    std::uint32_t Known = Size, Served = Size, Away = 0;
    Engine::DownloadTimeOuts Waits = {};
    /// This file of the download holds this, or is held with this sharing until the second request, or is
    /// deleted.
    std::wstring File = {};
    std::optional<std::string> Put = {};
    std::optional<DWORD> Share = {};
    /// Files beside a download that has failed, or that has ended while one is held; "?" when the order of
    /// things decides.
    std::string Leaves = "downloadstate ";
    /// Enough for a success and none for a failure by default.
    std::optional<std::uint32_t> Retries = {};
};

/// One fault and what must come of it: by default a download without a record that asks once, for all, and
/// succeeds.
struct Row
{
    std::string Name;
    Script Answer;
    /// "BEGIN-END " of each request, "- " for one without a range, sorted; "?" when the order of things
    /// decides.
    std::string Asks = "- ";
    Scene With = {};
    unsigned Restarts = 0;
    /// The beginning of the messages, with "U" for the URL and "P" for the path.
    std::string Fails = {};
};

std::vector<Row> Rows()
{
    const auto first = [](unsigned count, const Script& bad, const Script& good = Whole) -> Script {
        return [=](auto& request) { return (request.Index < count ? bad : good)(request); };
    };
    // The good answer with something else in its head.
    const auto head = [](const std::string& from, const std::string& to,
                         std::uint64_t cut = UINT64_MAX) -> Script {
        return [=](auto& request) {
            HttpReply reply = Cut(cut, cut == Size ? Ending::Close : Ending::KeepAlive)(request);
            if (const auto at = reply.Head.find(from); at != std::string::npos)
                reply.Head.replace(at, from.size(), to);
            return reply;
        };
    };
    const Script rangeless = [](auto& request) {
        return request.RangeBegin ? Bare("204 No", "Accept-Ranges: none")(request) : Whole(request);
    };
    const Script unranged = [](auto&) { return FileReply({}, Size); };
    const auto refusedOnce = [](auto& request) {
        static std::atomic<bool> refused{false};
        return request.RangeBegin == 0U && !refused.exchange(true) ? Bare("500 Oops")(request)
                                                                   : Whole(request);
    };
    const Script closed = Cut(100000, Ending::Close), stalled = Cut(Block, Ending::Stall);
    const Script refused = Bare("416 No");
    const Script huge = head("Length: 300000", "Length: 4294967296");
    const Script large = Sized(20971521), larger = Sized(Size + 7);
    const std::wstring state = L".downloadstate", cache = L".cache", r0 = L".0";
    const std::vector<std::uint32_t> one = {131072}, two = {0, 0}, both = {131072, 215536};
    const std::string again = "- 131072- ", five = "- - - - - ", halves = "0-149999 150000-299999 ";
    const std::string rests = "131072-149999 215536-299999 ", second = "131072-149999 150000-299999 ";
    const std::string thirds = halves + "215536-299999 65536-149999 ", junk(2 * Size, 'x');
    const std::string some = "cache downloadstate ", all = some + "0 ";
    const Scene held = {.At = {0}, .Known = 0, .File = r0, .Share = 0, .Leaves = "downloadstate 0 "};
    const std::string url = "URL=U\r\nHTTP Response Header:HTTP/1.1 ";
    const std::string wrong = "Returned Content-Range is wrong.  Got: ";
    const std::string tooLarge = "File is too large:  4 GiB or more can't be downloaded.  Size=4294967296 ";
    const std::string missing = "File size error - no more bytes to read, but expected ";
    const std::string writer = "GetBuffer Failed. > WriteFileThread Failed. > ";
    const std::string noCache = writer + "CreateFileW returned INVALID_FILE_VALUE.  FileName=P.cache";
    const std::string noRecord = "File open failed;  P.0; Version=1; StreamIndex=0; Offset=0";
    const std::string wrongTotal =
        "Returned file size in Content-Range is wrong.  Got: 300001     Expected: ";
    const std::string tooLong = "Output file is wrong size. P should be 300000 but is 600000";

    const std::string tooSlow = "InternetReadFile Error.  Status=12002";
    std::string lines; // Wine cuts one off behind 1460 bytes
    for (int i = 0; i < 100; ++i)
        lines += "X" + std::to_string(i) + ": " + std::string(1000, 'x') + "\r\n";
    const Engine::DownloadTimeOuts paced = {.Pace = {16384, 5000}};
    const Script slowHead = Slow(0, 40, 600, [](auto&) {
        HttpReply reply = TextReply(HttpHead("200 OK", {"X: " + std::string(400, 'x')}));
        reply.Head.clear();
        return reply;
    });

    // clang-format off
    std::vector<Row> rows = {
        {"slow", Slow(0, 40, 20), "- ", {.Waits = paced, .Leaves = all}, 0, tooSlow},
        // Not to the end of the block, for which Wine waits.
        {"slow at last", Slow(Block, 4096, 1300, Whole, Block + 28672), "- ", {.Waits = paced, .Leaves = all}, 0,
         tooSlow},
        {"slow head", slowHead, "- ", {.Waits = paced}, 0, "HttpSendRequest failed: timed out.  URL=U"},
        {"slow, but enough", Slow(0, 8192, 60), "- ", {.Waits = {.Pace = {4096, 5000}}}},

        {"redirect", first(1, Bare("302 Found", "Location: /other")), "- - "},
        {"no length", head("Content-Length", "X", Size), "- ", {.File = cache, .Put = junk}},
        {"head of 100,000 bytes", head("Accept", lines + "Accept")},
        {"over 20 MiB: starts over", large, "- - ", {{}, Size, 20971521}, 1},
        {"4 GiB", huge, "- ", {}, 0, tooLarge + url},
        {"4 GiB then", head("/300000", "/4294967296"), "131072- ", {.At = one, .Leaves = all}, 0, tooLarge},

        {"200 for the range of one", unranged, "131072- ", {one}},
        {"200 for the ranges of two", unranged, "?", {two}, 1},
        {"no ranges", rangeless, "?", {two}, 1},
        {"neither ranges nor a word on them", Bare("204 No"), "?", {two}, 0,
         "HTTP status is unexpected (expected 206 or 200)  status=204  " + url},
        {"206, wrong start", head("bytes ", "bytes 9"), "?", {two}, 0, wrong + "bytes 9"},
        {"206, wrong total", head("/300000", "/300001"), "?", {two}, 0, wrongTotal + "300000   " + url},
        {"206 of one, wrong start", head("bytes ", "bytes 9"), "131072- ", {.At = one, .Leaves = all}, 0,
         wrong + "bytes 9131072-299999/300000     Expected: bytes 131072-   " + url},

        {"401", Bare("401 Who"), "- ", {}, 0, "HTTP status is 401:  refresh auth needed.  " + url},
        {"403", Bare("403 No"), "- ", {}, 0, "HTTP status is 403:  refresh auth needed.  " + url},
        {"416 for ever", refused, five, {.Retries = 1}, 4, "HTTP status is bad:416 " + url + "416 No"},
        {"416 forces one", first(1, refused, large), "- 65536- ", {{Block}, 0, 20971521}, 1},

        {"smaller on a resume", Sized(100000), again, {.At = one, .Served = 100000}, 1},
        {"smaller than the record", [](auto&) { return FileReply({}, 100000); }, again,
         {.At = one, .Served = 100000, .File = r0, .Put = StreamBytes(0, 131072, 0, 1)}, 1},
        {"larger as it runs", first(1, stalled, larger), "- - 65536- ", {.Served = Size + 7, .Away = Block}, 1},
        {"another date", head("14 Nov", "15 Nov"), again, {one}, 1},
        {"no date any more", head("Last-Modified", "X"), "131072- ", {one}},
        {"no length, resumed", head("Content-Length", "X", Size), "- ", {.At = {0}, .Known = 0}},
        {"no size or date yet", Whole, "131072- ",
         {.At = one, .File = r0, .Put = StreamBytes(0, 131072, 0, 1, "UNKNOWN")}},

        {"closed for ever", closed, five, {.Leaves = all}, 4, missing + "200000 more bytes"},
        {"two closed: still two", closed, "?", {.At = two, .Leaves = "?"}, 4, missing + "50000 more bytes"},
        {"silent before the head", Silent, "- ", {.Waits = {.ReceiveMs = 3000}}, 0, "HttpSendRequest failed."},
        {"drops after each block", Cut(Block, Ending::Stall), "- 131072- 196608- 262144- 65536- ",
         {.Waits = {.ReceiveMs = 2000}, .Retries = 2}},
        {"the same over and over", Cut(Block, Ending::Stall, unranged), "- 65536- ",
         {.Waits = {.ReceiveMs = 2000}, .Leaves = all, .Retries = 1}, 0, "InternetReadFile Error."},
        {"the same behind a restart", first(1, closed, first(2, Bare("500 Oops"), stalled)), "- - - ",
         {.Waits = {.ReceiveMs = 2000}, .Leaves = all, .Retries = 1}, 1, "InternetReadFile Error."},
        {"reset, then gone for a while", first(2, stalled), thirds, {.At = two, .Away = 2 * Block}},

        {"there already", Whole, "", {.Put = Pattern(0, Size)}},
        {"complete", Whole, "", {.At = {Size}}},
        {"size that is no multiple of two", Sized(Size + 1), "0-149999 150000-300000 ",
         {.At = two, .Known = Size + 1, .Served = Size + 1}},
        {"one of two complete", Whole, "150000-299999 ", {.At = {150000, 0}}},
        {"too long", Whole, "", {.At = {Size}, .File = cache, .Put = junk, .Leaves = ""}, 0, tooLong},
        {"no state", Whole, "- ", {.At = both, .File = state}},
        {"no cache file", Whole, halves, {.At = both, .File = cache}},
        {"no cache file, asked twice", refusedOnce, "0-149999 " + halves, {.At = both, .File = cache}},

        {"cache held", Whole, "- ", {.File = cache, .Share = 0, .Leaves = some}, 0, noCache},
        {"cache held for a while", Whole, "- - ", {.File = cache, .Share = 0}},
        {"held at the end", Whole, "",
         {.At = {Size}, .Waits = {.MoveMs = 1000}, .File = cache, .Share = 3, .Leaves = "cache "}, 0,
         "Failed to move cache file to P"},
        {"held at the end for a while", Whole, "131072- ", {.At = one, .File = cache, .Share = 3}},
        {"record held", Whole, "", held, 0, noRecord},
        {"record held at the end", Whole, "131072- ", {.At = one, .File = r0, .Share = 3, .Leaves = "out 0 "}},
        {"state held at the end", Whole, "131072- ",
         {.At = one, .File = state, .Share = 3, .Leaves = "out downloadstate "}},
    };
    const std::string good = RecordBytes({2, Size, 2}), record = StreamBytes(1, 215536, Size, 2);
    const auto flipped = [](std::string bytes, std::size_t at) { return bytes[at] ^= 4, bytes; };
    const struct { std::wstring File; std::string Asks; std::vector<std::string> Puts; } left[] = {
        // State torn, empty, flipped; of three streams, of one, of two of an unknown size.
        {state, "- ", {good.substr(0, 15), "", flipped(good, 4)}},
        {state, "- ", {RecordBytes({2, Size, 3}), RecordBytes({2, Size, 1}), RecordBytes({2, 0, 2})}},
        // Record torn, empty, flipped, before its range; of another stream count, behind its range.
        {L".1", second, {record.substr(0, 75), "", flipped(record, 40), StreamBytes(1, 149999, Size, 2)}},
        {r0, "0-149999 215536-299999 ", {StreamBytes(0, 131072, Size, 1), StreamBytes(0, 150001, Size, 2)}},
        // Cache file that ends early; that is too long.
        {cache, second, {Pattern(0, 140000)}},
        {cache, rests, {Pattern(0, 215536) + junk}}};
    // clang-format on
    for (const auto& [file, asks, puts] : left)
        for (const std::string& put : puts)
            rows.push_back({"bad " + LS::WideToAnsi(file) + " " + std::to_string(rows.size()),
                            Whole,
                            asks,
                            {.At = both, .File = file, .Put = put}});
    for (const std::uint32_t size : {0, 1, 65535, 65536, 65537, 20971520})
        rows.push_back({"size " + std::to_string(size), Sized(size), "- ", {.Served = size}});
    return rows;
}

/// For all downloads on a machine that has much else to do.
constexpr std::uint32_t LongMs = 300000;

struct Run
{
    Run(const std::wstring& folder, const Row& row) : Of(row), With(row.With), Folder(folder)
    {
        std::filesystem::create_directory(Folder);
        if (!With.At.empty())
            Interrupt(Path, With.At, With.Known);
        if (With.Put)
            WriteBytes(Path + With.File, *With.Put);
        else if (With.Share)
            Held = Hold(Path + With.File, *With.Share, OPEN_ALWAYS);
        else
            std::filesystem::remove(Path + With.File);
        // A server that is away may stay so for long on a slow machine.
        const std::uint32_t retries = With.Away ? 1000 : Of.Fails.empty() ? 5 : 0;
        Download.emplace(Server.Url("/file"), Path, With.Retries.value_or(retries), With.Waits);
    }

    HttpReply Answer(const HttpRequest& request)
    {
        if (request.Index == 1)
            Held.Reset();
        return Healed ? FileReply(request, With.Served) : Of.Answer(request);
    }

    void Check()
    {
        CAPTURE(Of.Name);
        const bool good = Of.Fails.empty();
        CHECK(WaitFor([&] { return Download->Ended(); }, LongMs));
        const auto status = Download->Status();
        std::string texts, fails = good ? "" : " > Download Thread Error > " + Of.Fails;
        for (const LS::System::CException* e = status.hException.Get(); e; e = e->Inner())
            texts += " > " + LS::WideToAnsi(e->Message());
        for (const auto& [from, to] : {std::pair{Server.Url("/file"), "U"}, {LS::WideToAnsi(Path), "P"}})
            for (std::size_t at; (at = texts.find(from)) != std::string::npos;)
                texts.replace(at, from.size(), to);
        CHECK(texts.substr(0, fails.size()) == fails);
        CHECK(status.Finished == good);
        CHECK(status.Error != good);
        CHECK(status.AuthRefresh == (fails.find("refresh auth") != std::string::npos));
        CHECK((status.FileSize == 0 || (status.BytesDone == With.Served && status.PercentDone == 100)));
        CHECK(Download->Download->RestartCount() == Of.Restarts);
        std::multiset<std::string> ranges;
        for (const HttpRequest& request : Server.Requests())
        {
            ranges.insert(request.Header("Range").value_or("bytes=-").substr(6) + " ");
            CHECK(request.Header("User-Agent") == "DownloadTests");
        }
        const std::string asked = std::accumulate(ranges.begin(), ranges.end(), std::string());
        CHECK((Of.Asks == "?" ? Of.Asks : asked) == Of.Asks);
        Download->Download.Reset();
        CHECK(Download->FinishedCalls == good);
        if (!good || Held)
        {
            CHECK((With.Leaves == "?" ? With.Leaves : FilesOf(Path)) == With.Leaves);
            // All is well again: the next download ends whole.
            Healed = true;
            Held.Reset();
            ::DeleteFileW(Path.c_str());
            Download.emplace(Server.Url("/file"), Path);
            CHECK(WaitFor([&] { return Download->Ended(); }, LongMs));
            CHECK(Download->Status().Finished);
            Download->Download.Reset();
        }
        CHECK(FilesOf(Path) == "out ");
        CHECK((ReadBytes(Path) == Pattern(0, With.Served)));
    }

    const Row& Of;
    const Scene& With;
    const std::wstring Folder, Path = Folder + L"\\file";
    LS::System::Win32::CFileHandle Held;
    std::atomic<bool> Healed{false};
    CFaultServer Server{[this](auto& request) { return Answer(request); }};
    std::optional<CDownloadRun> Download;
};

/// Tries that found nobody there: only behind such a one does a stream wait for two seconds.
std::ptrdiff_t Refusals(const std::wstring& log)
{
    const auto lines = Split(ReadBytes(log), '\n');
    return std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
        return line.find("tries again in 2000 ms") != std::string::npos;
    });
}
} // namespace

TEST_CASE("Every fault has its restarts, its message and its outcome")
{
    const CTempFolder folder(L"dl-fault");
    const std::wstring log = folder.Path(L"log");
    LS::System::Util::CLog::Instance()._SetOutputFile(log, true);
    const std::vector<Row> rows = Rows();
    std::deque<Run> runs;
    for (const Row& row : rows)
    {
        runs.emplace_back(folder.Path(std::to_wstring(runs.size())), row);
        // Before the others make the machine slow as well.
        if (row.With.Waits.Pace.Ms < LS::System::Net::LeastPace().Ms)
            CHECK(WaitFor([&] { return runs.back().Server.BodyBytesSent() > 0; }, LongMs));
    }
    std::ptrdiff_t away = 0;
    for (Run& run : runs)
    {
        if (run.Of.Name == "held at the end for a while")
        {
            CHECK(WaitFor([&] { return FilesOf(run.Path) == "cache "; }, LongMs)); // being moved
            run.Held.Reset();
        }
    }
    for (Run& run : runs)
    {
        if (run.With.Away == 0)
            continue;
        CHECK(WaitFor([&] { return run.Download->Status().BytesDone >= run.With.Away; }, LongMs));
        run.Server.GoAway();
        away += run.With.At.empty() ? 1 : 2; // streams
    }
    CHECK(WaitFor([&] { return Refusals(log) >= away; }, LongMs));
    for (Run& run : runs)
        run.Server.Reopen();
    for (Run& run : runs)
        run.Check();
}

TEST_CASE("https is asked for in TLS")
{
    const CTempFolder folder(L"dl-tls");
    CFaultServer server(Whole);
    const CDownloadRun run("https://" + server.Host() + "/file", folder.Path(L"file"), 0);
    CHECK(WaitFor([&] { return run.Ended(); }));
    CHECK(server.Requests().at(0).Method == "TLS");
}

TEST_CASE(
    "Data that can't be recorded gives no new tries, and an older file's end has gone before the record")
{
    const CTempFolder folder(L"dl-unrecorded");
    const std::wstring path = folder.Path(L"file");
    Interrupt(path, {0}, Block);
    WriteBytes(path + L".cache", Pattern(0, Size));
    std::filesystem::create_directory(path + L".0");
    CFaultServer server(Sized(Block));
    const CDownloadRun run(server.Url("/file"), path, 1);
    CHECK(WaitFor([&] { return run.Status().Error || server.Requests().size() > 2; }));
    CHECK(server.Requests().size() == 2);
    CHECK(ReadBytes(path + L".cache").size() == Block);
}

TEST_CASE("State files are written in place, so that no moment leaves an empty one")
{
    const CTempFolder folder(L"dl-place");
    const std::wstring path = folder.Path(L"file");
    Interrupt(path, {131072}, Size);
    // The system lets nobody empty or replace a file that is mapped.
    const auto map = [](const std::wstring& file) {
        const LS::System::Win32::CKernelHandle mapping(
            ::CreateFileMappingW(Hold(file, 7, OPEN_EXISTING).Get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
        return std::unique_ptr<void, decltype(&::UnmapViewOfFile)>(
            ::MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, 0), &::UnmapViewOfFile);
    };
    auto state = map(path + L".downloadstate"), record = map(path + L".0");
    CFaultServer server(Cut(Block, Ending::Stall));
    const CDownloadRun run(server.Url("/file"), path, 0);
    const std::string next = StreamBytes(0, 196608, Size, 1);
    CHECK(WaitFor([&] { return run.Ended() || ReadBytes(path + L".0") == next; }));
    CHECK(!run.Ended());
    state.reset();
    record.reset();
    server.Release();
    CHECK(WaitFor([&] { return run.Ended(); }));
    CHECK(FilesOf(path) == "out ");
}

TEST_CASE("An owner whom a failure can't be told by the callback finds it in the status")
{
    const CTempFolder folder(L"dl-throw");
    CFaultServer server(Bare("404 No"));
    std::atomic<bool> thrown{false};
    const CDownloadRun run(server.Url("/file"), folder.Path(L"file"), 0, {}, [&](auto&, bool) {
        if (!thrown.exchange(true))
            throw std::bad_alloc();
    });
    CHECK(WaitFor([&] { return run.Status().Error; }));
}
