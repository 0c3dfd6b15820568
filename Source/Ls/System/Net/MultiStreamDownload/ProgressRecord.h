#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace LS::System::Net::MultiStreamDownload
{
/// Stands for the date of a file whose server names none.
inline constexpr std::string_view UnknownDate = "UNKNOWN";

/// The whole download's record: 16 bytes, little-endian, the last four a CRC-32 of the rest.
struct DownloadRecord
{
    static constexpr std::size_t Size = 16;

    std::uint32_t Version = 2;
    /// 0 = unknown.
    std::uint32_t DownloadSize = 0;
    std::uint32_t ThreadsUsed = 0;
};

/// One stream's record: 76 bytes, little-endian, the last four a CRC-32 of the rest.
struct StreamRecord
{
    static constexpr std::size_t Size = 76;
    static constexpr std::size_t DateSize = 50;

    std::uint32_t Version = 1;
    std::uint32_t StreamIndex = 0;
    /// Position in the file of the next byte to write: those before it, from the stream's start, are on disk.
    std::uint32_t Offset = 0;
    /// 0 = unknown.
    std::uint32_t DownloadSize = 0;
    std::uint32_t ThreadsUsed = 0;
    std::array<char, DateSize> LastModified{};

    /// Keeps as much of the text as FittingDate leaves.
    void SetLastModified(std::string_view text) noexcept;
    /// Up to the first zero byte, or the whole field.
    std::string_view LastModifiedText() const noexcept;
};

/// The part of a date text that a record holds: one byte of the field stays zero, so that the text has an end
/// for whoever reads the file. Dates are compared in this form.
std::string_view FittingDate(std::string_view text) noexcept;

using DownloadRecordBytes = std::array<std::uint8_t, DownloadRecord::Size>;
using StreamRecordBytes = std::array<std::uint8_t, StreamRecord::Size>;

DownloadRecordBytes Encode(const DownloadRecord& record) noexcept;
StreamRecordBytes Encode(const StreamRecord& record) noexcept;

/// Nothing when the check doesn't hold. The version isn't tested.
std::optional<DownloadRecord> Decode(const DownloadRecordBytes& bytes) noexcept;
std::optional<StreamRecord> Decode(const StreamRecordBytes& bytes) noexcept;
} // namespace LS::System::Net::MultiStreamDownload
