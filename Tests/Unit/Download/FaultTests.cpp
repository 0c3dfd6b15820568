// What the engine makes of everything that a server, a disk and an earlier run can do wrong: restarts,
// messages, outcome, the ranges that were asked for. All downloads of the table run side by side, each from a
// server of its own, since some of them wait for seconds before they try again.
//
// Wine doesn't report a server that stalls as a time-out (12030 or 10060 instead of 12002), so the message
// and the rule for time-outs are shown by their functions only.
#include "Tests/Unit/Download/DownloadRun.h"

#include <doctest/doctest.h>

#include <deque>
#include <memory>
#include <regex>
#include <set>

using namespace Tests;
using LS::System::Win32::CFileHandle;

namespace
{
/// Makes the files that are there before the download.
using Prepare = std::function<void(const std::wstring& path)>;

/// One fault and what must come of it. By default a download without a record that asks once, for all, and
/// succeeds; one that fails doesn't try again.
struct Row
{
    Row(std::string name, Script answer, std::string asks = "-", unsigned restarts = 0,
        std::string fails = "") :
        Name(std::move(name)),
        Answer(std::move(answer)), Asks(std::move(asks)), Restarts(restarts), Fails(std::move(fails)),
        RetryCount(Fails.empty() ? 5 : 0)
    {
    }
    Row& After(std::vector<Prepare> prepares) { return Before = std::move(prepares), *this; }
    Row& OfSize(std::uint64_t size) { return FileSize = size, *this; }
    Row& Retries(std::uint32_t count) { return RetryCount = count, *this; }
    /// Files beside a download that has failed.
    Row& Leaves(const std::string& files) { return Files = files, *this; }
    /// The server falls silent: that is given up soon.
    Row& GivesUp() { return ReceiveMs = 3000, *this; }
    /// The server goes away for three seconds when the download has so many bytes.
    Row& AwayAt(std::uint32_t bytes) { return Away = bytes, *this; }

