// What the engine makes of everything that a server can do wrong: restarts, messages, outcome, the ranges
// that were asked for. All downloads of the table run side by side, each from a server of its own, since some
// of them wait for seconds before they try again.
//
// Wine doesn't report a server that stalls as a time-out (12030 or 10060 instead of 12002), so the message
// and the rule for time-outs are shown by their functions only.
#include "Tests/Unit/Download/DownloadRun.h"

#include <doctest/doctest.h>

#include <atomic>
#include <functional>
#include <memory>

using namespace Tests;

namespace
{
constexpr std::uint64_t Size = 300000;
constexpr std::uint32_t Block = 65536;

/// Answers a request; number counts from 0 and the others don't see each other.
using Script = std::function<HttpReply(const HttpRequest& request)>;

/// One fault, what was there before, and what must come of it. By default a download without a record that
/// asks once, for all, and succeeds.
struct Row
{
    Row(std::string name, Script answer) : Name(std::move(name)), Answer(std::move(answer)) {}

    /// Ranges of the requests in their order; of two streams sorted. "?" when the order of things decides.
    Row& Asks(const std::string& ranges) { return Ranges = ranges, *this; }
    /// With messages that begin so.
    Row& Fails(const std::string& failure) { return Failure = "Download Thread Error > " + failure, *this; }
    Row& Restarts(std::uint32_t count) { return RestartCount = count, *this; }
    Row& Retries(std::uint32_t count) { return RetryCount = count, *this; }
    Row& OfSize(std::uint64_t size) { return FileSize = size, *this; }
    /// There was a download with two streams; stream 0 had come to offset, unless that is 0.
    Row& Two(std::uint32_t offset = 0) { return Threads = 2, ResumeAt = offset, *this; }
    /// There was a single stream that had come to offset.
    Row& Resumes(std::uint32_t offset) { return Threads = 1, ResumeAt = offset, *this; }
    /// Files beside a download that has failed.
    Row& Leaves(const std::string& files) { return Files = files, *this; }
    /// The server falls silent: that is given up soon.
    Row& GivesUp() { return ReceiveMs = 3000, *this; }
    Row& RefreshesAuth() { return AuthRefresh = true, *this; }

