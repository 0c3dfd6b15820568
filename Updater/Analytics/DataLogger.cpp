#include "Updater/Analytics/DataLogger.h"

#include "Ls/System/String/Convert.h"
#include "Ls/System/String/DecimalText.h"
#include "Ls/System/String/Printf.h"
#include "Ls/System/ThrowException.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Util/PerUserAppDataPath.h"
#include "Updater/Analytics/OSName.h"
#include "Updater/Analytics/SiteCookie.h"
#include "Updater/Analytics/VisitorId.h"
#include "Updater/ProgramVersion.h"
#include "Updater/Settings/Hosts.h"

#include <windows.h>

#include <shlobj.h>

using namespace LS::System;

namespace
{
constexpr wchar_t Application[] = L"Updater";
constexpr wchar_t ProgramVersion[] = L"" LS_PROGRAM_VERSION;
constexpr wchar_t QueueFileName[] = L"LSAnalytics.dat";
constexpr wchar_t IniSubPath[] = L"\\Larkspur\\Larkspur.ini";
constexpr char EndpointPath[] = "/DataTracker.aspx";

constexpr DWORD OEMOriginSize = 260;

// The session's custom variables, each a dimension in a place of its own.
constexpr std::int32_t OEMOriginIndex = 1;
constexpr std::int32_t SiteUserIndex = 2;

constexpr std::uint32_t FlushLimitMs = 5000;
/// A sender that is told to stop looks up every 20 ms.
constexpr std::uint32_t StopGraceMs = 250;

/// Empty when the system has none, or (S_FALSE) has one that isn't there.
std::wstring SpecialFolder(int csidl)
{
    wchar_t path[MAX_PATH] = L"";
    const HRESULT result = ::SHGetFolderPathW(nullptr, csidl, nullptr, SHGFP_TYPE_CURRENT, path);
    return result == S_OK ? path : L"";
}

/// Where an administrator may have put values for all users; empty when there is no such folder.
std::wstring MachineIniPath()
{
    const std::wstring folder = SpecialFolder(CSIDL_COMMON_APPDATA);
    return folder.empty() ? folder : folder + IniSubPath;
}
} // namespace

CDataLogger::CDataLogger(const std::wstring& partner, const std::wstring& /*dp*/,
                         const std::wstring& session) :
    m_Collector(Application, ProgramVersion, LS::AnsiToWide(Hosts::CookieDomain()), L"", partner)
{
    LS_LOG_INFO("CDataLogger::CDataLogger() : Begins");
    const std::wstring visitorId = GetVisitorID();
    const std::wstring operatingSystem = OSNameOf(GetOSVersion());
    const std::wstring oemOrigin = GetOEMOrigin();

    // An older queue is looked for in the user's local folder, from which nothing follows the user to other
    // machines. Not in the machine's: there one user could have another send what is in the queue.
    m_Queue = MakeRef<CAnalyticsQueue>(Util::GetPerUserAppDataPath(), SpecialFolder(CSIDL_LOCAL_APPDATA),
                                       QueueFileName);

    m_Collector.AddVisit(
        visitorId, session,
        LS::Printf(L"%dx%d", ::GetSystemMetrics(SM_CXSCREEN), ::GetSystemMetrics(SM_CYSCREEN)),
        operatingSystem);
    if (!oemOrigin.empty())
        m_Collector.AddCustomVariableForSession(LS::Analytics::CustomVariableDimension, L"OEMOrigin",
                                                oemOrigin, OEMOriginIndex);
    // A variable of its own name, not the visit's user text, which means a user who is signed in: those who
    // evaluate the data can then tell the two apart.
    const std::wstring siteUser = SiteUserId(LS::AnsiToWide(Hosts::CookieDomain()));
    if (!siteUser.empty())
        m_Collector.AddCustomVariableForSession(LS::Analytics::CustomVariableDimension, L"ecs_guid", siteUser,
                                                SiteUserIndex);

    m_Sender = MakeRef<CAnalyticsSender>(m_Queue, "http://" + Hosts::AnalyticsHost() + EndpointPath);
    m_Sender->EnsureRunning(SenderSettings());
}

CDataLogger::~CDataLogger()
{
    m_Sender->Stop(StopGraceMs);
}

void CDataLogger::UpdateEvent(const std::wstring& eventName)
{
    AddEvent(L"Update", L"NoAction", eventName, 1);
}

void CDataLogger::UpdateEvent(const std::wstring& eventName, std::int32_t number)
{
    AddEvent(L"Update", LS::DecimalText(number), eventName, static_cast<std::uint32_t>(number));
}

void CDataLogger::ErrorEvent(const std::wstring& errorName, const std::wstring& detail)
{
    const DWORD lastError = ::GetLastError(); // before anything can change it
    AddEvent(L"ErrorInfo", errorName, detail, lastError);
}

void CDataLogger::AddEvent(const std::wstring& category, const std::wstring& action,
                           const std::wstring& label, std::uint32_t value)
{
    m_Collector.AddEvent(category, action, label, value);
    std::wstring query;
    m_Collector.GetEventsQueryString(query);
    m_Queue->Append(LS::WideToAnsi(query));
    m_Sender->EnsureRunning(SenderSettings());
}

void CDataLogger::FinalFlush()
{
    m_Sender->FlushAndStop(FlushLimitMs);
}

std::wstring CDataLogger::GetOSVersion()
{
    std::wstring version = OSVersionText();
    LS_LOG_INFO(L"GetOSVersion() : returning %s", version.c_str());
    return version;
}

std::wstring CDataLogger::GetOEMOrigin()
{
    const std::wstring path = MachineIniPath();
    if (path.empty())
    {
        ThrowException(CException(L"SHGetFolderPathW failure", LS_HERE));
        return {};
    }
    wchar_t origin[OEMOriginSize] = L"";
    ::GetPrivateProfileStringW(L"Main", L"OEMOrigin", L"", origin, OEMOriginSize, path.c_str());
    LS_LOG_INFO(L"GetOEMOrigin() : returning %s", origin);
    return origin;
}

std::wstring CDataLogger::GetVisitorID()
{
    LS_LOG_INFO("GetVisitorID() : Begin");
    std::wstring id = FindOrMakeVisitorId(Util::GetPerUserAppDataPath() + IniSubPath, MachineIniPath());
    LS_LOG_INFO(L"GetVisitorID() : End : returning: %s", id.c_str());
    return id;
}
