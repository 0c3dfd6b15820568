// The decisions of a download, as functions of values.
#include "Ls/System/Net/MultiStreamDownload/DownloadStatus.h"
#include "Ls/System/Net/MultiStreamDownload/RangeSplit.h"
#include "Ls/System/Net/MultiStreamDownload/ResponseRules.h"
#include "Ls/System/Net/MultiStreamDownload/ResumeRules.h"
#include "Ls/System/Net/MultiStreamDownload/RetryRules.h"

#include <doctest/doctest.h>

#include <string>
#include <vector>

using namespace LS::System::Net::MultiStreamDownload;

TEST_CASE("A file is split into ranges without gap or overlap")
{
    const struct
    {
        std::uint32_t Size, Threads;
        std::vector<StreamRange> Ranges;
    } rows[] = {
        {0, 1, {{0, UnknownEnd}}},
        {1, 1, {{0, 0}}},
        {10, 2, {{0, 4}, {5, 9}}},
        {11, 2, {{0, 4}, {5, 10}}},
        {0x7FFFFFFF, 2, {{0, 0x3FFFFFFE}, {0x3FFFFFFF, 0x7FFFFFFE}}},
        {0x80000000, 1, {{0, 0x7FFFFFFF}}},
        {0xFFFFFFFF, 1, {{0, 0xFFFFFFFE}}},
        // The size divides as a signed number: such ranges are never adopted.
        {0xC0000000, 2, {{0, 0xDFFFFFFF}, {0xE0000000, 0xBFFFFFFF}}},
    };
    for (const auto& row : rows)
    {
        for (std::uint32_t i = 0; i < row.Threads; ++i)
        {
            CAPTURE(row.Size);
            CAPTURE(i);
            CHECK(SplitRange(row.Size, row.Threads, i).Start == row.Ranges[i].Start);
            CHECK(SplitRange(row.Size, row.Threads, i).End == row.Ranges[i].End);
        }
    }
}

TEST_CASE("Percent never exceeds 100 and is 0 for an unknown size")
{
    CHECK(PercentOf(0, 0) == 0.0F);
    CHECK(PercentOf(5, 0) == 0.0F);
    CHECK(PercentOf(1, 8) == 12.5F);
    CHECK(PercentOf(0xFFFFFFFF, 0xFFFFFFFF) == 100.0F);
    CHECK(PercentOf(9, 8) == 100.0F);
}

TEST_CASE("Numbers of headers are decimal, 32-bit and nothing else")
{
    using Kind = HeaderNumber::Kind;
    const struct
    {
        const char* Text;
        Kind Is;
        std::uint32_t Value;
    } rows[] = {
        {"0", Kind::Value, 0},
        {" 17\t", Kind::Value, 17},
        {"4294967295", Kind::Value, 4294967295},
        {"4294967296", Kind::TooLarge, 0},
        {"18446744073709551616", Kind::TooLarge, 0},
        {"99999999999999999999999999", Kind::TooLarge, 0},
        {"", Kind::None, 0},
        {" ", Kind::None, 0},
        {"*", Kind::None, 0},
        {"-1", Kind::None, 0},
        {"+1", Kind::None, 0},
        {"12a", Kind::None, 0},
        {"1 2", Kind::None, 0},
        {"0x10", Kind::None, 0},
        {"10, 10", Kind::None, 0},
    };
    for (const auto& row : rows)
    {
        CAPTURE(row.Text);
        CHECK(ParseHeaderNumber(row.Text).Is == row.Is);
        CHECK(ParseHeaderNumber(row.Text).Value == row.Value);
    }
    CHECK(TotalOfContentRange("bytes 0-4/ 10 ") == "10");
    CHECK(TotalOfContentRange("bytes 0-4/*") == "*");
    CHECK(TotalOfContentRange("bytes 0-4/") == "");
    CHECK_FALSE(TotalOfContentRange("bytes 0-4"));
    CHECK_FALSE(TotalOfContentRange(""));
}

