#include "Updater/Settings/Hosts.h"

#include "Ls/System/Exception.h"
#include "Ls/System/String/Convert.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Win32/RegistryKey.h"

using namespace LS::System;

namespace
{
std::string Host(const wchar_t* valueName, const char* builtIn)
{
    const std::wstring keyPath = L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Larkspur\\Debugging";
    try
    {
        if (Win32::CRegistryKey::KeyExists(keyPath))
            return LS::WideToAnsi(
                Win32::CRegistryKey(keyPath, true).GetString(valueName, LS::AnsiToWide(builtIn)));
    }
    catch (const CException& exception)
    {
        LS_LOG_FAILURE(L"Hosts : %s ignored : %s", valueName, exception.ShortDescription().c_str());
    }
    return builtIn;
}
} // namespace

namespace Hosts
{
std::string UpdateHost()
{
    return Host(L"UpdateHost", LS_UPDATE_HOST);
}

std::string AnalyticsHost()
{
    return Host(L"AnalyticsHost", LS_ANALYTICS_HOST);
}

std::string CookieDomain()
{
    return Host(L"CookieDomain", LS_COOKIE_DOMAIN);
}
} // namespace Hosts