    std::string Name;
    Script Answer;
    std::string Ranges = "-";
    std::string Failure;
    std::uint32_t RestartCount = 0;
    std::uint32_t RetryCount = 5;
    std::uint64_t FileSize = Size;
    std::uint32_t Threads = 0;
    std::uint32_t ResumeAt = 0;
    std::uint32_t ReceiveMs = 30000;
    bool AuthRefresh = false;
    std::string Files = "state";
};

HttpReply Reply(const std::string& head, HttpReply::Ending ending = HttpReply::Ending::KeepAlive)
{
    HttpReply reply;
    reply.Head = head;
    reply.End = ending;
    return reply;
}

HttpReply Whole(const HttpRequest& request)
{
    return FileReply(request, Size);
}

HttpReply Status(const std::string& status, const std::vector<std::string>& headers = {})
{
    std::vector<std::string> all = {"Content-Length: 0"};
    all.insert(all.end(), headers.begin(), headers.end());
    return Reply(HttpHead(status, all));
}

/// The whole file with these headers.
HttpReply WholeWith(const std::string& status, const std::vector<std::string>& headers)
{
    HttpReply reply = FileReply({}, Size);
    reply.Head = HttpHead(status, headers);
    return reply;
}

/// The part that was asked for, with these headers.
HttpReply PartWith(const HttpRequest& request, const std::vector<std::string>& headers)
{
    HttpReply reply = Whole(request);
    std::vector<std::string> all = {"Content-Length: " + std::to_string(reply.BodyLength)};
    all.insert(all.end(), headers.begin(), headers.end());
    reply.Head = HttpHead("206 Partial Content", all);
    return reply;
}

/// Does something with the first so many requests, answers the others well.
Script First(unsigned count, Script bad, Script good = Whole)
{
    return [=](const HttpRequest& request) { return request.Index < count ? bad(request) : good(request); };
}

Script Always(HttpReply reply)
{
    return [=](const HttpRequest&) { return reply; };
}

HttpReply Ended(HttpReply reply, std::uint64_t after, HttpReply::Ending ending)
{
    reply.CutAfter = after;
    reply.End = ending;
    return reply;
}

Script EndsAfter(std::uint64_t after, HttpReply::Ending ending)
{
    return [=](const HttpRequest& request) { return Ended(Whole(request), after, ending); };
}

/// Of one of two streams.
bool IsSecond(const HttpRequest& request)
{
    return request.RangeBegin.value_or(0) >= Size / 2;
}

const std::string Both = "0-149999 150000-299999";
const std::string About = "URL=U\r\nHTTP Response Header:H";

/// A range as the server names it, each number shifted.
std::string ContentRange(const HttpRequest& request, int shift, int total)
{
    return "Content-Range: bytes " + std::to_string(*request.RangeBegin + shift) + "-" +
           std::to_string(request.RangeEnd.value_or(Size - 1) + shift) + "/" + std::to_string(total);
}

std::vector<Row> Rows()
{
    using enum HttpReply::Ending;
    const Script whole200 = [](const HttpRequest&) { return FileReply({}, Size); };
    const auto sized = [](std::uint64_t size) {
        return [=](const HttpRequest& request) { return FileReply(request, size); };
    };
    const Script redated = [](const HttpRequest& request) {
        return FileReply(request, Size, "Sun, 15 Nov 2026 05:56:03 GMT");
    };
    const Script silent = [](const HttpRequest& request) {
        HttpReply reply = Whole(request);
        reply.StallBeforeHead = true;
        return reply;
    };
    const Script noPart = [](const HttpRequest& request) {
        return request.RangeBegin ? PartWith(request, {}) : Whole(request);
    };
    const auto untilClose = [](std::vector<std::string> headers) {
        headers.push_back("Connection: close");
        return Always(Ended(WholeWith("200 OK", headers), Size, Close));
    };
    const std::string unexpected = "HTTP status is unexpected (expected 206 or 200)  status=";
    const std::string tooLarge =
        "File is too large:  4 GiB or more can't be downloaded.  Size=4294967296 " + About;

    std::vector<Row> rows = {
        Row("the whole file", Whole),
        Row("two streams", Whole).Two().Asks(Both),
        Row("two streams, one goes on", Whole).Two(131072).Asks("131072-149999 150000-299999"),
        Row("two streams, one is complete", Whole).Two(150000).Asks("150000-299999"),
        Row("a single stream goes on", Whole).Resumes(131072).Asks("131072-"),
        Row("a single stream is complete", Whole).Resumes(Size).Asks(""),
        Row("a redirect", First(1, Always(Status("302 Found", {"Location: /other"})))).Asks("- -"),
        Row("no length, ended by a close", untilClose({})),
        Row("a length that is no number", untilClose({"Content-Length: many"})),
        Row("a head of 100,000 bytes",
            Always(WholeWith("200 OK", {"Content-Length: 300000", "X: " + std::string(100000, 'x')}))),

        Row("200 for the range of a single stream: all is taken", whole200).Resumes(131072).Asks("131072-"),
        Row("200 for the ranges of two: one restart", whole200).Two().Restarts(1).Asks("- " + Both),
        Row("206 of two streams with a wrong start",
            [](const HttpRequest& request) { return PartWith(request, {ContentRange(request, 1, 300000)}); })
            .Two()
            .Retries(1)
            .Fails("Returned Content-Range is wrong.  Got: bytes ")
            .Asks("?"),
        Row("206 of two streams with a wrong total",
            [](const HttpRequest& request) { return PartWith(request, {ContentRange(request, 0, 300001)}); })
            .Two()
            .Retries(0)
            .Fails("Returned file size in Content-Range is wrong.  Got: 300001     Expected: 300000   " +
                   About)
            .Asks("?"),
        Row("206 of two streams without Content-Range", noPart)
            .Two()
            .Retries(0)
            .Fails("Returned Content-Range is wrong.  Got:      Expected: bytes ")
            .Asks("?"),
        Row("206 of a single stream without Content-Range looks like another size", noPart)
            .Resumes(131072)
            .Restarts(1)
            .Asks("131072- -"),
        Row("ranges refused for two streams",
            [](const HttpRequest& request) {
                return request.RangeBegin ? Status("203 Other", {"Accept-Ranges: none"}) : Whole(request);
            })
            .Two()
            .Restarts(1)
            .Asks("- " + Both),

        Row("404 once", First(1, Always(Status("404 Not Found")))).Asks("- -"),
        Row("404", Always(Status("404 Not Found")))
            .Retries(1)
            .Fails("HTTP status is bad:404 " + About)
            .Asks("- -"),
        Row("500", Always(Status("500 Oops"))).Retries(0).Fails("HTTP status is bad:500 " + About),
        Row("401", Always(Status("401 Unauthorized")))
            .Retries(0)
            .Fails("HTTP status is 401:  refresh auth needed.  " + About)
            .RefreshesAuth(),
        Row("403 for two streams", Always(Status("403 Forbidden")))
            .Two()
            .Retries(0)
            .Fails("HTTP status is 403:  refresh auth needed.  " + About)
            .RefreshesAuth()
            .Asks("?"),
        Row("304", Always(Status("304 Not Modified"))).Retries(0).Fails(unexpected + "304  " + About),
        Row("308 isn't followed", Always(Status("308 Permanent Redirect", {"Location: /other"})))
            .Retries(0)
            .Fails(unexpected + "308  " + About),
        Row("416 on a resume", First(1, Always(Status("416 Range Not Satisfiable"))))
            .Resumes(131072)
            .Restarts(1)
            .Asks("131072- -"),
        Row("416 for ever: four restarts", Always(Status("416 Range Not Satisfiable")))
            .Restarts(4)
            .Fails("HTTP status is bad:416 " + About)
            .Asks("- - - - -"),

        Row("a larger file on a resume", sized(Size + 7))
            .Resumes(131072)
            .Restarts(1)
            .Asks("131072- -")
            .OfSize(Size + 7),
        Row("a smaller file on a resume: nothing lies behind the offset", sized(100000))
            .Resumes(131072)
            .Restarts(1)
            .Asks("131072- -")
            .OfSize(100000),
        Row("another date on a resume", redated).Resumes(131072).Restarts(1).Asks("131072- -"),
        Row("another date for one of two streams", redated)
            .Two(131072)
            .Restarts(1)
            .Asks("- 131072-149999 150000-299999"),
        Row("another size while the download runs",
            [](const HttpRequest& request) {
                return request.Index == 0 ? Ended(Whole(request), 2 * Block, Stall)
                                          : FileReply(request, Size + 7);
            })
            .GivesUp()
            .Restarts(1)
            .Asks("- 131072- -")
            .OfSize(Size + 7),
        Row("an empty file after a restart",
            [](const HttpRequest& request) {
                return request.Index == 0 ? Ended(Whole(request), 100000, Close) : FileReply(request, 0);
            })
            .Restarts(1)
            .Asks("- -")
            .OfSize(0),

        Row("closed in mid-body once", First(1, EndsAfter(100000, Close))).Restarts(1).Asks("- -"),
        Row("closed in mid-body for ever: four restarts", EndsAfter(100000, Close))
            .Restarts(4)
            .Fails("File size error - no more bytes to read, but expected 200000 more bytes")
            .Leaves("cache state 0")
            .Asks("- - - - -"),
        Row("one of two streams closed in mid-body once: a restart with two",
            [](const HttpRequest& request) {
                return IsSecond(request) && request.Index < 2 ? Ended(Whole(request), 100000, Close)
                                                              : Whole(request);
            })
            .Two()
            .Restarts(1)
            .Asks("0-149999 0-149999 150000-299999 150000-299999"),
        Row("silent before the head once", First(1, silent)).GivesUp().Asks("- -"),
        Row("silent before the head", silent).GivesUp().Retries(0).Fails("HttpSendRequest failed."),
        Row("silent in mid-body once", First(1, EndsAfter(2 * Block, Stall))).GivesUp().Asks("- 131072-"),
        Row("no head", Always(Reply("", Close))).Retries(0).Fails("Server Header is empty.  URL=U"),
        Row("a head that isn't HTTP/1", Always(Reply("HTTP/1.1 ?\r\n\r\n", Close)))
            .Retries(0)
            .Fails("Server Header is empty.  URL=U"),

        Row("4 GiB", Always(Reply(HttpHead("200 OK", {"Content-Length: 4294967296"}), Close)))
            .Fails(tooLarge),
        Row("4 GiB on a resume",
            [](const HttpRequest& request) {
                return PartWith(request, {"Content-Range: bytes 131072-299999/4294967296"});
            })
            .Resumes(131072)
            .Fails(tooLarge)
            .Leaves("cache state 0")
            .Asks("131072-"),
        Row("20 MiB and a byte: starts over when it has learnt the size", sized(20971521))
            .Restarts(1)
            .Asks("- -")
            .OfSize(20971521),
    };
    for (const std::uint64_t size : {0, 1, 65535, 65536, 65537, 131071, 131072, 131073, 20971520})
        rows.push_back(Row("size " + std::to_string(size), sized(size)).OfSize(size));
    for (const std::uint64_t size : {2, 3, 131071, 131072, 131073})
        rows.push_back(Row("two streams, size " + std::to_string(size), sized(size))
                           .Two()
                           .OfSize(size)
                           .Asks("0-" + std::to_string(size / 2 - 1) + " " + std::to_string(size / 2) + "-" +
                                 std::to_string(size - 1)));
    return rows;
}

/// Puts the files of an interrupted download there.
void Interrupt(const std::wstring& path, const Row& row)
{
    if (row.Threads == 0)
        return;
    PutDownloadRecord(path, row.Threads, static_cast<std::uint32_t>(row.ResumeAt ? Size : row.FileSize));
    if (row.ResumeAt == 0)
        return;
    WriteBytes(path + L".cache", Pattern(0, row.ResumeAt));
    PutStreamRecord(path, 0, row.ResumeAt, Size, row.Threads);
}

struct Run
{
    Run(const std::wstring& path, const Row& row) : Server(row.Answer), Path(path)
    {
        Interrupt(path, row);
        Download = std::make_unique<CDownloadRun>(Server.Url("/file"), path, row.RetryCount, row.ReceiveMs);
    }

