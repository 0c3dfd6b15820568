#pragma once

#include "Ls/Analytics/DataCollector.h"
#include "Ls/System/String/Convert.h"
#include "Tests/Support/CollectorHost.h"
#include "Tests/Unit/Analytics/Machine.h"
#include "Tests/Unit/Analytics/MemoryQueue.h"
#include "Updater/Analytics/AnalyticsSender.h"

#include <doctest/doctest.h>

using LS::System::MakeRef;
using Tests::CCollectorHost;
using First = CQueueContents::First;
using namespace std::string_literals;

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
    return MakeRef<CAnalyticsQueue>(base, older, L"LSAnalytics.dat");
}

/// Sends what is queued; returns how long it takes, in milliseconds.
inline DWORD Flush(const LS::System::CRefPtr<CAnalyticsQueue>& queue, const std::string& endpoint,
                   std::uint32_t limit = 300000)
{
    const DWORD start = ::GetTickCount();
    MakeRef<CAnalyticsSender>(queue, endpoint)->FlushAndStop(limit);
    return ::GetTickCount() - start;
}

/// A machine with its collector host and its queue.
struct CHostedMachine : CMachine
{
    explicit CHostedMachine(Tests::CFaultServer::Handler answer = {}) : Host(std::move(answer))
    {
        Set(L"SOFTWARE\\Larkspur\\Debugging", L"AnalyticsHost", LS::AnsiToWide(Host.Host()));
    }

    CCollectorHost Host;
    LS::System::CRefPtr<CAnalyticsQueue> Queue = OpenQueue(Path(L"AppData"));
};
