#include "Ls/System/Net/MultiStreamDownload/RangeSplit.h"

namespace LS::System::Net::MultiStreamDownload
{
StreamRange SplitRange(std::uint32_t fileSize, std::uint32_t threads, std::uint32_t index) noexcept
{
    const auto chunk =
        static_cast<std::uint32_t>(static_cast<std::int32_t>(fileSize) / static_cast<std::int32_t>(threads));
    const bool last = index == threads - 1;
    const std::uint32_t length = last ? fileSize - threads * chunk + chunk : chunk;
    StreamRange range;
    range.Start = chunk * index;
    range.End = range.Start + length - 1;
    return range;
}

bool RangesFit(std::uint32_t fileSize, std::uint32_t threads) noexcept
{
    return threads == 1 || (fileSize >= threads && fileSize <= INT32_MAX);
}
} // namespace LS::System::Net::MultiStreamDownload
