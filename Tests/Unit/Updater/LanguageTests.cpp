// The choice of the language: the mapping as a table, then the sources it takes a locale from, with the real
// registry and the real settings file. What Wine can't show: a locale from the user's location (GetGeoInfoW
// knows no such name there), so a derived locale comes from the debug value here.
#include "Ls/System/Util/PerUserAppDataPath.h"
#include "Ls/System/Win32/UniqueHandle.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/WideText.h"
#include "Updater/Language/Language.h"
#include "Updater/Language/LocaleMapping.h"

#include <windows.h>

#include <filesystem>
#include <optional>

using namespace LS::System;
using namespace std::string_literals;

namespace
{
constexpr LANGID EnglishUS = 0x0409, EnglishUK = 0x0809, ChineseTW = 0x0404, ChineseCN = 0x0804,
                 ChineseHK = 0x0C04, ChineseSG = 0x1004;

constexpr wchar_t DebugKey[] = L"SOFTWARE\\Larkspur\\Debugging";

/// The debug values as one case needs them, and none of them afterwards.
class CDebugTexts
{
public:
    CDebugTexts() { Clear(); }
    CDebugTexts(const CDebugTexts&) = delete;
    ~CDebugTexts() { Clear(); }
    static void Clear()
    {
        ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, DebugKey, L"LocaleName");
        ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, DebugKey, L"ResourceLocaleOverride");
    }
    static void Set(const wchar_t* name, const std::optional<std::wstring>& text)
    {
        if (text)
            ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, DebugKey, name, REG_SZ, text->c_str(),
                              static_cast<DWORD>((text->size() + 1) * sizeof(wchar_t)));
    }
};

/// The user's settings file; one that was there before comes back.
class CSettingsFile
{
public:
    CSettingsFile()
    {
        std::filesystem::create_directories(std::filesystem::path(m_Path).parent_path());
        m_Before = Tests::ReadBytes(m_Path);
    }
    CSettingsFile(const CSettingsFile&) = delete;
    ~CSettingsFile() { Put(m_Before.empty() ? std::nullopt : std::optional(m_Before)); }
    void Put(const std::optional<std::string>& bytes) const
    {
        std::filesystem::remove_all(m_Path);
        if (bytes)
            Tests::WriteBytes(m_Path, *bytes);
        ::WritePrivateProfileStringW(nullptr, nullptr, nullptr, m_Path.c_str()); // nothing kept in memory
    }
    const std::wstring& Path() const { return m_Path; }

private:
    std::wstring m_Path =
        Util::GetPerUserAppDataPath() + L"\\Larkspur\\Larkspur Games\\App\\Settings\\Settings.ini";
    std::string m_Before;
};

/// As the system writes it: with its byte order mark.
std::string Utf16(const std::wstring& text)
{
    return "\xFF\xFE"s +
           std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t));
}

std::uint32_t LanguageOf(const std::wstring& locale)
{
    return MakeRef<CLanguage>(locale)->LanguageId();
}
} // namespace