namespace
{
/// What stands in every message, for the URL "U" and the header lines "HH".
const std::string About = "URL=U\r\nHTTP Response Header:HH";

struct Judged
{
    const char* Name;
    std::uint32_t Status;
    bool Single;
    std::optional<std::string> Length, Range, Accept;
    std::uint32_t Offset, End, Size;
    // Expected.
    std::string Restart, Failure;
    bool Retryable;
    std::uint32_t NewOffset, NewEnd, NewSize;
};
const std::nullopt_t None = std::nullopt;
const std::string Expected200 =
    "HTTP status is 200, when 206 Partial Content was expected (OutputFileSize is "
    "Known: in multi-stream mode)  " +
    About;
const std::string TooLarge =
    "File is too large:  4 GiB or more can't be downloaded.  Size=4294967296 " + About;
const std::string NoRanges = "Server doesn't support ranges.  " + About;

std::string Unexpected(int status)
{
    return "HTTP status is unexpected (expected 206 or 200)  status=" + std::to_string(status) + "  " + About;
}
std::string WrongRange(const std::string& got)
{
    return "Returned Content-Range is wrong.  Got: " + got + "     Expected: bytes 5-9   " + About;
}
std::string WrongTotal(const std::string& got)
{
    return "Returned file size in Content-Range is wrong.  Got: " + got + "     Expected: 10   " + About;
}
} // namespace

TEST_CASE("A status and its headers decide what becomes of an answer")
{
    const std::uint32_t all = UnknownEnd;
    const Judged rows[] = {
        {"whole, size learnt", 200, true, "10", None, None, 0, all, 0, "", "", false, 0, 9, 10},
        {"whole, no size", 200, true, None, None, None, 0, all, 0, "", "", false, 0, all, 0},
        {"whole, size no number", 200, true, "ten", None, None, 0, all, 0, "", "", false, 0, all, 0},
        {"whole of nothing", 200, true, "0", None, None, 0, all, 0, "", "", false, 0, all, 0},
        {"whole although asked for a part", 200, true, "10", None, None, 5, 9, 10, "", "", false, 0, 9, 10},
        {"whole, another size", 200, true, "12", None, None, 0, 9, 10, "", "", false, 0, 11, 12},
        {"whole, largest", 200, true, "4294967295", None, None, 0, all, 0, "", "", false, 0, 0xFFFFFFFE,
         0xFFFFFFFF},
        {"whole, too large", 200, true, "4294967296", None, None, 0, all, 0, "", TooLarge, false, 0, all, 0},
        {"whole for one of two", 200, false, "10", None, None, 5, 9, 10, Expected200, Expected200, false, 5,
         9, 10},
        {"part, single", 206, true, "5", "bytes 5-9/10", None, 5, all, 0, "", "", false, 5, 9, 10},
        {"part, single, total of *", 206, true, "5", "bytes 5-9/*", None, 5, all, 0, "", "", false, 5, all,
         0},
        {"part, single, known, total of *", 206, true, "5", "bytes 5-9/*", None, 5, 9, 10, "", "", false, 5,
         9, 10},
        {"part, single, no slash", 206, true, "5", "bytes 5-9", None, 5, all, 0, "", "", false, 5, 4, 5},
        {"part, single, no range", 206, true, "5", None, None, 5, all, 0, "", "", false, 5, 4, 5},
        {"part, single, nothing", 206, true, None, None, None, 5, all, 0, "", "", false, 5, all, 0},
        {"part, single, too large", 206, true, "5", "bytes 5-9/4294967296", None, 5, all, 0, "", TooLarge,
         false, 5, all, 0},
        {"part of two", 206, false, "5", "bytes 5-9/10", None, 5, 9, 10, "", "", false, 5, 9, 10},
        {"only the beginning of the range is compared", 206, false, "5", "bytes 5-99/10", None, 5, 9, 10, "",
         "", false, 5, 9, 10},
        {"part of two, no range", 206, false, "5", None, None, 5, 9, 10, "", WrongRange(""), true, 5, 9, 10},
        {"part of two, wrong start", 206, false, "5", "bytes 4-9/10", None, 5, 9, 10, "",
         WrongRange("bytes 4-9/10"), true, 5, 9, 10},
        {"part of two, wrong end", 206, false, "5", "bytes 5-8/10", None, 5, 9, 10, "",
         WrongRange("bytes 5-8/10"), true, 5, 9, 10},
        {"part of two, wrong total", 206, false, "5", "bytes 5-9/11", None, 5, 9, 10, "", WrongTotal("11"),
         true, 5, 9, 10},
        {"part of two, total of *", 206, false, "5", "bytes 5-9/*", None, 5, 9, 10, "", WrongTotal("*"), true,
         5, 9, 10},
        {"part of two, no total", 206, false, "5", "bytes 5-9", None, 5, 9, 10, "", WrongTotal(""), true, 5,
         9, 10},
        {"behind the end", 416, true, None, None, None, 5, all, 0, "HTTP status is 416.  " + About,
         "HTTP status is bad:416 " + About, false, 5, all, 0},
        {"unauthorised", 401, true, None, None, None, 0, all, 0, "",
         "HTTP status is 401:  refresh auth needed.  " + About, true, 0, all, 0},
        {"forbidden", 403, false, None, None, None, 5, 9, 10, "",
         "HTTP status is 403:  refresh auth needed.  " + About, true, 5, 9, 10},
        {"missing", 404, true, None, None, None, 0, all, 0, "", "HTTP status is bad:404 " + About, true, 0,
         all, 0},
        {"server error", 503, false, None, None, None, 5, 9, 10, "", "HTTP status is bad:503 " + About, true,
         5, 9, 10},
        {"no status of HTTP", 999, true, None, None, None, 0, all, 0, "", "HTTP status is bad:999 " + About,
         true, 0, all, 0},
        {"redirect that wasn't followed", 308, true, None, None, "none", 0, all, 0, "", Unexpected(308), true,
         0, all, 0},
        {"other success, ranges refused", 203, false, None, None, "none", 5, 9, 10, NoRanges, Unexpected(203),
         true, 5, 9, 10},
        {"other success, ranges served", 203, false, None, None, "bytes", 5, 9, 10, "", Unexpected(203), true,
         5, 9, 10},
        {"informational", 102, false, None, None, None, 5, 9, 10, "", Unexpected(102), true, 5, 9, 10},
    };
    for (const Judged& row : rows)
    {
        CAPTURE(row.Name);
        Response response;
        response.Status = row.Status;
        response.SingleStream = row.Single;
        response.ContentLength = row.Length;
        response.ContentRange = row.Range;
        response.AcceptRanges = row.Accept;
        response.ResumeOffset = row.Offset;
        response.End = row.End;
        response.FileSize = row.Size;
        response.Url = "U";
        response.RawHeader = "HH";
        const Verdict verdict = JudgeResponse(response);
        CHECK(verdict.RestartMessage == row.Restart);
        CHECK(verdict.FailureMessage == row.Failure);
        CHECK(verdict.Retryable == row.Retryable);
        CHECK(verdict.AuthRefresh == (row.Status == 401 || row.Status == 403));
        CHECK(verdict.ResumeOffset == row.NewOffset);
        CHECK(verdict.End == row.NewEnd);
        CHECK(verdict.FileSize == row.NewSize);
    }
    CHECK(HeaderForMessage("") == "\r\nHTTP Response Header:--blank--");
}

