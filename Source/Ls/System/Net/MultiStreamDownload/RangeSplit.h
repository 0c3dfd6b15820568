#pragma once

#include <cstdint>

namespace LS::System::Net::MultiStreamDownload
{
/// Last byte of a range whose end isn't known.
inline constexpr std::uint32_t UnknownEnd = 0xFFFFFFFFu;

/// First and last byte of one stream.
struct StreamRange
{
    std::uint32_t Start = 0;
    std::uint32_t End = UnknownEnd;
};

/// The range of stream index (0-based) of threads streams; the last one takes the remainder. A size of 0
/// (unknown) gives one stream everything from 0 on. The size is divided as a signed number, so two ranges of
/// 2 GiB or more don't fit the file: see RangesFit.
StreamRange SplitRange(std::uint32_t fileSize, std::uint32_t threads, std::uint32_t index) noexcept;

/// True when every stream of such a download has at least one byte to fetch and all of them lie in the file.
bool RangesFit(std::uint32_t fileSize, std::uint32_t threads) noexcept;
} // namespace LS::System::Net::MultiStreamDownload
