#pragma once

#include "Updater/Analytics/QueueContents.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// A process that ended in the middle of a change.
struct Killed
{
};

/// A queue's storage in memory: for looking at every byte, and for ending at any of its changes what changes
/// it.
class CMemoryStorage : public CQueueStorage
{
public:
    std::string Bytes;
    /// Changes until the end, which leaves the fraction TornQuarters/4 of the last one's bytes; of the 20
    /// bytes of a header all or nothing, as the system does it.
    int ChangesLeft = -1;
    unsigned TornQuarters = 0;
    /// Bytes from which on the disk is full.
    std::uint64_t Full = UINT64_MAX;
    std::uint64_t BytesMoved = 0;

    std::optional<std::uint64_t> Size() override { return Bytes.size(); }
    std::optional<std::string> ReadAt(std::uint64_t position, std::size_t size) override
    {
        if (position > Bytes.size())
            return std::string();
        std::string bytes = Bytes.substr(static_cast<std::size_t>(position), size);
        BytesMoved += bytes.size();
        return bytes;
    }
    bool WriteAt(std::uint64_t position, std::string_view bytes) override
    {
        const bool last = ChangesLeft == 0;
        std::size_t size = bytes.size();
        if (last)
            size = size > QueueHeaderSize ? size * TornQuarters / 4 : TornQuarters < 2 ? 0 : size;
        size = static_cast<std::size_t>(std::min<std::uint64_t>(size, Full - std::min(Full, position)));
        Bytes.resize(std::max<std::size_t>(Bytes.size(), static_cast<std::size_t>(position) + size));
        Bytes.replace(static_cast<std::size_t>(position), size, bytes.substr(0, size));
        BytesMoved += size;
        if (last)
            throw Killed();
        --ChangesLeft;
        return size == bytes.size();
    }
    bool SetSize(std::uint64_t size) override
    {
        const bool last = ChangesLeft == 0;
        if (!last || TornQuarters == 4)
            Bytes.resize(static_cast<std::size_t>(size));
        if (last)
            throw Killed();
        --ChangesLeft;
        return true;
    }
};

/// Takes the first record out as the sender does, whatever it is; nothing when there is none.
inline std::optional<CQueueContents::FirstRecord> TakeFirst(CQueueStorage& storage)
{
    const auto record = CQueueContents(storage).GetFirst();
    if (record.Kind == CQueueContents::First::None || record.Kind == CQueueContents::First::Failed ||
        !CQueueContents(storage).RemoveFirst(record.Key))
        return std::nullopt;
    return record;
}

/// All query strings that a sender would send, which it then has.
inline std::vector<std::string> Drain(CQueueStorage& storage)
{
    std::vector<std::string> queries;
    while (const auto record = TakeFirst(storage))
    {
        if (record->Kind == CQueueContents::First::Unsent)
            queries.push_back(record->Query);
    }
    return queries;
}
