// The choice of the language with the real registry and the real settings file, and the texts from this
// program's own resources, which are the updater's (whether they fit is measured by DialogTests). What Wine
// can't show: a locale from the user's location (GetGeoInfoW knows no such name there), so a derived locale
// comes from the debug value here.
#include "Ls/System/Util/PerUserAppDataPath.h"
#include "Ls/System/Win32/UniqueHandle.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/WideText.h"
#include "Updater/Language/Language.h"
#include "Updater/Language/LocaleMapping.h"
#include "Updater/Language/StringTable.h"
#include "Updater/Resources/Resource.h"

#include <optional>
#include <set>

using namespace LS::System;
using namespace std::string_literals;

namespace
{
/// A debug value; nothing takes it away.
void SetDebug(const wchar_t* name, const std::optional<std::wstring>& text, DWORD type = REG_SZ)
{
    const wchar_t* const key = L"SOFTWARE\\Larkspur\\Debugging";
    ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key, name);
    if (text)
        ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, name, type, text->c_str(),
                          static_cast<DWORD>((text->size() + 1) * sizeof(wchar_t)));
}

const std::wstring SettingsPath =
    Util::GetPerUserAppDataPath() + L"\\Larkspur\\Larkspur Games\\App\\Settings\\Settings.ini";

void PutSettings(const std::optional<std::string>& bytes)
{
    std::filesystem::create_directories(std::filesystem::path(SettingsPath).parent_path());
    std::filesystem::remove_all(SettingsPath);
    if (bytes)
        Tests::WriteBytes(SettingsPath, *bytes);
    ::WritePrivateProfileStringW(nullptr, nullptr, nullptr, SettingsPath.c_str()); // nothing kept in memory
}

std::string Setting(const std::string& value)
{
    return "[UISettings]\r\nlanguage_setting=" + value + "\r\n";
}

std::uint32_t LanguageOf(const std::wstring& locale)
{
    return MakeRef<CLanguage>(locale)->LanguageId();
}
} // namespace

TEST_CASE("each locale has its language")
{
    // The sources, then the interface language, "!" for an explicit locale; of derived ones only zh differs.
    const LANGID us = 0x0409, tw = 0x0404, cn = 0x0804, hk = 0x0C04, sg = 0x1004, uk = 0x0809;
    const std::wstring longText(10000, L'd');
    const std::tuple<std::wstring, LANGID, const wchar_t*> table[] = {
        {L"es-es", 1034, L"es-es"},
        {L"de;de-at;de-;de-" + longText, 1031, L"de"},
        {L"es;es-mx;es-es-x;es-ES", 3082, L"es"},
        {L"ca-es;eu;gl-es", 1034, L"es-es"},
        {L"fr-ca", 1036, L"fr"},
        {L"it", 1040, L"it"},
        {L"ko-kr", 1042, L"ko"},
        {L"pt;pt-pt", 1046, L"pt-br"},
        {L"en-us;EN-US;DE;De-de;deu;d; de;\"de\";de_de;zhx-cn;-de;-;;de\0-at;\xD800\xFFFF;"s + longText, 1033,
         L"en-us"}};
    for (const auto& [locales, language, normalised] : table)
        for (const std::wstring& locale : Tests::Split(locales, L';'))
            for (const bool chosen : {true, false})
            {
                const LanguageChoice choice = LanguageForLocale(locale, chosen, us);
                CHECK_MESSAGE(choice.LanguageId == language, locale.substr(0, 20));
                CHECK(choice.Locale == normalised);
            }
    // Chosen, the interface language has no say; derived, it alone decides.
    const std::tuple<const wchar_t*, bool, LANGID, LANGID> chinese[] = {
        {L"zh-cn", true, tw, 2052},  {L"zh-sg", true, sg, 1028},  {L"zh-CN", true, cn, 1028},
        {L"zh", true, cn, 1028},     {L"zh-tw", true, cn, 1028},  {L"zh-sg", false, sg, 2052},
        {L"zh-tw", false, cn, 2052}, {L"zh-cn", false, tw, 1028}, {L"zh-cn", false, hk, 1028},
        {L"zh-sg", false, uk, 1028}, {L"zh", false, us, 1028}};
    for (const auto& [locale, chosen, ui, language] : chinese)
        CHECK_MESSAGE(LanguageForLocale(locale, chosen, ui).LanguageId == language, std::wstring(locale)
                                                                                        << chosen << ui);
}