    CFaultServer Server;
    std::wstring Path;
    std::unique_ptr<CDownloadRun> Download;
};
} // namespace

TEST_CASE("Every fault of a server has its restarts, its message and its outcome")
{
    const CTempFolder folder(L"dl-fault");
    const std::vector<Row> rows = Rows();
    std::vector<std::unique_ptr<Run>> runs;
    for (const Row& row : rows)
        runs.push_back(std::make_unique<Run>(folder.Path(std::to_wstring(runs.size())), row));

    for (std::size_t i = 0; i < rows.size(); ++i)
    {
        const Row& row = rows[i];
        Run& run = *runs[i];
        CAPTURE(row.Name);
        CHECK(run.Download->Wait());
        const DownloadStatus status = run.Download->Status();
        const std::string messages = MessagesOf(status.hException.Get(), run.Server.Url("/file"), run.Path);
        CHECK(messages.substr(0, row.Failure.size()) == row.Failure);
        CHECK(status.Error == !row.Failure.empty());
        CHECK(status.Finished == row.Failure.empty());
        CHECK(status.AuthRefresh == row.AuthRefresh);
        CHECK(run.Download->Restarts() == row.RestartCount);
        if (row.Ranges != "?")
            CHECK(RangesOf(run.Server.Requests(), row.Threads == 2) == row.Ranges);
        run.Download->Drop();
        CHECK(FilesOf(run.Path) == (row.Failure.empty() ? "out" : row.Files));
        if (row.Failure.empty())
            CHECK(IsPatternFile(run.Path, row.FileSize));
    }
}

