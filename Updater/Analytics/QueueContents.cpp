#include "Updater/Analytics/QueueContents.h"

#include <algorithm>
#include <utility>

namespace
{
/// No queue gets longer than this: 5 MiB unsent, as much sent, and one more record. What is longer is
/// something else.
constexpr std::uint64_t MaxFileSize = 16u << 20;
/// Big enough that a call costs less than what it moves.
constexpr std::size_t BlockSize = 64 * 1024;

/// Reads a storage forwards: little at first, since the first record is mostly all that is wanted, then more
/// and more, so that even a file full of damage is gone through in a few reads.
class CReadAhead
{
public:
    CReadAhead(CQueueStorage& storage, std::uint64_t end) noexcept : m_Storage(storage), m_End(end) {}

    /// At least size bytes from the position, or all up to the end, and more when at hand; good until the
    /// next call. Nothing when the storage can't be read.
    std::optional<std::string_view> At(std::uint64_t position, std::size_t size)
    {
        const std::uint64_t wanted = std::min<std::uint64_t>(size, m_End - position);
        if (position < m_Begin || position + wanted > m_Begin + m_Bytes.size())
        {
            auto bytes = m_Storage.ReadAt(position, std::max(size, m_NextSize));
            if (!bytes)
                return std::nullopt;
            m_Bytes = std::move(*bytes);
            m_Begin = position;
            m_NextSize = std::min(m_NextSize * 2, BlockSize);
        }
        return std::string_view(m_Bytes).substr(static_cast<std::size_t>(position - m_Begin));
    }

private:
    CQueueStorage& m_Storage;
    const std::uint64_t m_End;
    std::string m_Bytes;
    std::uint64_t m_Begin = 0;
    std::size_t m_NextSize = MaxSendableRecordSize;
};

/// Moves position to the next whole record, or to the end. False when the storage can't be read.
bool Resynchronize(CReadAhead& reader, std::uint64_t& position, std::uint64_t end)
{
    while (position < end)
    {
        // Whole in these bytes is every record that begins in all but their last MaxSendableRecordSize.
        const auto bytes = reader.At(position, 2 * MaxSendableRecordSize);
        if (!bytes)
            return false;
        if (const auto found = FindQueueRecord(*bytes))
        {
            position += *found;
            return true;
        }
        if (bytes->size() <= MaxSendableRecordSize)
            break;
        position += bytes->size() - MaxSendableRecordSize;
    }
    position = end;
    return true;
}
} // namespace

bool CQueueContents::WriteHeader()
{
    return m_Storage.WriteAt(0, EncodeQueueHeader(m_Header));
}

/// Without records; the counters of the header go on.
bool CQueueContents::Clear()
{
    // Cut first, so that nothing behind a header that was no good comes to life again. Sent bytes beyond the
    // end count as none.
    if (!m_Storage.SetSize(QueueHeaderSize))
        return false;
    m_Size = QueueHeaderSize;
    m_Header.SentBytes = 0;
    return WriteHeader();
}

bool CQueueContents::Open()
{
    const auto size = m_Storage.Size();
    const auto bytes = m_Storage.ReadAt(0, QueueHeaderSize);
    if (!size || !bytes)
        return false;
    m_Size = *size;

    const auto header = DecodeQueueHeader(*bytes);
    if (!header || m_Size > MaxFileSize)
    {
        m_Header = {};
        return Clear();
    }

    m_Header = *header;
    if (m_Header.SentBytes > m_Size - QueueHeaderSize)
    {
        // MoveToFront was ended between its last two steps. To be put right before the file grows again.
        m_Header.SentBytes = 0;
        return WriteHeader();
    }
    return true;
}

