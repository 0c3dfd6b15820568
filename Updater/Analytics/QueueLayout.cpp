#include "Updater/Analytics/QueueLayout.h"

#include "Ls/System/Util/Crc32.h"

#include <algorithm>

namespace
{
constexpr std::uint32_t FormatVersion = 1;

constexpr std::size_t HeaderChecksumOffset = 16;

constexpr std::size_t HeaderSizeOffset = 4;
constexpr std::size_t SequenceOffset = 12;
constexpr std::size_t MaskOffset = 16;

// UTF-8 has no bytes from F8 on, so a payload masked with one of them holds no zero byte, and the zeros of a
// record's header can't be mistaken for payload: after damage the next record is found again. The low bits
// follow the sequence number so that equal query strings don't look equal.
constexpr std::uint32_t FirstMask = 0xF8;
constexpr std::uint32_t MaskVariants = 8;

std::uint32_t Load(std::string_view bytes, std::size_t offset) noexcept
{
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(bytes[offset + i]);
    return value;
}

void Store(std::string& bytes, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i, value >>= 8)
        bytes += static_cast<char>(value & 0xFF);
}

std::string Masked(std::string_view payload, char mask)
{
    std::string result(payload);
    for (char& byte : result)
        byte = static_cast<char>(byte ^ mask);
    return result;
}

bool IsSendable(std::string_view query) noexcept
{
    return !query.empty() && query.size() <= MaxQueryLength &&
           std::all_of(query.begin(), query.end(), [](char c) {
               const auto byte = static_cast<unsigned char>(c);
               return byte > 0x20 && byte != 0x7F && byte != '#';
           });
}
} // namespace

std::string EncodeQueueHeader(const QueueHeader& header)
{
    std::string bytes;
    Store(bytes, FormatVersion);
    Store(bytes, header.RecordsAppended);
    Store(bytes, header.SentBytes);
    Store(bytes, header.NextSequence);
    Store(bytes, LS::System::Util::Crc32(bytes.data(), bytes.size()));
    return bytes;
}

std::optional<QueueHeader> DecodeQueueHeader(std::string_view bytes)
{
    if (bytes.size() < QueueHeaderSize || Load(bytes, 0) != FormatVersion ||
        Load(bytes, HeaderChecksumOffset) != LS::System::Util::Crc32(bytes.data(), HeaderChecksumOffset))
        return std::nullopt;
    return QueueHeader{Load(bytes, 4), Load(bytes, 8), Load(bytes, 12)};
}

std::string EncodeQueueRecord(std::string_view query, std::uint32_t sequence)
{
    std::string payload(query);
    payload += '\0';
    const std::uint32_t mask = FirstMask | sequence % MaskVariants;

    std::string bytes;
    bytes.reserve(QueueRecordHeaderSize + payload.size());
    Store(bytes, static_cast<std::uint32_t>(QueueRecordHeaderSize + payload.size()));
    Store(bytes, QueueRecordHeaderSize);
    Store(bytes, LS::System::Util::Crc32(payload.data(), payload.size()));
    Store(bytes, sequence);
    Store(bytes, mask);
    bytes += Masked(payload, static_cast<char>(mask));
    return bytes;
}

bool LooksLikeQueueRecord(std::string_view bytes, std::uint64_t available) noexcept
{
    return bytes.size() >= QueueRecordHeaderSize && Load(bytes, HeaderSizeOffset) == QueueRecordHeaderSize &&
           Load(bytes, MaskOffset) <= 0xFF && Load(bytes, 0) > QueueRecordHeaderSize &&
           Load(bytes, 0) <= available;
}

QueueRecord DecodeQueueRecord(std::string_view bytes, std::uint64_t available)
{
    QueueRecord record;
    if (!LooksLikeQueueRecord(bytes, available))
        return record;
    record.Key = {Load(bytes, 0), Load(bytes, QueueRecordChecksumOffset), Load(bytes, SequenceOffset)};
    if (record.Key.Size > MaxSendableRecordSize)
    {
        record.State = QueueRecordState::Unsendable;
        return record;
    }
    if (record.Key.Size > bytes.size())
        return record;

    std::string payload = Masked(bytes.substr(QueueRecordHeaderSize, record.Key.Size - QueueRecordHeaderSize),
                                 bytes[MaskOffset]);
    const std::uint32_t checksum = LS::System::Util::Crc32(payload.data(), payload.size());
    if (record.Key.Checksum == ~checksum)
    {
        record.State = QueueRecordState::Sent;
        return record;
    }
    if (record.Key.Checksum != checksum || payload.back() != '\0')
        return record;

    payload.pop_back();
    if (IsSendable(payload))
    {
        record.State = QueueRecordState::Unsent;
        record.Query = std::move(payload);
    }
    else
        record.State = QueueRecordState::Unsendable;
    return record;
}

std::string QueueSentMark(const QueueRecordKey& key)
{
    std::string bytes;
    Store(bytes, ~key.Checksum);
    return bytes;
}

std::optional<std::size_t> FindQueueRecord(std::string_view bytes)
{
    for (std::size_t i = 0; i + QueueRecordHeaderSize < bytes.size(); ++i)
    {
        if (bytes[i + HeaderSizeOffset] != static_cast<char>(QueueRecordHeaderSize))
            continue;
        const std::string_view rest = bytes.substr(i);
        if (!LooksLikeQueueRecord(rest, rest.size()) || Load(rest, 0) > MaxSendableRecordSize ||
            Load(rest, MaskOffset) < FirstMask)
            continue;
        // A zero byte can't stand in a payload. Seeing that first keeps the search linear, even in a file
        // made of nothing but headers.
        const std::size_t size = Load(rest, 0);
        if (rest.substr(QueueRecordHeaderSize, size - QueueRecordHeaderSize).find('\0') !=
            std::string_view::npos)
            continue;
        if (DecodeQueueRecord(rest, rest.size()).State != QueueRecordState::Damaged)
            return i;
    }
    return std::nullopt;
}
