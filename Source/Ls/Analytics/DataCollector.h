#pragma once

#include "Ls/Analytics/Visit.h"
#include "Ls/System/Object.h"

#include <cstdint>
#include <memory>
#include <string>

namespace LS::Analytics
{
/// Holds one visit with at most one event and turns it into the query string of the analytics collector
/// host. Knows nothing of HTTP, files or threads; used by one thread at a time. An argument that may not be
/// empty is refused with a CException, and what was done before the refusal stays.
class CDataCollector : public System::CObject
{
public:
    CDataCollector(std::wstring application, std::wstring version, std::wstring site, std::wstring user,
                   std::wstring partner);

    /// Starts over, with the present time: an earlier visit goes with its event and custom variables, also
    /// when an argument is refused for being empty.
    void AddVisit(const std::wstring& visitorId, const std::wstring& sessionId,
                  const std::wstring& screenResolution, const std::wstring& operatingSystem);

    /// Replaces the visit's event. Needs a visit; the texts may not be empty.
    void AddEvent(const std::wstring& category, const std::wstring& action, const std::wstring& label,
                  std::uint32_t value);

    /// Needs a visit; key and value may not be empty. Kind is CustomVariableDimension or ...Measure. A
    /// second one of the same kind and index (1 to 5) fails later, when the query string is made.
    void AddCustomVariableForSession(std::uint32_t kind, const std::wstring& key, const std::wstring& value,
                                     std::int32_t index);

    /// "action=ev&data=" and the percent-encoded JSON. Needs a visit with an event; consumes nothing.
    /// Besides CException lets json::Exception through.
    void GetEventsQueryString(std::wstring& result) const;

private:
    std::wstring m_Application;
    std::wstring m_Version;
    std::wstring m_Site;
    std::wstring m_User;
    std::wstring m_Partner;
    std::unique_ptr<Visit> m_Visit;
};
} // namespace LS::Analytics
