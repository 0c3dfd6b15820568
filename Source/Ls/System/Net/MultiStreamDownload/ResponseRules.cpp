#include "Ls/System/Net/MultiStreamDownload/ResponseRules.h"

#include "Ls/System/Net/HeaderText.h"

#include <charconv>

namespace LS::System::Net::MultiStreamDownload
{
namespace
{
std::string TooLarge(const Response& response, std::string_view size)
{
    return "File is too large:  4 GiB or more can't be downloaded.  Size=" + std::string(size) +
           " URL=" + response.Url + HeaderForMessage(response.RawHeader);
}

/// Takes a size over, unless the header doesn't spell one; a size that is too large becomes the failure (no
/// retry can mend it).
void TakeSize(std::string_view text, const Response& response, Verdict& verdict)
{
    const HeaderNumber number = ParseHeaderNumber(text);
    if (number.Is == HeaderNumber::Kind::TooLarge)
        verdict.FailureMessage = TooLarge(response, text);
    else if (number.Is == HeaderNumber::Kind::Value)
        verdict.FileSize = number.Value;
}

void JudgeWhole(const Response& response, Verdict& verdict)
{
    verdict.ResumeOffset = 0;
    if (response.ContentLength)
        TakeSize(*response.ContentLength, response, verdict);
    verdict.End = verdict.FileSize - 1;
}

void RefuseRange(const std::string& range, const std::string& expected, const std::string& about,
                 Verdict& verdict)
{
    verdict.Retryable = true;
    verdict.FailureMessage =
        "Returned Content-Range is wrong.  Got: " + range + "     Expected: " + expected + "   " + about;
}

/// A body that begins elsewhere than asked isn't stored, as little as the single request stores it: the file
/// would get a hole, or bytes in the wrong place. A range that can't be read says nothing.
///
/// A total of "*" says as little as a missing header, but the Content-Length beside it is that of the part:
/// then the size stays what it was.
void JudgePartOfSingle(const Response& response, const std::string& about, Verdict& verdict)
{
    const std::string range = response.ContentRange.value_or("");
    const HeaderNumber first = FirstOfContentRange(range);
    if (first.Is != HeaderNumber::Kind::None &&
        (first.Is == HeaderNumber::Kind::TooLarge || first.Value != response.ResumeOffset))
    {
        RefuseRange(range, "bytes " + std::to_string(response.ResumeOffset) + "-", about, verdict);
        return;
    }
    if (const auto total = TotalOfContentRange(range))
        TakeSize(*total, response, verdict);
    else if (response.ContentLength)
        TakeSize(*response.ContentLength, response, verdict);
    verdict.End = verdict.FileSize - 1;
}

void JudgePartOfMany(const Response& response, const std::string& about, Verdict& verdict)
{
    const std::string range = response.ContentRange.value_or("");
    const std::string expected =
        "bytes " + std::to_string(response.ResumeOffset) + "-" + std::to_string(response.End);
    // The header goes on with a slash and the total.
    if (!range.starts_with(expected))
    {
        RefuseRange(range, expected, about, verdict);
        return;
    }
    const std::string_view total = TotalOfContentRange(range).value_or("");
    const HeaderNumber number = ParseHeaderNumber(total);
    if (number.Is != HeaderNumber::Kind::Value || number.Value != response.FileSize)
    {
        verdict.Retryable = true;
        verdict.FailureMessage = "Returned file size in Content-Range is wrong.  Got: " + std::string(total) +
                                 "     Expected: " + std::to_string(response.FileSize) + "   " + about;
    }
}
} // namespace

HeaderNumber ParseHeaderNumber(std::string_view text) noexcept
{
    text = TrimBlanks(text);
    HeaderNumber number;
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || end != text.data() + text.size() || error == std::errc::invalid_argument)
        return number;
    if (error == std::errc::result_out_of_range || value > UINT32_MAX)
    {
        number.Is = HeaderNumber::Kind::TooLarge;
        return number;
    }
    number.Is = HeaderNumber::Kind::Value;
    number.Value = static_cast<std::uint32_t>(value);
    return number;
}

HeaderNumber FirstOfContentRange(std::string_view contentRange) noexcept
{
    const auto blank = contentRange.find(' ');
    const auto dash = contentRange.find('-');
    if (blank == std::string_view::npos || dash == std::string_view::npos || dash < blank)
        return {};
    return ParseHeaderNumber(contentRange.substr(blank, dash - blank));
}

std::optional<std::string_view> TotalOfContentRange(std::string_view contentRange) noexcept
{
    const auto slash = contentRange.find('/');
    if (slash == std::string_view::npos)
        return std::nullopt;
    return TrimBlanks(contentRange.substr(slash + 1));
}

Verdict JudgeResponse(const Response& response)
{
    Verdict verdict;
    verdict.ResumeOffset = response.ResumeOffset;
    verdict.End = response.End;
    verdict.FileSize = response.FileSize;

    const std::uint32_t status = response.Status;
    const std::string number = std::to_string(status);
    const std::string about = "URL=" + response.Url + HeaderForMessage(response.RawHeader);
    if (status == 401 || status == 403)
    {
        verdict.FailureMessage = "HTTP status is " + number + ":  refresh auth needed.  " + about;
        verdict.Retryable = true;
        verdict.AuthRefresh = true;
    }
    else if (status >= 400)
    {
        // Nothing lies behind the offset: only a start from nothing helps, not another attempt.
        if (status == 416)
            verdict.RestartMessage = "HTTP status is 416.  " + about;
        verdict.FailureMessage = "HTTP status is bad:" + number + " " + about;
        verdict.Retryable = status != 416;
    }
    else if (status == 200 && response.SingleStream)
        JudgeWhole(response, verdict);
    else if (status == 200)
    {
        verdict.RestartMessage =
            "HTTP status is 200, when 206 Partial Content was expected (OutputFileSize is Known: in "
            "multi-stream mode)  " +
            about;
        // Without a restart the body must not be taken: it begins elsewhere.
        verdict.FailureMessage = verdict.RestartMessage;
    }
    else if (status == 206 && response.SingleStream)
        JudgePartOfSingle(response, about, verdict);
    else if (status == 206)
        JudgePartOfMany(response, about, verdict);
    else
    {
        if (!response.SingleStream && response.AcceptRanges.value_or("").find("none") != std::string::npos)
            verdict.RestartMessage = "Server doesn't support ranges.  " + about;
        verdict.FailureMessage =
            "HTTP status is unexpected (expected 206 or 200)  status=" + number + "  " + about;
        verdict.Retryable = true;
    }
    return verdict;
}

std::string HeaderForMessage(std::string_view rawHeader)
{
    return "\r\nHTTP Response Header:" + std::string(rawHeader.empty() ? "--blank--" : rawHeader);
}

std::string RequestHeaders(bool singleStream, std::uint32_t resumeOffset, std::uint32_t end)
{
    std::string headers = "Connection: Keep-Alive\r\n";
    if (singleStream && resumeOffset == 0)
        return headers;
    headers += "Range: bytes=" + std::to_string(resumeOffset) + "-";
    if (!singleStream)
        headers += std::to_string(end);
    return headers + "\r\n";
}
} // namespace LS::System::Net::MultiStreamDownload
