#include "Updater/Analytics/RunAnalytics.h"

#include "Ls/System/Exception.h"
#include "Ls/System/String/Convert.h"
#include "Ls/System/Util/Log.h"
#include "Updater/Analytics/DataLogger.h"

#include <windows.h>

#include <exception>
#include <memory>
#include <utility>

using namespace LS::System;

namespace
{
/// Not destroyed when the process ends without End: its threads may still be at work then.
CDataLogger* g_Logger = nullptr;

/// The border that no exception of analytics crosses.
template <class Action>
void Guarded(const char* what, Action action) noexcept
{
    const DWORD lastError = ::GetLastError();
    try
    {
        action();
    }
    catch (const CException& exception)
    {
        try
        {
            Util::CLog::WriteText(LS_LOG_LOCATION(Util::LogLevelFailure), // whole, however long
                                  L"CRunAnalytics::" + LS::AnsiToWide(what) + L"() : " + exception.Format());
        }
        catch (...) // no memory for the text
        {
        }
    }
    catch (const std::exception& exception)
    {
        LS_LOG_FAILURE("CRunAnalytics::%s() : %s", what, exception.what());
    }
    catch (...)
    {
        LS_LOG_FAILURE("CRunAnalytics::%s() : unknown exception", what);
    }
    ::SetLastError(lastError);
}
} // namespace

void CRunAnalytics::Begin(const std::wstring& partner, const std::wstring& dp,
                          const std::wstring& session) noexcept
{
    Guarded("Begin", [&] { g_Logger = std::make_unique<CDataLogger>(partner, dp, session).release(); });
}

void CRunAnalytics::UpdateEvent(const std::wstring& eventName) noexcept
{
    if (g_Logger)
        Guarded("UpdateEvent", [&] { g_Logger->UpdateEvent(eventName); });
}

void CRunAnalytics::UpdateEvent(const std::wstring& eventName, std::int32_t number) noexcept
{
    if (g_Logger)
        Guarded("UpdateEvent", [&] { g_Logger->UpdateEvent(eventName, number); });
}

void CRunAnalytics::ErrorEvent(const std::wstring& errorName, const std::wstring& detail) noexcept
{
    if (g_Logger)
        Guarded("ErrorEvent", [&] { g_Logger->ErrorEvent(errorName, detail); });
}

void CRunAnalytics::End() noexcept
{
    if (g_Logger)
        Guarded("End", [&] { g_Logger->FinalFlush(); });
    Drop();
}

void CRunAnalytics::Drop() noexcept
{
    Guarded("Drop", [] { delete std::exchange(g_Logger, nullptr); });
}
