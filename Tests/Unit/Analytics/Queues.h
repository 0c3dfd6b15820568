#pragma once

#include "Ls/Analytics/DataCollector.h"
#include "Ls/System/String/Convert.h"
#include "Updater/Analytics/AnalyticsQueue.h"
#include "Updater/Analytics/QueueContents.h"

#include <algorithm>
#include <vector>

using Texts = std::vector<std::string>;

/// A complete query string whose event has this label.
inline std::string QueryOf(const std::string& label)
{
    LS::Analytics::CDataCollector collector(L"Updater", L"1.1.1.13", L"site.example", L"", L"partner");
    collector.AddVisit(L"visitor", L"session", L"1x1", L"Windows");
    collector.AddEvent(L"Update", L"NoAction", LS::AnsiToWide(label), 1);
    std::wstring query;
    collector.GetEventsQueryString(query);
    return LS::WideToAnsi(query);
}

inline LS::System::CRefPtr<CAnalyticsQueue> OpenQueue(const std::wstring& base,
                                                      const std::wstring& older = L"")
{
    return LS::System::MakeRef<CAnalyticsQueue>(base, older, L"LSAnalytics.dat");
}

/// A process that ended in the middle of a change.
struct Killed
{
};

/// A queue's storage in memory: for looking at every byte, and for ending at any of its changes what changes
/// it.
class CMemoryStorage : public CQueueStorage
{
public:
    explicit CMemoryStorage(std::string bytes = {}) : Bytes(std::move(bytes)) {}

    std::string Bytes;
    /// Changes until the end, which leaves the fraction TornQuarters/4 of the last one's bytes; of the 20
    /// bytes of a header all or nothing, as the system does it.
    int ChangesLeft = -1;
    unsigned TornQuarters = 0;
    /// Bytes from which on the disk is full.
    std::size_t Full = SIZE_MAX;
    std::uint64_t BytesMoved = 0;

    std::optional<std::uint64_t> Size() override { return Bytes.size(); }
    std::optional<std::string> ReadAt(std::uint64_t position, std::size_t size) override
    {
        std::string bytes = Bytes.substr(std::min(Bytes.size(), static_cast<std::size_t>(position)), size);
        BytesMoved += bytes.size();
        return bytes;
    }
    bool WriteAt(std::uint64_t position, std::string_view bytes) override
    {
        const auto at = static_cast<std::size_t>(position);
        std::size_t size = std::min(bytes.size(), Full - std::min(Full, at));
        if (ChangesLeft == 0)
            size = size > QueueHeaderSize ? size * TornQuarters / 4 : TornQuarters < 2 ? 0 : size;
        Bytes.resize(std::max(Bytes.size(), at + size));
        Bytes.replace(at, size, bytes.substr(0, size));
        BytesMoved += size;
        Change();
        return size == bytes.size();
    }
    bool SetSize(std::uint64_t size) override
    {
        if (ChangesLeft != 0 || TornQuarters == 4)
            Bytes.resize(static_cast<std::size_t>(size));
        Change();
        return true;
    }

private:
    void Change()
    {
        if (ChangesLeft-- == 0)
            throw Killed();
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
inline Texts Drain(CQueueStorage& storage)
{
    Texts queries;
    while (const auto record = TakeFirst(storage))
        if (record->Kind == CQueueContents::First::Unsent)
            queries.push_back(record->Query);
    return queries;
}
