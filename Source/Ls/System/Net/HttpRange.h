#pragma once

#include <cstdint>
#include <string>

namespace LS::System::Net
{
/// Content length of an answer that names none.
inline constexpr std::uint64_t UnknownLength = UINT64_MAX;

/// A request's byte range. Start and End are inclusive positions; -1 means absent. Only End set asks for the
/// last End bytes.
struct HttpRange
{
    std::string Unit = "bytes";
    std::int64_t Start = -1;
    std::int64_t End = -1;

    bool IsSet() const { return Start != -1 || End != -1; }
    /// Value of the "Range: " header ("bytes=0-99"), at most 999 characters; empty when nothing is set.
    std::string Text() const;
};
} // namespace LS::System::Net
