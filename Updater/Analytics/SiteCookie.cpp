#include "Updater/Analytics/SiteCookie.h"

#include "Ls/System/String/Trim.h"

#include <windows.h>

#include <wininet.h>

namespace
{
constexpr wchar_t CookieName[] = L"ecs_guid";
/// A GUID in any of its text forms is shorter. A longer text would cost every event the room for its label.
constexpr std::size_t MaxIdLength = 64;

constexpr DWORD FirstBufferSize = 2048;
constexpr DWORD LastBufferSize = 128 * 1024;
} // namespace

std::wstring CookieValue(std::wstring_view cookies, std::wstring_view name)
{
    while (!cookies.empty())
    {
        const std::wstring_view cookie = cookies.substr(0, cookies.find(L';'));
        cookies.remove_prefix(cookie.size() < cookies.size() ? cookie.size() + 1 : cookie.size());
        const auto equals = cookie.find(L'=');
        if (equals != std::wstring_view::npos && LS::Trim(cookie.substr(0, equals)) == name)
            return LS::Trim(cookie.substr(equals + 1));
    }
    return {};
}

std::wstring SiteUserId(const std::wstring& domain)
{
    const std::wstring url = L"http://" + domain;
    // The size that the system asks for is in bytes or in characters, depending on its version: growing the
    // buffer needs neither.
    for (DWORD size = FirstBufferSize; size <= LastBufferSize; size *= 2)
    {
        std::wstring cookies(size, L'\0');
        DWORD length = size;
        if (::InternetGetCookieW(url.c_str(), nullptr, cookies.data(), &length))
        {
            const std::wstring id = CookieValue(cookies.c_str(), CookieName);
            return id.size() <= MaxIdLength ? id : std::wstring();
        }
        if (::GetLastError() != ERROR_INSUFFICIENT_BUFFER)
            return {};
    }
    return {};
}