TEST_CASE("each locale has its language")
{
    const std::wstring longText(10000, L'd');
    const struct
    {
        std::wstring Locale;
        bool Explicit;
        LANGID Interface;
        LANGID Language;
        const wchar_t* Normalised;
    } table[] = {
        {L"es-es", true, EnglishUS, 1034, L"es-es"},
        {L"es-es", false, EnglishUS, 1034, L"es-es"},
        {L"de", true, EnglishUS, 1031, L"de"},
        {L"de-at", false, EnglishUS, 1031, L"de"},
        {L"de-", true, EnglishUS, 1031, L"de"},
        {L"de-" + longText, true, EnglishUS, 1031, L"de"},
        {L"es", true, EnglishUS, 3082, L"es"},
        {L"es-mx", true, EnglishUS, 3082, L"es"},
        {L"es-es-x", true, EnglishUS, 3082, L"es"},
        {L"es-ES", true, EnglishUS, 3082, L"es"},
        {L"ca-es", true, EnglishUS, 1034, L"es-es"},
        {L"eu", false, EnglishUS, 1034, L"es-es"},
        {L"gl-es", true, EnglishUS, 1034, L"es-es"},
        {L"fr-ca", true, EnglishUS, 1036, L"fr"},
        {L"it", false, EnglishUS, 1040, L"it"},
        {L"ko-kr", true, EnglishUS, 1042, L"ko"},
        {L"pt", true, EnglishUS, 1046, L"pt-br"},
        {L"pt-pt", false, EnglishUS, 1046, L"pt-br"},
        // Chosen, the interface language has no say; derived, it alone decides.
        {L"zh-cn", true, ChineseTW, 2052, L"zh-cn"},
        {L"zh-sg", true, ChineseSG, 1028, L"zh"},
        {L"zh-CN", true, ChineseCN, 1028, L"zh"},
        {L"zh-cn-x", true, ChineseCN, 1028, L"zh"},
        {L"zh", true, ChineseCN, 1028, L"zh"},
        {L"zh-tw", true, ChineseCN, 1028, L"zh"},
        {L"zh-sg", false, ChineseSG, 2052, L"zh-cn"},
        {L"zh-tw", false, ChineseCN, 2052, L"zh-cn"},
        {L"zh-cn", false, ChineseTW, 1028, L"zh"},
        {L"zh-cn", false, ChineseHK, 1028, L"zh"},
        {L"zh-sg", false, EnglishUK, 1028, L"zh"}, // its sublanguage is 2, as that of the PRC
        {L"zh", false, EnglishUS, 1028, L"zh"},
        // Everything else is English.
        {L"en-us", true, ChineseCN, 1033, L"en-us"},
        {L"EN-US", true, EnglishUS, 1033, L"en-us"},
        {L"DE", true, EnglishUS, 1033, L"en-us"},
        {L"De-de", true, EnglishUS, 1033, L"en-us"},
        {L"deu", true, EnglishUS, 1033, L"en-us"},
        {L"d", true, EnglishUS, 1033, L"en-us"},
        {L" de", true, EnglishUS, 1033, L"en-us"},
        {L"\"de\"", true, EnglishUS, 1033, L"en-us"},
        {L"de_de", true, EnglishUS, 1033, L"en-us"},
        {L"zhx-cn", true, EnglishUS, 1033, L"en-us"},
        {L"-de", true, EnglishUS, 1033, L"en-us"},
        {L"-", true, EnglishUS, 1033, L"en-us"},
        {L"", false, EnglishUS, 1033, L"en-us"},
        {L"de\0-at"s, true, EnglishUS, 1033, L"en-us"},
        {L"\xD800\xFFFF", true, EnglishUS, 1033, L"en-us"},
        {longText, true, EnglishUS, 1033, L"en-us"},
    };
    for (const auto& row : table)
    {
        CAPTURE(row.Locale.substr(0, 20));
        CAPTURE(row.Explicit);
        CAPTURE(row.Interface);
        const LanguageChoice choice = LanguageForLocale(row.Locale, row.Explicit, row.Interface);
        CHECK(choice.LanguageId == row.Language);
        CHECK(choice.Locale == row.Normalised);
    }
}