CQueueContents::Appended CQueueContents::Append(std::string_view query)
{
    if (!Open())
        return Appended::Failed;
    if (m_Size - m_Header.SentBytes >= FullSize ||
        query.size() > MaxFileSize - 2 * FullSize - MaxSendableRecordSize)
        return Appended::Full;

    const std::string record = EncodeQueueRecord(query, m_Header.NextSequence);
    ++m_Header.RecordsAppended;
    ++m_Header.NextSequence;
    if (!m_Storage.WriteAt(m_Size, record) || !WriteHeader())
    {
        m_Storage.SetSize(m_Size); // what a full disk has taken of the record
        return Appended::Failed;
    }
    return Appended::Yes;
}

CQueueContents::FirstRecord CQueueContents::GetFirst()
{
    std::optional<Place> place;
    if (!Open() || !Find(place))
        return {};
    if (!place)
    {
        if (m_Size > QueueHeaderSize && !Clear())
            return {};
        return {First::None, {}, {}};
    }
    const auto sentBytes = static_cast<std::uint32_t>(place->Position - QueueHeaderSize);
    if (sentBytes != m_Header.SentBytes)
    {
        m_Header.SentBytes = sentBytes;
        if (!WriteHeader())
            return {};
    }
    QueueRecord& record = place->Record;
    return {record.State == QueueRecordState::Unsent ? First::Unsent : First::Unsendable, record.Key,
            std::move(record.Query)};
}

bool CQueueContents::RemoveFirst(const QueueRecordKey& key)
{
    std::optional<Place> place;
    if (!Open() || !Find(place) || !place || place->Record.Key != key)
        return false;

    // From here on the record counts as sent; the rest is for speed and space, and each step is safe alone.
    if (!m_Storage.WriteAt(place->Position + QueueRecordChecksumOffset, QueueSentMark(key)))
        return false;
    const std::uint64_t next = place->Position + key.Size;
    m_Header.SentBytes = static_cast<std::uint32_t>(next - QueueHeaderSize);
    if (next == m_Size)
        Clear();
    else if (WriteHeader())
        MoveToFront(next);
    return true;
}

/// Gives the space of the sent records back once they take more than half of the file: each byte is then
/// moved once on average, however long the queue was. What is moved doesn't overlap what it comes from, so
/// the records are whole in their old place until the file is cut.
void CQueueContents::MoveToFront(std::uint64_t begin)
{
    const std::uint64_t length = m_Size - begin;
    if (length >= begin - QueueHeaderSize)
        return;
    for (std::uint64_t done = 0; done < length;)
    {
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(BlockSize, length - done));
        const auto bytes = m_Storage.ReadAt(begin + done, size);
        if (!bytes || bytes->size() != size || !m_Storage.WriteAt(QueueHeaderSize + done, *bytes))
            return;
        done += size;
    }
    if (!m_Storage.SetSize(QueueHeaderSize + length))
        return;
    m_Header.SentBytes = 0;
    WriteHeader();
}

bool CQueueContents::Find(std::optional<Place>& place)
{
    CReadAhead reader(m_Storage, m_Size);
    std::uint64_t position = QueueHeaderSize + m_Header.SentBytes;
    while (position < m_Size)
    {
        const auto bytes = reader.At(position, MaxSendableRecordSize);
        if (!bytes)
            return false;
        QueueRecord record = DecodeQueueRecord(*bytes, m_Size - position);
        const std::uint64_t next = position + record.Key.Size;

        bool isDamaged = record.State == QueueRecordState::Damaged;
        if (!isDamaged && record.Key.Size > MaxSendableRecordSize && next != m_Size)
        {
            // Its checksum isn't looked at, but a wrong length would swallow good records.
            const auto following = m_Storage.ReadAt(next, QueueRecordHeaderSize);
            if (!following)
                return false;
            isDamaged = !LooksLikeQueueRecord(*following, m_Size - next);
        }

        if (isDamaged)
        {
            ++position;
            if (!Resynchronize(reader, position, m_Size))
                return false;
        }
        else if (record.State == QueueRecordState::Sent)
            position = next;
        else
        {
            place = Place{position, std::move(record)};
            return true;
        }
    }
    return true;
}