TEST_CASE("the locale comes from the first source that has one; what can't be read is passed over")
{
    const std::string utf16 =
        "\xFF\xFE[\0U\0I\0S\0e\0t\0t\0i\0n\0g\0s\0]\0\n\0l\0a\0n\0g\0u\0a\0g\0e\0_\0s\0e\0t\0t\0"
        "i\0n\0g\0=\0p\0t\0\n\0"s;
    const std::string korean = Setting("ko-kr"), other = "[Other]\r\nlanguage_setting=ko-kr\r\n";
    struct
    {
        std::wstring CommandLine;
        std::optional<std::string> Settings;
        std::optional<std::wstring> LocaleName, Override;
        std::uint32_t Language;
    } const table[] = {{L"de-de", korean, L"fr-fr", {}, 1031},
                       {L"DE-DE", korean, L"fr-fr", {}, 1033},
                       {std::wstring(10000, L'\"'), korean, L"fr-fr", {}, 1033},
                       {L"", korean, L"fr-fr", {}, 1042},
                       {L"", utf16, L"fr-fr", {}, 1046},
                       {L"", "[uisettings]\nLANGUAGE_SETTING = it", L"fr-fr", {}, 1040},
                       {L"", Setting("\"de-de\""), L"fr-fr", {}, 1031},
                       {L"", Setting("de-\"de"), L"fr-fr", {}, 1031},
                       {L"", Setting("EN-US"), L"fr-fr", {}, 1033},
                       {L"", Setting("zh-cn"), L"fr-fr", {}, 2052},
                       {L"", Setting("de-" + std::string(10000, 'd')), L"fr-fr", {}, 1031},
                       {L"", Setting(std::string(10000, 'd')), L"fr-fr", {}, 1033},
                       {L"", {}, L"fr-fr", {}, 1036},
                       {L"", "", L"fr-fr", {}, 1036},
                       {L"", Setting(""), L"fr-fr", {}, 1036},
                       {L"", other, L"fr-fr", {}, 1036},
                       {L"", "\xFF\xFE\x01", L"fr-fr", {}, 1036},
                       {L"", {}, L"", {}, 1033},
                       {L"de-de", korean, L"fr-fr", L"ko-kr", 1042},
                       {L"", {}, {}, L"it", 1040},
                       {L"de-de", {}, {}, L"", 1033},
                       {L"de-de", {}, {}, L"zh-cn", 2052},
                       {L"de-de", {}, {}, std::wstring(10000, L'-'), 1033}};
    for (const auto& row : table)
    {
        CAPTURE(&row - table);
        PutSettings(row.Settings);
        SetDebug(L"LocaleName", row.LocaleName);
        SetDebug(L"ResourceLocaleOverride", row.Override);
        CHECK(LanguageOf(row.CommandLine) == row.Language);
    }
    SetDebug(L"LocaleName", L"fr-fr");
    SetDebug(L"ResourceLocaleOverride", L"it", REG_BINARY); // no text
    PutSettings(korean);
    {
        const Win32::CFileHandle lock(
            ::CreateFileW(SettingsPath.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        CHECK(LanguageOf(L"") == 1036);
    }
    CHECK(LanguageOf(L"") == 1042);
    PutSettings(std::nullopt);
    SetDebug(L"LocaleName", L"zh-sg");
    CHECK(LanguageOf(L"") == LanguageForLocale(L"zh-sg", false, ::GetUserDefaultUILanguage()).LanguageId);
    SetDebug(L"LocaleName", {});
    SetDebug(L"ResourceLocaleOverride", {});
}

TEST_CASE("every text is there in every language, as its readers write it; a missing one is empty")
{
    // With a character set that has only what its readers write.
    const std::tuple<LANGID, const wchar_t*, UINT> table[] = {
        {1028, L"zh-tw", 950},  {1031, L"de-de", 1252}, {1033, L"en-us", 20127}, {1034, L"es-es", 1252},
        {1036, L"fr-fr", 1252}, {1040, L"it-it", 1252}, {1042, L"ko-kr", 949},   {1046, L"pt-br", 1252},
        {2052, L"zh-cn", 936},  {3082, L"es-mx", 1252}};
    std::set<std::wstring> notices;
    for (const auto& [id, locale, codePage] : table)
    {
        const auto language = MakeRef<CLanguage>(locale);
        CHECK(language->LanguageId() == id);
        for (std::uint16_t text = IDS_TITLE; text <= IDS_UPDATE_NOTICE; ++text)
        {
            const std::wstring content = language->GetText(text);
            CAPTURE(content);
            BOOL replaced = FALSE;
            char bytes[1000];
            CHECK(::WideCharToMultiByte(codePage, WC_NO_BEST_FIT_CHARS, content.c_str(), -1, bytes,
                                        sizeof(bytes), nullptr, &replaced) > 1);
            CHECK_FALSE(replaced);
            const bool english = content == MakeRef<CLanguage>(L"en-us")->GetText(text);
            CHECK((english == (id == 1033) || (id == 1031 && text == IDS_TITLE)));
        }
        notices.insert(language->GetText(IDS_UPDATE_NOTICE));
    }
    CHECK(notices.size() == 10); // also of the two kinds of Spanish, and of Chinese
    CHECK(MakeRef<CLanguage>(L"en-us")->GetText(IDS_UPDATE_PROMPT) ==
          L"There is an update available. Would you like to receive it?");
    for (const std::uint16_t id : {0, 1, 15, 16, 100, 108, 111, 112, 65535})
        CHECK(LoadStringTableText(nullptr, id, 1033).empty());
    for (const LANGID language : {0x0007, 0x080A, 0x0411, 0xFFFF}) // no language stands in for another
        CHECK(LoadStringTableText(nullptr, IDS_TITLE, language).empty());
}

TEST_CASE("a damaged block is read no further than it goes")
{
    const std::wstring whole = L"\1a\0\3bcd"s + std::wstring(12, L'\0') + L"\2yz", huge = L"\xFFFF"s + L"abc";
    const std::tuple<std::wstring, std::uint32_t, const wchar_t*> table[] = {
        {whole, 0, L"a"},
        {whole, 1, L""},
        {whole, 2, L"bcd"},
        {whole, 15, L"yz"},
        {whole, 16, L""},
        {whole, 0xFFFFFFFF, L""},
        {whole.substr(0, 6), 2, L""},
        {whole.substr(0, whole.size() - 1), 15, L""},
        {huge, 0, L""},
        {huge, 1, L""},
        {L"", 0, L""}};
    for (const auto& [block, entry, text] : table)
    {
        const std::vector<wchar_t> exact(block.begin(), block.end());
        CHECK(StringTableEntry(exact.data(), exact.size(), entry) == text);
    }
}