TEST_CASE("the locale comes from the first source that has one")
{
    const CDebugTexts debug;
    const CSettingsFile settings;
    const std::string korean = "[UISettings]\r\nlanguage_setting=ko-kr\r\n";
    const std::string longText(10000, 'd');
    const struct
    {
        const char* Name;
        std::wstring CommandLine;
        std::optional<std::string> Settings;
        std::optional<std::wstring> LocaleName, Override;
        std::uint32_t Language;
    } table[] = {
        {"the command line is first", L"de-de", korean, L"fr-fr", {}, 1031},
        {"in its own case", L"DE-DE", korean, L"fr-fr", {}, 1033},
        {"whatever it holds", std::wstring(10000, L'\"'), korean, L"fr-fr", {}, 1033},
        {"then the settings", L"", korean, L"fr-fr", {}, 1042},
        {"settings in UTF-16", L"", Utf16(L"[UISettings]\r\nlanguage_setting=pt-pt\r\n"), {}, {}, 1046},
        {"a UTF-16 neighbour",
         L"",
         Utf16(L"[UISettings]\r\nn=\xD55C\r\nlanguage_setting=it-it\r\n"),
         {},
         {},
         1040},
        {"no line end", L"", "[UISettings]\nlanguage_setting=it", L"fr-fr", {}, 1040},
        {"names in any case", L"", "[uisettings]\r\nLANGUAGE_SETTING = it\r\n", L"fr-fr", {}, 1040},
        {"a quoted setting", L"", "[UISettings]\r\nlanguage_setting=\"de-de\"\r\n", L"fr-fr", {}, 1031},
        {"a quote inside", L"", "[UISettings]\r\nlanguage_setting=de-\"de\r\n", L"fr-fr", {}, 1031},
        {"upper case is English", L"", "[UISettings]\r\nlanguage_setting=EN-US\r\n", L"fr-fr", {}, 1033},
        {"a chosen zh-tw", L"", "[UISettings]\r\nlanguage_setting=zh-tw\r\n", L"fr-fr", {}, 1028},
        {"a chosen zh-cn", L"", "[UISettings]\r\nlanguage_setting=zh-cn\r\n", L"fr-fr", {}, 2052},
        {"a very long setting",
         L"",
         "[UISettings]\r\nlanguage_setting=de-" + longText + "\r\n",
         L"fr-fr",
         {},
         1031},
        {"a long wrong one",
         L"",
         "[UISettings]\r\nlanguage_setting=" + longText + "\r\n",
         L"fr-fr",
         {},
         1033},
        {"no settings file", L"", {}, L"fr-fr", {}, 1036},
        {"an empty file", L"", "", L"fr-fr", {}, 1036},
        {"an empty setting", L"", "[UISettings]\r\nlanguage_setting=\r\n", L"fr-fr", {}, 1036},
        {"another section", L"", "[Other]\r\nlanguage_setting=ko-kr\r\n", L"fr-fr", {}, 1036},
        {"garbage", L"", "\xFF\xFE\x01", L"fr-fr", {}, 1036},
        {"an empty name is one", L"", {}, L"", {}, 1033},
        {"the override is last", L"de-de", korean, L"fr-fr", L"ko-kr", 1042},
        {"also over nothing", L"", {}, {}, L"it", 1040},
        {"an empty override too", L"de-de", {}, {}, L"", 1033},
        {"explicit stays explicit", L"de-de", {}, {}, L"zh-cn", 2052},
        {"a hostile override", L"de-de", {}, {}, std::wstring(10000, L'-'), 1033},
    };
    for (const auto& row : table)
    {
        CAPTURE(row.Name);
        settings.Put(row.Settings);
        CDebugTexts::Clear();
        CDebugTexts::Set(L"LocaleName", row.LocaleName);
        CDebugTexts::Set(L"ResourceLocaleOverride", row.Override);
        CHECK(LanguageOf(row.CommandLine) == row.Language);
    }
}

TEST_CASE("a source that can't be read is passed over")
{
    const CDebugTexts debug;
    const CSettingsFile settings;

    settings.Put("[UISettings]\r\nlanguage_setting=ko-kr\r\n");
    CDebugTexts::Set(L"LocaleName", L"fr-fr");
    {
        const Win32::CFileHandle lock(
            ::CreateFileW(settings.Path().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        REQUIRE(lock);
        CHECK(LanguageOf(L"") == 1036);
    }
    CHECK(LanguageOf(L"") == 1042);

    settings.Put(std::nullopt);
    std::filesystem::create_directory(settings.Path());
    CHECK(LanguageOf(L"") == 1036);

    // Values that are no texts.
    const DWORD number = 7;
    ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, DebugKey, L"ResourceLocaleOverride", REG_DWORD, &number,
                      sizeof(number));
    CHECK(LanguageOf(L"") == 1036);
    ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, DebugKey, L"LocaleName", REG_BINARY, &number, 3);
    CHECK_FALSE(MakeRef<CLanguage>(L"")->GetText(101).empty());
}

TEST_CASE("a derived zh follows the user's interface language")
{
    const CDebugTexts debug;
    const CSettingsFile settings;
    settings.Put(std::nullopt);
    CDebugTexts::Set(L"LocaleName", L"zh-sg");
    CHECK(LanguageOf(L"") == LanguageForLocale(L"zh-sg", false, ::GetUserDefaultUILanguage()).LanguageId);
    CDebugTexts::Set(L"ResourceLocaleOverride", L"zh-cn"); // an override makes nothing explicit
    CHECK(LanguageOf(L"") == LanguageForLocale(L"zh-cn", false, ::GetUserDefaultUILanguage()).LanguageId);
}
