#pragma once

#include "Updater/Analytics/QueueContents.h"

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

using Texts = std::vector<std::string>;

/// A queue in memory, for looking at every byte, and for so many cases that a disk would be too slow.
struct CMemoryStorage : CQueueStorage
{
    explicit CMemoryStorage(std::string bytes = {}) : Bytes(std::move(bytes)) {}

    std::string Bytes;
    /// Sees all that a sudden end could leave: of a write nothing to all, in quarters, but of the 20 bytes of
    /// a header all or nothing, as the system does it.
    std::function<void()> Seen = [] {};
    /// Bytes from which on the disk is full; bytes asked for.
    std::size_t Full = SIZE_MAX, Read = 0;

    std::optional<std::uint64_t> Size() override { return Bytes.size(); }
    std::optional<std::string> ReadAt(std::uint64_t position, std::size_t size) override
    {
        Read += size;
        return Bytes.substr(std::min(Bytes.size(), static_cast<std::size_t>(position)), size);
    }
    bool WriteAt(std::uint64_t position, std::string_view bytes) override
    {
        const auto at = static_cast<std::size_t>(position);
        const std::size_t all = std::min(bytes.size(), Full - std::min(Full, at));
        for (std::size_t quarters = all > QueueHeaderSize ? 0 : 4; quarters <= 4; ++quarters)
        {
            Bytes.resize(std::max(Bytes.size(), at + all * quarters / 4));
            Bytes.replace(at, all * quarters / 4, bytes.substr(0, all * quarters / 4));
            Seen();
        }
        return all == bytes.size();
    }
    bool SetSize(std::uint64_t size) override
    {
        Bytes.resize(static_cast<std::size_t>(size));
        Seen();
        return true;
    }
    CQueueContents::Appended Append(std::string_view query) { return CQueueContents(*this).Append(query); }
    /// Takes the first record out as the sender does.
    bool Take(const std::string& query)
    {
        const auto record = CQueueContents(*this).GetFirst();
        return record.Query == query && CQueueContents(*this).RemoveFirst(record.Key);
    }
};

/// Different lengths, so that records land on each other's places in every way.
inline std::string NumberedQuery(unsigned number)
{
    return "q" + std::to_string(number) + std::string(number * 7 % 23, '-');
}

/// A queue whose first records have been sent.
inline CMemoryStorage SampleQueue(unsigned records, unsigned sent)
{
    CMemoryStorage storage;
    for (unsigned i = 0; i < records; ++i)
        storage.Append(NumberedQuery(i));
    for (unsigned i = 0; i < sent; ++i)
        storage.Take(NumberedQuery(i));
    return storage;
}

/// All query strings that a sender would send, which it then has.
inline Texts Drain(CQueueStorage& storage)
{
    using First = CQueueContents::First;
    Texts queries;
    for (auto record = CQueueContents(storage).GetFirst();
         (record.Kind == First::Unsent || record.Kind == First::Unsendable) &&
         CQueueContents(storage).RemoveFirst(record.Key);
         record = CQueueContents(storage).GetFirst())
        if (record.Kind == First::Unsent)
            queries.push_back(record.Query);
    return queries;
}
