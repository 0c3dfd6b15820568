#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Byte layout of the analytics queue file: a header, then records back to back; all integers 32-bit
// little-endian. Functions of values, without files.

inline constexpr std::size_t QueueHeaderSize = 20;
inline constexpr std::size_t QueueRecordHeaderSize = 20;

/// A URL may have 2083 characters; a longer query string is never sent.
inline constexpr std::size_t MaxQueryLength = 2083;
/// Header, query string and its terminating zero.
inline constexpr std::size_t MaxSendableRecordSize = QueueRecordHeaderSize + MaxQueryLength + 1;

struct QueueHeader
{
    std::uint32_t RecordsAppended = 0;
    /// Bytes behind the header that belong to records already sent or dropped: the first record that may be
    /// unsent begins after them. Removing a record is then a matter of a few bytes, and the file is moved
    /// together only now and then. Appending leaves it alone.
    std::uint32_t SentBytes = 0;
    std::uint32_t NextSequence = 0;
};

/// QueueHeaderSize bytes.
std::string EncodeQueueHeader(const QueueHeader& header);
/// Nothing when bytes are too few, of another version or fail their checksum.
std::optional<QueueHeader> DecodeQueueHeader(std::string_view bytes);

std::string EncodeQueueRecord(std::string_view query, std::uint32_t sequence);

/// Tells a record from its neighbours.
struct QueueRecordKey
{
    std::uint32_t Size = 0;
    std::uint32_t Checksum = 0;
    std::uint32_t Sequence = 0;

    bool operator==(const QueueRecordKey&) const = default;
};

enum class QueueRecordState
{
    Unsent,     ///< whole, to be sent
    Sent,       ///< whole, marked as sent
    Unsendable, ///< can't be part of a URL: too long, empty, or holds blanks or control characters
    Damaged     ///< not a record, cut short, or fails its checksum
};

struct QueueRecord
{
    QueueRecordState State = QueueRecordState::Damaged;
    QueueRecordKey Key;
    /// Only of an unsent record.
    std::string Query;
};

/// What stands at the beginning of bytes. available is how many bytes the file has from there on; bytes holds
/// all of them or at least MaxSendableRecordSize. A longer record isn't read, so its checksum isn't checked.
QueueRecord DecodeQueueRecord(std::string_view bytes, std::uint64_t available);

/// Checksum word that marks a record as sent: no reader takes the record for a good one any more, and this
/// one still sees that it is whole and where the next begins.
inline constexpr std::size_t QueueRecordChecksumOffset = 8;
std::string QueueSentMark(const QueueRecordKey& key);

/// True where a record's header may stand, by the fields that have fixed values.
bool LooksLikeQueueRecord(std::string_view bytes, std::uint64_t available) noexcept;

/// The first position where a record of ours stands that is whole in these bytes and not too long; for going
/// on behind damage.
std::optional<std::size_t> FindQueueRecord(std::string_view bytes);