    std::string Name;
    Script Answer;
    /// Ranges of the requests, see RangesOf; "?" when the order of things decides.
    std::string Asks;
    unsigned Restarts;
    /// The beginning of the messages.
    std::string Fails;
    std::vector<Prepare> Before;
    std::uint64_t FileSize = Size;
    std::uint32_t RetryCount, ReceiveMs = 30000, Away = 0;
    std::string Files = "downloadstate";
};

/// Does something with the first so many requests, answers the others well.
Script First(unsigned count, const Script& bad, const Script& good = Whole)
{
    return [=](const HttpRequest& request) { return request.Index < count ? bad(request) : good(request); };
}

/// The good answer with something else in its head.
Script Edited(const std::string& from, const std::string& to, const Script& script = Whole)
{
    return [=](const HttpRequest& request) {
        HttpReply reply = script(request);
        if (const auto at = reply.Head.find(from); at != std::string::npos)
            reply.Head.replace(at, from.size(), to);
        return reply;
    };
}

Prepare Streams(const std::vector<std::uint32_t>& offsets, std::uint64_t size = Size)
{
    return [=](const std::wstring& path) { Interrupt(path, offsets, static_cast<std::uint32_t>(size)); };
}

Prepare Edit(const std::wstring& suffix, const std::function<void(std::string& bytes)>& change)
{
    return [=](const std::wstring& path) {
        std::string bytes = ReadBytes(path + suffix);
        change(bytes);
        WriteBytes(path + suffix, bytes);
    };
}

/// Cut, or with zeros behind.
Prepare Resized(const std::wstring& suffix, std::size_t size)
{
    return Edit(suffix, [=](std::string& bytes) { bytes.resize(size); });
}

Prepare Record(std::uint32_t index, std::uint32_t offset, std::uint32_t threads)
{
    return [=](const std::wstring& path) { PutStreamRecord(path, index, offset, Size, threads); };
}

Prepare Deleted(const std::wstring& suffix)
{
    return [=](const std::wstring& path) { std::filesystem::remove(path + suffix); };
}

/// Opens the file so that nobody else can, or only for this; makes it when missing.
using Holder = std::shared_ptr<CFileHandle>;
Prepare Hold(const std::wstring& suffix, const Holder& holder, DWORD share = 0)
{
    return [=](const std::wstring& path) {
        *holder = CFileHandle(
            ::CreateFileW((path + suffix).c_str(), GENERIC_READ, share, nullptr, OPEN_ALWAYS, 0, nullptr));
    };
}

std::vector<Row> Rows()
{
    const Script unranged = [](const HttpRequest&) { return FileReply({}, Size); };
    const Script closed = Cut(100000, Ending::Close), closing = Cut(Size, Ending::Close);
    const Script secondClosed = [=](const HttpRequest& request) {
        return request.Index < 2 && request.RangeBegin.value_or(0) > 0 ? closed(request) : Whole(request);
    };
    const Script noRanges = Edited("206 Partial", "203 Other", Edited("Ranges: bytes", "Ranges: none"));
    const Script redated = Edited("14 Nov", "15 Nov"), noRange = Edited("Content-Range", "X");
    const Script nothing = [](const HttpRequest&) -> HttpReply { return {.End = Ending::Close}; };
    const auto vanishing = std::make_shared<std::filesystem::path>();
    const Script vanish = [=](const HttpRequest& request) {
        std::filesystem::remove_all(*vanishing);
        return Bare("404 Not Found")(request);
    };
    const auto holder = [] { return std::make_shared<CFileHandle>(); };
    const Holder scanner = holder();
    const Script letGo = [=](const HttpRequest& request) {
        if (request.Index == 1)
            scanner->Reset();
        return Whole(request);
    };
    const Prepare two = Streams({0, 0}), one = Streams({131072}), both = Streams({131072, 215536});
    const std::string halves = "0-149999 150000-299999", rests = "131072-149999 215536-299999";
    const std::string first = "0-149999 215536-299999", second = "131072-149999 150000-299999";
    const std::string url = "URL=U\r\nHTTP Response Header:H", auth = ":  refresh auth needed.  " + url;
    const std::string bad = "HTTP status is bad:", wrong = "Returned Content-Range is wrong.  Got: ";
    const std::string other = "HTTP status is unexpected (expected 206 or 200)  status=";
    const std::string tooLarge = "File is too large:  4 GiB or more can't be downloaded.  Size=4294967296 ";
    const std::string getBuffer = "GetBuffer Failed. > WriteFileThread Failed. > ";
    const std::string noCache = getBuffer + "CreateFileW returned INVALID_FILE_VALUE.  FileName=P.cache";
    const std::string noRecord = "File open failed;  P.0; Version=1; StreamIndex=0; Offset=";
    const std::string missing = "File size error - no more bytes to read, but expected ";

    std::vector<Row> rows = {
        {"a redirect", First(1, Bare("302 Found", "Location: /other")), "- -"},
        {"no length, ended by a close", Edited("Content-Length", "X", closing)},
        {"a length that is no number", Edited("Length: 300000", "Length: many", closing)},
        {"a head of 100,000 bytes", Edited("Accept", std::string(100000, 'x') + ": Y\r\nAccept")},
        Row("20 MiB and a byte starts over, knowing the size", Sized(20971521), "- -", 1).OfSize(20971521),

        Row("200 for the range of one stream", unranged, "131072-").After({one}),
        Row("200 for the ranges of two", unranged, "- " + halves, 1).After({two}),
        Row("206 with a wrong start", Edited("bytes ", "bytes 9"), "?", 0, wrong + "bytes 9").After({two}),
        Row("206 with a wrong total", Edited("/300000", "/300001"), "?", 0,
            "Returned file size in Content-Range is wrong.  Got: 300001     Expected: 300000   " + url)
            .After({two}),
        Row("206 without Content-Range", noRange, "?", 0, wrong + "     Expected: bytes ").After({two}),
        Row("206 of one stream without Content-Range seems another size", noRange, "- 131072-", 1)
            .After({one}),
        Row("ranges refused for two streams", noRanges, "- " + halves, 1).After({two}),

        {"404 once", First(1, Bare("404 Not Found")), "- -"},
        Row("404", Bare("404 Not Found"), "- -", 0, bad + "404 " + url).Retries(1),
        Row("500", Bare("500 Oops"), "-", 0, bad + "500 " + url),
        Row("401", Bare("401 Who"), "-", 0, "HTTP status is 401" + auth),
        Row("403", Bare("403 No"), "?", 0, "HTTP status is 403" + auth).After({two}),
        Row("304", Bare("304 Not Modified"), "-", 0, other + "304  " + url),
        Row("308", Bare("308 Moved", "Location: /other"), "-", 0, other + "308  " + url),
        Row("416 on a resume", First(1, Bare("416 No")), "- 131072-", 1).After({one}),
        {"416 for ever: four restarts", Bare("416 No"), "- - - - -", 4, bad + "416 " + url},
        Row("416 forces a single stream, which doesn't start over when it learns a large size",
            First(1, Bare("416 No"), Sized(20971521)), "- 65536-", 1)
            .After({Streams({Block}, 0)})
            .OfSize(20971521),
        Row("no head", nothing, "-", 0, "Server Header is empty.  URL=U"),

        Row("a larger file on a resume", Sized(Size + 7), "- 131072-", 1).After({one}).OfSize(Size + 7),
        Row("a smaller file on a resume", Sized(100000), "- 131072-", 1).After({one}).OfSize(100000),
        Row("another date on a resume", redated, "- 131072-", 1).After({one}),
        Row("another date for one of two", redated, "- 131072-149999 150000-299999", 1)
            .After({Streams({131072, 0})}),
        Row("no date any more on a resume", Edited("Last-Modified", "X"), "131072-").After({one}),
        Row("another size while the download runs", First(1, Cut(2 * Block, Ending::Stall), Sized(Size + 7)),
            "- - 131072-", 1)
            .OfSize(Size + 7)
            .GivesUp(),
        Row("an empty file after a restart", First(1, closed, Sized(0)), "- -", 1).OfSize(0),

        {"closed in mid-body once", First(1, closed), "- -", 1},
        Row("closed in mid-body for ever: four restarts", closed, "- - - - -", 4,
            missing + "200000 more bytes")
            .Leaves("cache downloadstate 0"),
        Row("both closed in mid-body for ever", closed, "?", 4, missing + "50000 more bytes")
            .After({two})
            .Leaves("?"),
        Row("one of two closed in mid-body: a restart with two", secondClosed,
            "0-149999 0-149999 150000-299999 150000-299999", 1)
            .After({two}),
        Row("silent before the head once", First(1, Silent), "- -").GivesUp(),
        Row("silent before the head", Silent, "-", 0, "HttpSendRequest failed.").GivesUp(),
        Row("silent in mid-body once", First(1, Cut(2 * Block, Ending::Stall)), "- 131072-").GivesUp(),
        Row("reset in mid-body, then gone for three seconds", First(1, Cut(Block, Ending::Stall)), "- 65536-")
            .AwayAt(Block),
        Row("two reset in mid-body, then gone for three seconds", First(2, Cut(Block, Ending::Stall)),
            halves + " 215536-299999 65536-149999")
            .After({two})
            .AwayAt(2 * Block),

        {"4 GiB", Edited("Length: 300000", "Length: 4294967296"), "-", 0, tooLarge + url},
        Row("4 GiB on a resume", Edited("/300000", "/4294967296"), "131072-", 0, tooLarge + url)
            .After({one})
            .Leaves("cache downloadstate 0"),

        Row("both go on", Whole, rests).After({both}),
        Row("one of two is complete", Whole, "150000-299999").After({Streams({150000, 0})}),
        Row("a single stream goes on", Whole, "131072-").After({one}),
        Row("complete", Whole, "").After({Streams({Size})}),
        Row("there already", Whole, "").After({Edit(L"", [](auto& bytes) { bytes = Pattern(0, Size); })}),
        Row("state torn", Whole).After({both, Resized(L".downloadstate", 9)}),
        Row("state empty", Whole).After({both, Resized(L".downloadstate", 0)}),
        Row("state flipped", Whole)
            .After({both, Edit(L".downloadstate", [](auto& bytes) { bytes[4] ^= 1; })}),
        Row("state oversized", Whole, rests).After({both, Resized(L".downloadstate", 5000)}),
        Row("no state", Whole).After({both, Deleted(L".downloadstate")}),
        Row("state of three streams", Whole).After({both, Streams({0, 0, 0}, Size)}),
        Row("state of one stream", Whole).After({both, Streams({0}, Size)}),
        Row("two of an unknown size", Whole).After({both, Streams({0, 0}, 0)}),
        Row("record torn", Whole, first).After({both, Resized(L".0", 75)}),
        Row("record empty", Whole, second).After({both, Resized(L".1", 0)}),
        Row("record flipped", Whole, second).After({both, Edit(L".1", [](auto& bytes) { bytes[40] ^= 4; })}),
        Row("record oversized", Whole, rests).After({both, Edit(L".1", [](auto& bytes) { bytes += bytes; })}),
        Row("record of another stream count", Whole, first).After({both, Record(0, 131072, 1)}),
        Row("record before its range", Whole, second).After({both, Record(1, 149999, 2)}),
        Row("record behind its range", Whole, first).After({both, Record(0, 150001, 2)}),
        Row("no cache file", Whole, halves).After({both, Deleted(L".cache")}),
        Row("cache file ends early", Whole, second).After({both, Resized(L".cache", 140000)}),
        Row("cache file longer", Whole, rests).After({both, Resized(L".cache", 500000)}),
        Row("longer cache file and no size", Edited("Content-Length", "X", closing))
            .After({Resized(L".cache", 500000)}),
        Row("complete with a wrong size", Whole, "", 0,
            "Output file is wrong size. P should be 300000 but is 300001")
            .After({Streams({Size}), Edit(L".cache", [](auto& bytes) { bytes += 'x'; })})
            .Leaves(""),

        Row("cache file held", Whole, "-", 0, noCache)
            .After({Hold(L".cache", holder())})
            .Leaves("cache downloadstate"),
        Row("cache file held for a while", letGo, "- -").After({Hold(L".cache", scanner)}),
        Row("cache file held at the end", Whole, "", 0, "Failed to move cache file to P")
            .After({Streams({Size}), Hold(L".cache", holder(), FILE_SHARE_READ | FILE_SHARE_WRITE)})
            .Leaves("cache"),
        Row("record held", Whole, "-", 0,
            getBuffer + noRecord + "65536; DownloadSize=300000; ThreadsUsed=1; LastModified=" + PatternDate)
            .After({Streams({0}, 0), Hold(L".0", holder())})
            .Leaves("cache downloadstate 0"),
        Row("record held at the last block", Sized(100), "-", 0, "DownloadThread > " + noRecord + "100")
            .After({Streams({0}, 0), Hold(L".0", holder())})
            .Leaves("cache downloadstate 0"),
        Row("state held", Whole, "", 0, "Could not Delete \"P.downloadstate\"")
            .After({Hold(L".downloadstate", holder())}),
        Row("no folder", Whole, "", 0, "File open failed;  P.downloadstate; Version=2; ThreadsUsed=1")
            .After(
                {[](auto& path) { std::filesystem::remove_all(std::filesystem::path(path).parent_path()); }})
            .Leaves(""),
        Row("the folder vanishes", First(1, vanish), "- -", 0, noCache)
            .After({[=](auto& path) { *vanishing = std::filesystem::path(path).parent_path(); }})
            .Retries(1)
            .Leaves(""),
    };
    for (const std::uint64_t size : {0, 1, 65535, 65536, 65537, 131071, 131072, 131073, 20971520})
        rows.push_back(Row("size " + std::to_string(size), Sized(size)).OfSize(size));
    for (const std::uint64_t size : {2, 3, 131071, 131072, 131073})
        rows.push_back(Row("two streams, size " + std::to_string(size), Sized(size),
                           "0-" + std::to_string(size / 2 - 1) + " " + std::to_string(size / 2) + "-" +
                               std::to_string(size - 1))
                           .After({Streams({0, 0}, size)})
                           .OfSize(size));
    return rows;
}

/// "BEGIN-END" of each request, "-" for one without a range, sorted.
std::string RangesOf(const std::vector<HttpRequest>& requests)
{
    std::multiset<std::string> ranges;
    for (const HttpRequest& request : requests)
        ranges.insert(request.Header("Range").value_or("bytes=-").substr(6));
    std::string text;
    for (const std::string& range : ranges)
        text += (text.empty() ? "" : " ") + range;
    return text;
}

/// The messages of a failure from the outside in, with what differs from run to run replaced: the URL by "U",
/// header lines by "H", the path by "P".
std::string MessagesOf(const LS::System::CException* exception)
{
    const std::pair<std::regex, const char*> replaced[] = {{std::regex("http://[\\d.:]+/file"), "U"},
                                                           {std::regex("\\w:\\\\[^ ]*\\\\file"), "P"},
                                                           {std::regex("Header:HTTP/[^]*"), "Header:H"}};
    std::string text;
    for (; exception; exception = exception->Inner())
    {
        text += text.empty() ? "" : " > ";
        text.append(exception->Message().begin(), exception->Message().end());
    }
    for (const auto& [from, to] : replaced)
        text = std::regex_replace(text, from, to);
    return text;
}

struct Run
{
    Run(const std::wstring& folder, const Row& row) : Path(folder + L"\\file"), Server(row.Answer)
    {
        std::filesystem::create_directory(folder);
        for (const Prepare& prepare : row.Before)
            prepare(Path);
        Download.emplace(Server.Url("/file"), Path, row.RetryCount, row.ReceiveMs);
    }

