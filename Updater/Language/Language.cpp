#include "Updater/Language/Language.h"

#include "Ls/System/Exception.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Util/PerUserAppDataPath.h"
#include "Ls/System/Win32/RegistryKey.h"
#include "Ls/System/Win32/SystemLibrary.h"
#include "Updater/Language/LocaleMapping.h"
#include "Updater/Language/StringTable.h"

#include <windows.h>

#include <iterator>
#include <optional>

using namespace LS::System;

namespace
{
/// Longer settings are cut. No locale comes near it, and a cut one means the same: what counts is the part
/// before the first hyphen.
constexpr DWORD LocaleBufferLength = 260;

/// A text among the debug values; nothing when it isn't there or isn't a text.
std::optional<std::wstring> DebugText(const wchar_t* name)
{
    const std::wstring path = L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Larkspur\\Debugging";
    try
    {
        if (!Win32::CRegistryKey::KeyExists(path))
            return std::nullopt;
        const Win32::CRegistryKey key(path, true);
        if (key.ValueExists(name))
            return key.GetString(name, L"");
    }
    catch (const CException&) // passed over like a missing one
    {
    }
    return std::nullopt;
}

/// What the user chose in the client; empty without a choice.
std::wstring LocaleFromSettings()
{
    std::wstring folder;
    try
    {
        folder = Util::GetPerUserAppDataPath();
    }
    catch (const CException&) // without the folder there is no setting
    {
    }
    if (folder.empty())
        return {};
    const std::wstring file = folder + L"\\Larkspur\\Larkspur Games\\App\\Settings\\Settings.ini";
    wchar_t locale[LocaleBufferLength];
    const DWORD length = ::GetPrivateProfileStringW(L"UISettings", L"language_setting", L"", locale,
                                                    LocaleBufferLength, file.c_str());
    return {locale, length};
}

/// The locale of the country that the user lives in, in lower case; nothing when the system doesn't tell.
std::optional<std::wstring> LocaleFromLocation()
{
    using GetUserGeoIDFunction = LONG(WINAPI*)(DWORD);
    using GetGeoInfoFunction = int(WINAPI*)(LONG, DWORD, LPWSTR, int, LANGID);
    constexpr DWORD Nation = 16; // GEOCLASS_NATION
    constexpr DWORD Rfc1766 = 6; // GEO_RFC1766
    const Win32::CSystemLibrary kernel(L"kernel32.dll");
    const auto getUserGeoID = kernel.GetFunction<GetUserGeoIDFunction>("GetUserGeoID");
    const auto getGeoInfo = kernel.GetFunction<GetGeoInfoFunction>("GetGeoInfoW");
    if (!getUserGeoID || !getGeoInfo)
        return std::nullopt;

    wchar_t name[LocaleBufferLength] = {};
    if (getGeoInfo(getUserGeoID(Nation), Rfc1766, name, LocaleBufferLength, ::GetUserDefaultUILanguage()) <=
        0)
        return std::nullopt;
    name[std::size(name) - 1] = L'\0';
    std::wstring locale = name;
    for (wchar_t& c : locale) // a tag is ASCII; the user's own rules of case have no say
    {
        if (c >= L'A' && c <= L'Z')
            c += L'a' - L'A';
    }
    return locale;
}

LanguageChoice ChooseLanguage(std::wstring locale)
{
    if (locale.empty())
        locale = LocaleFromSettings();
    const bool chosenExplicitly = !locale.empty();
    if (!chosenExplicitly)
    {
        locale = LocaleFromLocation().value_or(L"en-us");
        if (auto replacement = DebugText(L"LocaleName"))
            locale = std::move(*replacement);
    }
    if (auto replacement = DebugText(L"ResourceLocaleOverride"))
        locale = std::move(*replacement);
    return LanguageForLocale(locale, chosenExplicitly, ::GetUserDefaultUILanguage());
}
} // namespace

CLanguage::CLanguage(const std::wstring& locale)
{
    const LanguageChoice choice = ChooseLanguage(locale);
    m_LanguageId = choice.LanguageId;
    LS_LOG_INFO(L"CLanguage::CLanguage() : Locale is %s : Language is %u", choice.Locale.c_str(),
                m_LanguageId);
}

std::wstring CLanguage::GetText(std::uint16_t id) const
{
    return LoadStringTableText(::GetModuleHandleW(nullptr), id, static_cast<LANGID>(m_LanguageId));
}
