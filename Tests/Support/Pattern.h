#pragma once

#include "Tests/Support/FaultServer.h"

namespace Tests
{
/// The bytes of a pattern file from here on.
inline std::string Pattern(std::uint64_t begin, std::size_t size)
{
    std::string bytes(size, '\0');
    FillPattern(begin, bytes.data(), size);
    return bytes;
}

/// The date that FileReply gives a pattern file by default.
inline const std::string PatternDate = "Sat, 14 Nov 2026 05:56:03 GMT";
} // namespace Tests