    std::wstring Path;
    CFaultServer Server;
    std::optional<CDownloadRun> Download;
};
} // namespace

TEST_CASE("Every fault has its restarts, its message and its outcome")
{
    const CTempFolder folder(L"dl-fault");
    const std::vector<Row> rows = Rows();
    std::deque<Run> runs;
    for (const Row& row : rows)
        runs.emplace_back(folder.Path(std::to_wstring(runs.size())), row);
    for (const bool leaves : {true, false})
    {
        for (std::size_t i = 0; i < rows.size(); ++i)
        {
            if (rows[i].Away == 0)
                continue;
            CHECK((!leaves || runs[i].Download->WaitForBytes(rows[i].Away)));
            leaves ? runs[i].Server.GoAway() : runs[i].Server.Reopen();
        }
        ::Sleep(leaves ? 3000 : 0); // tries after 1 and 3 s are refused
    }

    for (std::size_t i = 0; i < rows.size(); ++i)
    {
        const Row& row = rows[i];
        Run& run = runs[i];
        CAPTURE(row.Name);
        CHECK(run.Download->Wait());
        const auto status = run.Download->Status();
        const std::string messages = MessagesOf(status.hException.Get());
        const std::string expected = row.Fails.empty() ? "" : "Download Thread Error > " + row.Fails;
        CHECK(messages.substr(0, expected.size()) == expected);
        CHECK(status.Error == !row.Fails.empty());
        CHECK(status.Finished == row.Fails.empty());
        CHECK(status.AuthRefresh == (row.Fails.find("refresh auth") != std::string::npos));
        CHECK(run.Download->Download->RestartCount() == row.Restarts);
        if (row.Asks != "?")
            CHECK(RangesOf(run.Server.Requests()) == row.Asks);
        run.Download->Download.Reset();
        CHECK(run.Download->FinishedCalls == (row.Fails.empty() ? 1U : 0U));
        if (row.Fails.empty())
            CHECK((FilesOf(run.Path) == "out" && ReadBytes(run.Path) == Pattern(0, row.FileSize)));
        else if (row.Files != "?")
            CHECK(FilesOf(run.Path) == row.Files);
    }
}

