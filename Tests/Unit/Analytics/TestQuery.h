#pragma once

#include "Ls/Analytics/DataCollector.h"
#include "Ls/System/String/Convert.h"

#include <string>

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

/// One of exactly that length.
inline std::string QueryOfLength(const std::string& label, std::size_t length)
{
    return QueryOf(label + std::string(length - QueryOf(label).size(), 'x'));
}
