#pragma once

#include "Updater/Analytics/QueueLayout.h"
#include "Updater/Analytics/QueueStorage.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// What can be done with an analytics queue whose storage is open and, if shared, locked by the caller.
///
/// Safe against being ended at any point: every step leaves a queue whose records are all there, but for the
/// one being appended or removed. Storage that isn't a queue is made an empty one. A record that is damaged
/// is passed over: its own length isn't trusted, the next record is looked for byte by byte, and when there
/// is none what is left is cut off. Nothing throws but std::bad_alloc.
class CQueueContents
{
public:
    /// Records are appended while the file is shorter than this, without those at its front that have been
    /// sent already: after a long outage they would keep the room that they don't need any more from the
    /// records of many runs. The file itself stays below twice that and a record, since a sent part that
    /// outgrows the rest is given up as the next record is removed.
    static constexpr std::uint64_t FullSize = 5242881;

    explicit CQueueContents(CQueueStorage& storage) noexcept : m_Storage(storage) {}

    enum class Appended
    {
        Yes,
        Full,
        Failed ///< the storage can't be written; it is as before
    };
    Appended Append(std::string_view query);

    enum class First
    {
        Unsent,
        Unsendable, ///< to be removed without being sent
        None,
        Failed
    };
    struct FirstRecord
    {
        First Kind = First::Failed;
        QueueRecordKey Key;
        /// Only of an unsent record.
        std::string Query;
    };
    FirstRecord GetFirst();

    /// Removes the first record if it is that one; false when it is another or the storage can't be written.
    bool RemoveFirst(const QueueRecordKey& key);

private:
    struct Place
    {
        std::uint64_t Position;
        QueueRecord Record;
    };

    bool Open();
    bool WriteHeader();
    bool Clear();
    /// False when the storage can't be read. No place: no record is left.
    bool Find(std::optional<Place>& place);
    void MoveToFront(std::uint64_t begin);

    CQueueStorage& m_Storage;
    QueueHeader m_Header;
    std::uint64_t m_Size = 0;
};