// Wine only, where a file can lead to the host's device that is always full. Wine neither lists nor deletes
// such a file and gives no handles of the host's programs, so their effect is waited for.
TEST_CASE("A full disk fails the download after the retries; with room again the next one ends whole")
{
    const CTempFolder folder(L"dl-full");
    const std::wstring path = folder.Path(L"file");
    const auto unixName = reinterpret_cast<char*(CDECL*)(const wchar_t*)>(
        ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name"));
    if (!unixName)
        return;
    const auto run = [&](const std::wstring& program, const std::wstring& arguments, bool makesFull) {
        const std::string unixFolder = unixName(folder.Path().c_str());
        std::wstring line =
            program + arguments + L" " + std::wstring(unixFolder.begin(), unixFolder.end()) + L"/file.cache";
        STARTUPINFOW startup = {};
        PROCESS_INFORMATION process = {};
        CHECK(::CreateProcessW((L"\\\\?\\unix\\bin\\" + program).c_str(), line.data(), nullptr, nullptr,
                               FALSE, 0, nullptr, nullptr, &startup, &process));
        CHECK(WaitFor([&] {
            return makesFull == static_cast<bool>(CFileHandle(
                                    ::CreateFileW((path + L".cache").c_str(), GENERIC_WRITE, FILE_SHARE_READ,
                                                  nullptr, OPEN_EXISTING, 0, nullptr)));
        }));
    };
    CFaultServer server(Whole);
    run(L"ln", L" -s /dev/full", true);
    const CDownloadRun full(server.Url("/file"), path, 1);
    CHECK(full.Wait());
    CHECK(MessagesOf(full.Status().hException.Get()) ==
          "Download Thread Error > GetBuffer Failed. > WriteFileThread Failed. > WriteFile failed in "
          "WriteOutputThread. FileName=P.cache");
    CHECK(RangesOf(server.Requests()) == "- -");
    CHECK(FilesOf(path) == "downloadstate");
    run(L"rm", L"", false);
    const CDownloadRun next(server.Url("/file"), path);
    CHECK(next.Wait());
    CHECK(ReadBytes(path) == Pattern(0, Size));
}
