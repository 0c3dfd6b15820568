#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// What a stream makes of the head of a server's answer, as functions of values.
namespace LS::System::Net::MultiStreamDownload
{
/// A number that a header spells. Positions and sizes are 32-bit: a file of 4 GiB or more can't be fetched.
struct HeaderNumber
{
    enum class Kind
    {
        None, ///< not a decimal number
        Value,
        TooLarge ///< above 32 bits
    };
    Kind Is = Kind::None;
    std::uint32_t Value = 0;
};

/// Blanks around the digits are allowed, nothing else.
HeaderNumber ParseHeaderNumber(std::string_view text) noexcept;

/// Position of the first byte that a Content-Range ("bytes FIRST-LAST/TOTAL") names.
HeaderNumber FirstOfContentRange(std::string_view contentRange) noexcept;

/// What stands behind the "/" of a Content-Range, without blanks; nothing when there is no "/".
std::optional<std::string_view> TotalOfContentRange(std::string_view contentRange) noexcept;

/// The answer, and the stream as it asked.
struct Response
{
    std::uint32_t Status = 0;
    std::optional<std::string> ContentLength;
    std::optional<std::string> ContentRange;
    std::optional<std::string> AcceptRanges;
    /// All header lines, for messages.
    std::string RawHeader;

    std::string Url;
    bool SingleStream = true;
    std::uint32_t ResumeOffset = 0;
    std::uint32_t End = 0;
    /// 0 = unknown.
    std::uint32_t FileSize = 0;
};

/// What follows from it, in this order: ask for a single-stream restart when RestartMessage isn't empty; if
/// none is granted or none was wanted, throw FailureMessage when it isn't empty; else read the body with
/// the values below.
struct Verdict
{
    std::string RestartMessage;
    std::string FailureMessage;
    /// The failure may pass: try again.
    bool Retryable = false;
    bool AuthRefresh = false;

    std::uint32_t ResumeOffset = 0;
    std::uint32_t End = 0;
    std::uint32_t FileSize = 0;
};

Verdict JudgeResponse(const Response& response);

/// "\r\nHTTP Response Header:" and the header lines, or "--blank--" for none: the end of most messages.
std::string HeaderForMessage(std::string_view rawHeader);

/// The header lines of a stream's request: a single stream asks for the whole file, or for all from
/// resumeOffset on; one of several names both ends.
std::string RequestHeaders(bool singleStream, std::uint32_t resumeOffset, std::uint32_t end);
} // namespace LS::System::Net::MultiStreamDownload
