#include "Ls/Analytics/DataCollector.h"

#include "Ls/Analytics/Json/Writer.h"
#include "Ls/Analytics/PercentEncoding.h"
#include "Ls/Analytics/VisitDocument.h"
#include "Ls/System/ThrowException.h"

#include <windows.h>

#include <utility>

namespace LS::Analytics
{
using System::CException;
using System::ThrowException;

namespace
{
// The two spellings are what log readers have searched for since the first version: each stays where it is.
constexpr char NotInitializedBeen[] = "NotInitializedException: The analytics data container has not been "
                                      "initialized. Please use AddVisit method to add the visitor";
constexpr char NotInitializedBee[] = "NotInitializedException: The analytics data container has not bee "
                                     "initialized. Please use AddVisit method to add the visitor";

struct Argument
{
    const std::wstring& Text;
    const char* Name;
};

std::string InvalidParameter(const Argument& argument)
{
    return std::string("InvalidStringParameterException: The parameter ") + argument.Name + " is invalid.";
}

Moment Now() noexcept
{
    SYSTEMTIME time;
    ::GetSystemTime(&time);
    TIME_ZONE_INFORMATION zone{};
    ::GetTimeZoneInformation(&zone);
    return {time.wDay, time.wMonth, time.wYear, time.wHour, time.wMinute, time.wSecond, zone.Bias};
}
} // namespace

CDataCollector::CDataCollector(std::wstring application, std::wstring version, std::wstring site,
                               std::wstring user, std::wstring partner) :
    m_Application(std::move(application)),
    m_Version(std::move(version)), m_Site(std::move(site)), m_User(std::move(user)),
    m_Partner(std::move(partner))
{
}

void CDataCollector::AddVisit(const std::wstring& visitorId, const std::wstring& sessionId,
                              const std::wstring& screenResolution, const std::wstring& operatingSystem)
{
    m_Visit.reset();
    m_Visit = std::make_unique<Visit>(
        Visit{Now(), m_Application, m_Version, m_Site, m_User, m_Partner, {}, {}, {}});

    for (const Argument& argument :
         {Argument{visitorId, "visitorId"}, Argument{sessionId, "sessionId"},
          Argument{screenResolution, "screenResolution"}, Argument{operatingSystem, "operatingSystem"}})
    {
        if (argument.Text.empty())
            ThrowException(CException(InvalidParameter(argument), LS_HERE));
    }

    m_Visit->Who = VisitorAndSession{visitorId, sessionId, screenResolution, operatingSystem, {}};
}

void CDataCollector::AddEvent(const std::wstring& category, const std::wstring& action,
                              const std::wstring& label, std::uint32_t value)
{
    if (!m_Visit)
    {
        ThrowException(CException(NotInitializedBeen, LS_HERE));
        return;
    }
    for (const Argument& argument :
         {Argument{category, "category"}, Argument{action, "action"}, Argument{label, "label"}})
    {
        if (argument.Text.empty())
            ThrowException(CException(InvalidParameter(argument), LS_HERE));
    }

    m_Visit->What = Event{Now(), category, action, label, value};
}

void CDataCollector::AddCustomVariableForSession(std::uint32_t kind, const std::wstring& key,
                                                 const std::wstring& value, std::int32_t index)
{
    // A visit that was refused has no session to carry the variable: not initialised either.
    if (!m_Visit || !m_Visit->Who)
    {
        ThrowException(CException(NotInitializedBee, LS_HERE));
        return;
    }
    for (const Argument& argument : {Argument{key, "key"}, Argument{value, "value"}})
    {
        if (argument.Text.empty())
            ThrowException(CException(InvalidParameter(argument), LS_HERE));
    }

    m_Visit->Who->CustomVariables.push_back({kind, key, value, index});
}

void CDataCollector::GetEventsQueryString(std::wstring& result) const
{
    if (!m_Visit)
    {
        ThrowException(CException(NotInitializedBee, LS_HERE));
        return;
    }
    if (!m_Visit->What)
    {
        ThrowException(CException("ContainerHasNoElementsException: The event should be initialized by "
                                  "calling AddEvent.",
                                  LS_HERE));
        return;
    }
    // An event can be added to a visit that was refused; without a visitor there is nobody to report.
    if (!m_Visit->Who)
    {
        ThrowException(CException(NotInitializedBee, LS_HERE));
        return;
    }

    result = L"action=ev&data=" +
             PercentEncode(json::Write(BuildVisitDocument(*m_Visit, *m_Visit->Who, *m_Visit->What)));
}
} // namespace LS::Analytics
