#include "Updater/Launch/ServerPath.h"

#include "Ls/System/Win32/UniqueHandle.h"

#include <objbase.h>

#include <string_view>

bool GetServerPath(const CLSID& classId, std::wstring& folder)
{
    constexpr int BracedLength = 39; // with the terminator
    wchar_t classText[BracedLength];
    if (::StringFromGUID2(classId, classText, BracedLength) == 0)
        return false;

    LS::System::Win32::CRegistryKeyHandle key;
    const std::wstring path = std::wstring(L"CLSID\\") + classText + L"\\LocalServer32";
    if (::RegOpenKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, key.Receive()) != ERROR_SUCCESS)
        return false;

    constexpr DWORD LongestBytes = 520;
    wchar_t value[LongestBytes / sizeof(wchar_t)];
    DWORD type = REG_NONE;
    DWORD size = LongestBytes;
    if (::RegQueryValueExW(key.Get(), nullptr, nullptr, &type, reinterpret_cast<BYTE*>(value), &size) !=
            ERROR_SUCCESS ||
        (type != REG_SZ && type != REG_EXPAND_SZ))
        return false;

    std::wstring_view text(value, size / sizeof(wchar_t));
    text = text.substr(0, text.find(L'\0')); // stored with a terminator or without
    if (!text.empty() && text.front() == L'"')
        text.remove_prefix(1);
    if (!text.empty() && text.back() == L'"')
        text.remove_suffix(1);
    const std::size_t separator = text.rfind(L'\\');
    if (separator == std::wstring_view::npos)
        return false;
    folder = text.substr(0, separator);
    return true;
}