TEST_CASE("A single stream asks for all, one of two for its range")
{
    CHECK(RequestHeaders(true, 0, 9) == "Connection: Keep-Alive\r\n");
    CHECK(RequestHeaders(true, 5, 9) == "Connection: Keep-Alive\r\nRange: bytes=5-\r\n");
    CHECK(RequestHeaders(false, 0, 4) == "Connection: Keep-Alive\r\nRange: bytes=0-4\r\n");
    CHECK(RequestHeaders(false, 0x80000000, 0xFFFFFFFE) ==
          "Connection: Keep-Alive\r\nRange: bytes=2147483648-4294967294\r\n");
}

TEST_CASE("A record of the download is adopted only when its streams can be served")
{
    const struct
    {
        std::uint32_t Threads, Size;
        bool Adopted;
    } rows[] = {{1, 0, true},           {1, 10, true},          {1, 0xFFFFFFFF, true}, {2, 10, true},
                {2, 2, true},           {2, 1, false},          {2, 0, false},         {2, 0x7FFFFFFF, true},
                {2, 0x80000000, false}, {2, 0xFFFFFFFF, false}, {0, 10, false},        {3, 10, false},
                {0xFFFFFFFF, 10, false}};
    for (const auto& row : rows)
    {
        CAPTURE(row.Threads);
        CAPTURE(row.Size);
        DownloadRecord record;
        record.ThreadsUsed = row.Threads;
        record.DownloadSize = row.Size;
        CHECK(IsAdoptable(record) == row.Adopted);
    }
}

