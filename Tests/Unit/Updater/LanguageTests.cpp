// The choice of the language with the real registry and the real settings file, and the texts from this
// program's own resources, which are the updater's (whether they fit is measured by DialogTests). What Wine
// can't show: a locale from the user's location (GetGeoInfoW knows no such name there), so a derived locale
// comes from the debug value here.
#include "Ls/System/Util/PerUserAppDataPath.h"
#include "Ls/System/Win32/UniqueHandle.h"
#include "Tests/Unit/Updater/Common.h"
#include "Updater/Language/Language.h"
#include "Updater/Language/LocaleMapping.h"
#include "Updater/Language/StringTable.h"
#include "Updater/Resources/Resource.h"

#include <set>

using LS::System::MakeRef;
using Text = std::optional<std::wstring>;

TEST_CASE("each locale has its language")
{
    // Chosen or derived; the user's interface language; resource language, normalised locale and the locales.
    // clang-format off
    const std::tuple<std::string, LANGID, std::wstring> table[] = {{"cd", 0x0409,
        L"1034;es-es;es-es;ca-es;eu;gl-es"}, {"cd", 0x0409, L"1031;de;de;de-at;de-"},
        {"cd", 0x0409, L"3082;es;es;es-mx;es-es-x;es-ES"}, {"cd", 0x0409, L"1036;fr;fr-ca"},
        {"cd", 0x0409, L"1040;it;it"}, {"cd", 0x0409, L"1042;ko;ko-kr"},
        {"cd", 0x0804, L"1046;pt-br;pt;pt-pt"}, {"c", 0x0404, L"2052;zh-cn;zh-cn"},
        {"c", 0x0804, L"1028;zh;zh-sg;zh-CN;zh;zh-tw"}, {"d", 0x1004, L"2052;zh-cn;zh-sg;zh-tw;zh"},
        {"d", 0x0804, L"2052;zh-cn;zh-tw;zh-cn"}, {"d", 0x0404, L"1028;zh;zh-cn;zh"},
        {"d", 0x0C04, L"1028;zh;zh-cn"}, {"d", 0x0809, L"1028;zh;zh-sg"}, {"d", 0x0409, L"1028;zh;zh"},
        {"cd", 0x0804, L"1033;en-us;en-us;EN-US;DE;De-de;"
        L"deu;d; de;\"de\";de_de;zhx-cn;-de;-;;de\0-at;\xD800\xFFFF"s}};
    // clang-format on
    for (const auto& [kinds, interfaceLanguage, words] : table)
        for (const std::wstring& locale : Tests::Split(words.substr(words.find(L';', 5) + 1), L';'))
            for (const char kind : kinds)
            {
                const LanguageChoice choice = LanguageForLocale(locale, kind == 'c', interfaceLanguage);
                CHECK(words.find(std::to_wstring(choice.LanguageId) + L";" + choice.Locale + L";") == 0);
            }
}

