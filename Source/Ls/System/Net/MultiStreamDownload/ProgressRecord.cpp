#include "Ls/System/Net/MultiStreamDownload/ProgressRecord.h"

#include "Ls/System/Util/Crc32.h"

#include <algorithm>
#include <cstring>

namespace LS::System::Net::MultiStreamDownload
{
namespace
{
constexpr std::size_t CheckSize = 4;
/// The date begins behind five numbers; two zero bytes follow it.
constexpr std::size_t DateOffset = 20;

void PutNumber(std::uint8_t* to, std::uint32_t number) noexcept
{
    for (int i = 0; i < 4; ++i)
        to[i] = static_cast<std::uint8_t>(number >> (8 * i));
}

std::uint32_t GetNumber(const std::uint8_t* from) noexcept
{
    return from[0] | from[1] << 8 | from[2] << 16 | static_cast<std::uint32_t>(from[3]) << 24;
}

template <std::size_t Size>
std::uint32_t CheckOf(const std::array<std::uint8_t, Size>& bytes) noexcept
{
    return Util::Crc32(bytes.data(), Size - CheckSize);
}

template <std::size_t Size>
bool CheckHolds(const std::array<std::uint8_t, Size>& bytes) noexcept
{
    return GetNumber(bytes.data() + Size - CheckSize) == CheckOf(bytes);
}
} // namespace

std::string_view FittingDate(std::string_view text) noexcept
{
    return text.substr(0, StreamRecord::DateSize - 1);
}

void StreamRecord::SetLastModified(std::string_view text) noexcept
{
    LastModified.fill('\0');
    text = FittingDate(text);
    std::copy(text.begin(), text.end(), LastModified.begin());
}

std::string_view StreamRecord::LastModifiedText() const noexcept
{
    return {LastModified.data(), ::strnlen(LastModified.data(), LastModified.size())};
}

DownloadRecordBytes Encode(const DownloadRecord& record) noexcept
{
    DownloadRecordBytes bytes{};
    PutNumber(&bytes[0], record.Version);
    PutNumber(&bytes[4], record.DownloadSize);
    PutNumber(&bytes[8], record.ThreadsUsed);
    PutNumber(&bytes[12], CheckOf(bytes));
    return bytes;
}

StreamRecordBytes Encode(const StreamRecord& record) noexcept
{
    StreamRecordBytes bytes{};
    PutNumber(&bytes[0], record.Version);
    PutNumber(&bytes[4], record.StreamIndex);
    PutNumber(&bytes[8], record.Offset);
    PutNumber(&bytes[12], record.DownloadSize);
    PutNumber(&bytes[16], record.ThreadsUsed);
    std::memcpy(&bytes[DateOffset], record.LastModified.data(), StreamRecord::DateSize);
    PutNumber(&bytes[72], CheckOf(bytes));
    return bytes;
}

std::optional<DownloadRecord> Decode(const DownloadRecordBytes& bytes) noexcept
{
    if (!CheckHolds(bytes))
        return std::nullopt;
    DownloadRecord record;
    record.Version = GetNumber(&bytes[0]);
    record.DownloadSize = GetNumber(&bytes[4]);
    record.ThreadsUsed = GetNumber(&bytes[8]);
    return record;
}

std::optional<StreamRecord> Decode(const StreamRecordBytes& bytes) noexcept
{
    if (!CheckHolds(bytes))
        return std::nullopt;
    StreamRecord record;
    record.Version = GetNumber(&bytes[0]);
    record.StreamIndex = GetNumber(&bytes[4]);
    record.Offset = GetNumber(&bytes[8]);
    record.DownloadSize = GetNumber(&bytes[12]);
    record.ThreadsUsed = GetNumber(&bytes[16]);
    std::memcpy(record.LastModified.data(), &bytes[DateOffset], StreamRecord::DateSize);
    return record;
}
} // namespace LS::System::Net::MultiStreamDownload