TEST_CASE("A server that goes away in mid-body and comes back is asked for the rest only")
{
    const CTempFolder folder(L"dl-gone");
    for (const bool two : {false, true})
    {
        CAPTURE(two);
        // Each stream gets a block and then nothing until the server has been away.
        std::atomic<bool> back{false};
        CFaultServer server([&](const HttpRequest& request) {
            return back ? Whole(request) : Ended(Whole(request), Block, HttpReply::Ending::Stall);
        });
        const std::wstring path = folder.Path(two ? L"two" : L"one");
        if (two)
            PutDownloadRecord(path, 2, Size);
        CDownloadRun run(server.Url("/file"), path);
        CHECK(run.WaitForBytes(two ? 2 * Block : Block));
        server.GoAway();
        ::Sleep(3000); // tries after 1 and 3 s are refused
        back = true;
        server.Reopen();
        CHECK(run.Wait());
        CHECK(run.Status().Finished);
        CHECK(run.Restarts() == 0);
        CHECK(RangesOf(server.Requests(), two) ==
              (two ? "0-149999 150000-299999 215536-299999 65536-149999" : "- 65536-"));
        CHECK(IsPatternFile(path, Size));
    }
}

TEST_CASE("Attempts that all ask for a restart get four, and none of several streams after a single one")
{
    const CTempFolder folder(L"dl-restart");
    // Two streams that are cut short every time: each may ask for a restart with two streams.
    {
        const std::wstring path = folder.Path(L"cut");
        CFaultServer server(EndsAfter(100000, HttpReply::Ending::Close));
        PutDownloadRecord(path, 2, Size);
        CDownloadRun run(server.Url("/file"), path);
        CHECK(run.Wait());
        CHECK(run.Restarts() == 4);
        CHECK(run.Status().ThreadsUsed == 2);
        CHECK_FALSE(run.Download().ForcedSingle());
        CHECK(MessagesOf(run.Status().hException.Get(), server.Url("/file"), path)
                  .find("File size error - no more bytes to read, "
                        "but expected 50000 more bytes") != std::string::npos);
    }
    // Single-stream mode forced by a 416 before the size is known: a large file then doesn't start over
    // again.
    {
        constexpr std::uint32_t large = 20971521;
        const std::wstring path = folder.Path(L"forced");
        CFaultServer server(First(1, Always(Status("416 Range Not Satisfiable")),
                                  [](const HttpRequest& request) { return FileReply(request, large); }));
        PutDownloadRecord(path, 1, 0);
        PutStreamRecord(path, 0, Block, 0, 1);
        WriteBytes(path + L".cache", Pattern(0, Block));
        CDownloadRun run(server.Url("/file"), path);
        CHECK(run.Wait());
        CHECK(run.Status().Finished);
        CHECK(run.Restarts() == 1);
        CHECK(run.Download().ForcedSingle());
        CHECK(RangesOf(server.Requests()) == "65536- -");
        CHECK(IsPatternFile(path, large));
    }
}
