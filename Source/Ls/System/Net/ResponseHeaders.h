#pragma once

#include "Ls/System/Net/CookieList.h"
#include "Ls/System/Net/HttpRange.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace LS::System::Net
{
/// "Content-Range: bytes FIRST-LAST/TOTAL".
struct ContentRange
{
    std::uint64_t First = 0;
    std::uint64_t Last = 0;
    /// Nothing when the server doesn't tell it ("*").
    std::optional<std::uint64_t> Total;

    /// Nothing for another unit, for "bytes */TOTAL" and for numbers that contradict each other.
    static std::optional<ContentRange> Parse(std::string_view value);
};

/// What the transfer takes from an answer's header block.
struct ResponseHeaders
{
    /// 0 when the block has none.
    std::uint32_t StatusCode = 0;
    /// UnknownLength when it is missing, no number, given twice with different values, or overruled by a
    /// chunked body.
    std::uint64_t ContentLength = UnknownLength;
    std::optional<ContentRange> Range;
    std::string LastModified;
    std::string Location;

    /// Never fails: what isn't understood is passed over. The block is a status line and header lines,
    /// separated by CR LF. Cookies, if any, are stored into the list.
    static ResponseHeaders Parse(std::string_view block, CCookieList* cookies);
};
} // namespace LS::System::Net