TEST_CASE("A record of a stream is used only for its own range and with its bytes on disk")
{
    const StreamSituation known = {100, 199, true, 2, 1000};
    const StreamSituation unknown = {0, UnknownEnd, false, 1, 1000};
    const StreamSituation largest = {0, 0xFFFFFFFE, true, 1, 0xFFFFFFFF};
    const struct
    {
        const char* Name;
        StreamSituation Stream;
        std::uint32_t Threads, Offset;
        bool Used;
    } rows[] = {
        {"at the start", known, 2, 100, true},
        {"below the start", known, 2, 99, false},
        {"complete", known, 2, 200, true},
        {"behind the end", known, 2, 201, false},
        {"of a single stream", known, 1, 150, false},
        {"unknown size", unknown, 1, 900, true},
        {"more than the cache file holds", unknown, 1, 1001, false},
        {"all that the cache file holds", unknown, 1, 1000, true},
        {"the largest file, complete", largest, 1, 0xFFFFFFFF, true},
        {"no cache file", {0, 9, true, 1, 0}, 1, 5, false},
    };
    for (const auto& row : rows)
    {
        CAPTURE(row.Name);
        StreamRecord record;
        record.ThreadsUsed = row.Threads;
        record.Offset = row.Offset;
        CHECK(IsUsable(record, row.Stream) == row.Used);
    }
}

TEST_CASE("A changed file is told from an unchanged one and from an unknown one")
{
    const std::string both = "Detected file change(s) in: modified date size ";
    const std::string date = "Detected file change(s) in: modified date ";
    const std::string size = "Detected file change(s) in:  size ";
    const std::string longDate(80, 'd');
    const struct
    {
        std::string RecordDate, Date;
        std::uint32_t RecordSize, Size, Offset;
        std::string Message;
    } rows[] = {
        {"A", "A", 10, 10, 5, ""},
        {"A", "B", 10, 10, 5, date},
        {"A", "A", 10, 11, 5, size},
        {"A", "B", 10, 11, 5, both},
        {"UNKNOWN", "B", 10, 10, 5, ""},
        {"A", "UNKNOWN", 10, 10, 5, ""},
        {"A", "A", 0, 10, 5, ""},
        {"A", "A", 10, 0, 5, ""},
        {"A", "A", 0, 10, 11, size},
        {"A", "A", 0, 10, 10, ""},
        {"", "A", 10, 10, 5, date},
        {longDate, longDate, 10, 10, 5, ""},
        {longDate, std::string(48, 'd'), 10, 10, 5, date},
    };
    for (const auto& row : rows)
    {
        CAPTURE(row.RecordDate);
        CAPTURE(row.Date);
        CAPTURE(row.Size);
        StreamRecord record;
        record.SetLastModified(row.RecordDate);
        record.DownloadSize = row.RecordSize;
        record.Offset = row.Offset;
        CHECK(FileChangeMessage(record, row.Date, row.Size) == row.Message);
    }
}

TEST_CASE("Six attempts with pauses of one to five seconds, and what gives them back")
{
    std::vector<std::uint64_t> pauses;
    for (std::uint64_t left = FullBudget(5); left > 1; --left)
        pauses.push_back(PauseMs(5, left));
    CHECK(pauses == std::vector<std::uint64_t>{1000, 2000, 3000, 4000, 5000});
    CHECK(FullBudget(0) == 1);
    CHECK(FullBudget(UINT32_MAX) == 0x100000000);
    CHECK(PauseMs(UINT32_MAX, FullBudget(UINT32_MAX)) == 1000);

    CHECK(RenewsBudget({true, false, 100000}));
    CHECK_FALSE(RenewsBudget({false, false, 0}));
    CHECK(RenewsBudget({false, true, 1999}));
    CHECK_FALSE(RenewsBudget({false, true, 2000}));
}
