#include "Ls/System/Win32/RegistryKey.h"

#include "Ls/System/String/SystemErrorText.h"
#include "Ls/System/ThrowException.h"

#include <string_view>
#include <utility>

namespace LS::System::Win32
{
namespace
{
/// A value that grows between asking for its size and reading it is asked for again, but not for ever.
constexpr int MaxReadAttempts = 10;

struct RootName
{
    const wchar_t* Long;
    const wchar_t* Short;
    HKEY Root;
};

bool EqualsIgnoringCase(std::wstring_view text, const wchar_t* name) noexcept
{
    return ::CompareStringOrdinal(text.data(), static_cast<int>(text.size()), name, -1, TRUE) == CSTR_EQUAL;
}

/// Null for a name that isn't one of the predefined keys.
HKEY RootOf(std::wstring_view name) noexcept
{
    static const RootName Roots[] = {
        {L"HKEY_LOCAL_MACHINE", L"HKLM", HKEY_LOCAL_MACHINE},
        {L"HKEY_CURRENT_USER", L"HKCU", HKEY_CURRENT_USER},
        {L"HKEY_CLASSES_ROOT", L"HKCR", HKEY_CLASSES_ROOT},
        {L"HKEY_CURRENT_CONFIG", L"HKCC", HKEY_CURRENT_CONFIG},
        {L"HKEY_USERS", L"HKU", HKEY_USERS},
    };
    for (const RootName& root : Roots)
    {
        if (EqualsIgnoringCase(name, root.Long) || EqualsIgnoringCase(name, root.Short))
            return root.Root;
    }
    return nullptr;
}

struct SplitPath
{
    HKEY Root;
    /// Within the path that was split.
    const wchar_t* SubKey;
};

SplitPath Split(const std::wstring& path) noexcept
{
    const std::size_t separator = path.find(L'\\');
    const std::size_t rootLength = separator == std::wstring::npos ? path.size() : separator;
    const wchar_t* subKey = path.c_str() + rootLength + (separator == std::wstring::npos ? 0 : 1);
    return {RootOf(std::wstring_view(path).substr(0, rootLength)), subKey};
}

DWORD SizeInBytes(std::size_t characters) noexcept
{
    const std::size_t size = characters * sizeof(wchar_t);
    return static_cast<DWORD>(size);
}

bool IsMissing(LSTATUS result) noexcept
{
    return result == ERROR_FILE_NOT_FOUND || result == ERROR_KEY_DELETED;
}
} // namespace

CRegistryKey::CRegistryKey(std::wstring path, bool readOnly) : m_Path(std::move(path)), m_ReadOnly(readOnly)
{
    const SplitPath split = Split(m_Path);
    if (!split.Root)
    {
        // The missing blank is known to those who search logs for this text.
        ThrowException(CException(L"Base key in '" + m_Path + L"'is not a predefined key.", LS_HERE));
        return;
    }
    const LSTATUS result =
        m_ReadOnly ? ::RegOpenKeyExW(split.Root, split.SubKey, 0, KEY_READ, m_Key.Receive())
                   : ::RegCreateKeyExW(split.Root, split.SubKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                       KEY_ALL_ACCESS, nullptr, m_Key.Receive(), nullptr);
    if (result != ERROR_SUCCESS)
    {
        ThrowException(CException(
            WithLastError(result, L"RegCreateKeyEx failure creating registry key '" + m_Path + L"'."),
            LS_HERE));
    }
}

std::wstring CRegistryKey::GetString(const std::wstring& name, const std::wstring& defaultText) const
{
    std::wstring text;
    DWORD type = REG_NONE;
    DWORD size = 0;
    LSTATUS result = ::RegQueryValueExW(m_Key.Get(), name.c_str(), nullptr, &type, nullptr, &size);
    for (int attempt = 0; attempt < MaxReadAttempts; ++attempt)
    {
        if (result != ERROR_SUCCESS && result != ERROR_MORE_DATA)
            break;
        if (type != REG_SZ && type != REG_EXPAND_SZ)
        {
            ThrowException(CException(L"Unexpected type for registry value '" + name +
                                          L"'. REG_SZ or REG_EXPAND_SZ expected.",
                                      LS_HERE));
            return defaultText;
        }
        // Stored texts are any bytes: an odd last byte gets its room here and is dropped below.
        text.resize((size + 1) / sizeof(wchar_t));
        size = SizeInBytes(text.size());
        result = ::RegQueryValueExW(m_Key.Get(), name.c_str(), nullptr, &type,
                                    reinterpret_cast<BYTE*>(text.data()), &size);
        if (result == ERROR_SUCCESS && (type == REG_SZ || type == REG_EXPAND_SZ))
        {
            text.resize(size / sizeof(wchar_t));
            if (!text.empty() && text.back() == L'\0')
                text.pop_back();
            return text;
        }
    }
    if (!IsMissing(result))
    {
        ThrowException(CException(
            WithLastError(result, L"RegQueryValueEx failure reading registry value '" + name + L"'"),
            LS_HERE));
    }
    return defaultText;
}

void CRegistryKey::SetString(const std::wstring& name, const std::wstring& text) const
{
    const LSTATUS result =
        ::RegSetValueExW(m_Key.Get(), name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                         SizeInBytes(text.size() + 1));
    if (result != ERROR_SUCCESS)
    {
        ThrowException(CException(
            WithLastError(result, L"RegSetValueEx failure writing registry value '" + name + L"'"), LS_HERE));
    }
}

std::uint32_t CRegistryKey::GetUint32(const std::wstring& name, std::uint32_t defaultValue) const
{
    DWORD type = REG_NONE;
    DWORD value = 0;
    DWORD size = sizeof(value);
    const LSTATUS result =
        ::RegQueryValueExW(m_Key.Get(), name.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(&value), &size);
    if (IsMissing(result))
        return defaultValue;
    if (result < 0)
    {
        ThrowException(CException(
            WithLastError(result, L"RegQueryValueEx failure reading registry value '" + name + L"'"),
            LS_HERE));
        return defaultValue;
    }
    // An error code above zero comes here on purpose: for most of them the type tells what is wrong.
    if (type != REG_DWORD)
    {
        ThrowException(CException(
            WithLastError(result, L"Unexpected type for registry value '" + name + L"'. REG_DWORD expected."),
            LS_HERE));
        return defaultValue;
    }
    return result == ERROR_SUCCESS && size == sizeof(value) ? value : defaultValue;
}

bool CRegistryKey::ValueExists(const std::wstring& name) const noexcept
{
    return ::RegQueryValueExW(m_Key.Get(), name.c_str(), nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

bool CRegistryKey::KeyExists(const std::wstring& path) noexcept
{
    const SplitPath split = Split(path);
    if (!split.Root)
        return false;
    if (*split.SubKey == L'\0')
        return true;
    CRegistryKeyHandle key;
    return ::RegOpenKeyExW(split.Root, split.SubKey, 0, KEY_READ, key.Receive()) == ERROR_SUCCESS;
}
} // namespace LS::System::Win32