TEST_CASE("the locale comes from the first source that has one; what can't be read is passed over")
{
    const std::wstring path = LS::System::Util::GetPerUserAppDataPath() +
                              L"\\Larkspur\\Larkspur Games\\App\\Settings\\Settings.ini";
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    const auto from = [&](const std::string& settings, const std::wstring& commandLine = L"",
                          const Text& replacement = {}, const Text& derived = L"fr-fr", DWORD type = REG_SZ,
                          DWORD share = FILE_SHARE_READ) {
        const std::wstring key = L"SOFTWARE\\Larkspur\\Debugging";
        const Tests::CTemporaryValue a(HKEY_LOCAL_MACHINE, key, L"LocaleName", derived, type);
        const Tests::CTemporaryValue b(HKEY_LOCAL_MACHINE, key, L"ResourceLocaleOverride", replacement, type);
        if (std::filesystem::remove(path); settings != "none")
            Tests::WriteBytes(path, settings);
        ::WritePrivateProfileStringW(nullptr, nullptr, nullptr, path.c_str()); // nothing kept in memory
        const LS::System::Win32::CFileHandle held(
            ::CreateFileW(path.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, 0, nullptr));
        return MakeRef<CLanguage>(commandLine)->LanguageId();
    };
    const auto file = [](const std::string& value) { return "[UISettings]\r\nlanguage_setting=" + value; };
    const std::string korean = file("ko-kr"), longText(10000, 'd');
    std::string utf16 = "\xFF\xFE";
    for (const char c : file("pt"))
        (utf16 += c) += '\0';
    // clang-format off
    // The last ones: no texts; a file that is someone else's alone; the interface language.
    CheckTable<std::uint32_t, std::uint32_t>(std::identity(), {
        {from(korean), 1042}, {from(utf16), 1046}, {from("[uisettings]\nLANGUAGE_SETTING = it"), 1040},
        {from(file("zh-cn")), 2052}, {from(file("\"de-de\"")), 1031}, {from(file("de-\"de")), 1031},
        {from(file("EN-US")), 1033}, {from(file("de-" + longText)), 1031}, {from(file(longText)), 1033},
        {from("none"), 1036}, {from(""), 1036}, {from(file("")), 1036}, {from("\xFF\xFE\1"), 1036},
        {from("[Other]\r\nlanguage_setting=ko-kr"), 1036}, {from(korean, L"de-de"), 1031},
        {from(korean, L"DE-DE"), 1033}, {from(korean, std::wstring(10000, L'"')), 1033},
        {from(korean, L"", L"it"), 1040}, {from(korean, L"de-de", L"ko-kr"), 1042},
        {from(korean, L"de-de", L""), 1033}, {from("none", L"de-de", L"zh-cn"), 2052},
        {from(korean, L"", L"zh"), 1028}, {from("none", L"", std::wstring(10000, L'-')), 1033},
        {from("none", L"", {}, L""), 1033},
        {from("none", L"", {}, L"it"), 1040}, {from(korean, L"", L"it", L"it", REG_BINARY), 1042},
        {from(korean, L"", {}, L"fr-fr", REG_SZ, 0), 1036}, {from("none", L"", {}, L"zh-cn"),
         LanguageForLocale(L"zh-cn", false, ::GetUserDefaultUILanguage()).LanguageId}});
    // clang-format on
    std::filesystem::remove(path);
}

TEST_CASE("every text is there in every language, as its readers write it; a missing one is empty")
{
    // clang-format off
    // With a character set of what its readers write.
    const std::tuple<LANGID, const wchar_t*, UINT> table[] = {
        {1028, L"zh-tw", 950}, {1031, L"de-de", 1252}, {1033, L"en-us", 20127}, {1034, L"es-es", 1252},
        {1036, L"fr-fr", 1252}, {1040, L"it-it", 1252}, {1042, L"ko-kr", 949}, {1046, L"pt-br", 1252},
        {2052, L"zh-cn", 936}, {3082, L"es-mx", 1252}};
    // clang-format on
    std::set<std::wstring> notices;
    for (const auto& [id, locale, codePage] : table)
        for (std::uint16_t text = IDS_TITLE; text <= IDS_UPDATE_NOTICE; ++text)
        {
            const std::wstring content = MakeRef<CLanguage>(locale)->GetText(text);
            BOOL replaced = FALSE;
            char bytes[1000];
            const int size = ::WideCharToMultiByte(codePage, WC_NO_BEST_FIT_CHARS, content.c_str(), -1, bytes,
                                                   1000, nullptr, &replaced);
            CHECK_MESSAGE((size > 1 && !replaced), content);
            const bool english = content == LoadStringTableText(nullptr, text, 1033);
            CHECK((english == (id == 1033) || (id == 1031 && text == IDS_TITLE)));
            notices.insert(text == IDS_UPDATE_NOTICE ? content : L"");
        }
    CHECK(notices.size() == 11); // also of the two kinds of Spanish, and of Chinese
    CHECK(LoadStringTableText(nullptr, IDS_UPDATE_PROMPT, 1033) ==
          L"There is an update available. Would you like to receive it?");
    for (const std::uint16_t id : {0, 1, 16, 100, 108, 112, 65535})
        CHECK(LoadStringTableText(nullptr, id, 1033).empty());
    for (const LANGID other : {0x0007, 0x080A, 0xFFFF}) // none stands in for another
        CHECK(LoadStringTableText(nullptr, IDS_TITLE, other).empty());
}
