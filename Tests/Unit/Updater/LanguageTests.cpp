// The choice of the language with the real registry and the real settings file, and the texts from this
// program's own resources, which are the updater's. What Wine can't show: a locale from the user's location
// (GetGeoInfoW knows no such name there), so a derived locale comes from the debug value here.
#include "Ls/System/Util/PerUserAppDataPath.h"
#include "Ls/System/Win32/UniqueHandle.h"
#include "Tests/Support/Platform.h"
#include "Tests/Unit/Updater/Common.h"
#include "Updater/Language/Language.h"
#include "Updater/Language/LocaleMapping.h"
#include "Updater/Resources/Resource.h"

#include <set>

using LS::System::MakeRef;
using Text = std::optional<std::wstring>;

TEST_CASE("the locale comes from the first source that has one; what can't be read is passed over" *
          Tests::NeedsAdministrator())
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
    // clang-format off
    CheckTable<std::uint32_t, std::uint32_t>(std::identity(), {
        {from(korean), 1042}, {from("\xFF\xFE[\0U\0I\0S\0e\0t\0"s), 1036}, {from(file("zh-cn")), 2052},
        {from(file("\"de-de\"")), 1031}, {from(file("EN-US")), 1033}, {from(file("de-" + longText)), 1031},
        {from("none"), 1036}, {from(file("")), 1036}, {from(korean, L"de-de"), 1031},
        {from(korean, L"DE-DE"), 1033}, {from(korean, L"de-de", L"ko-kr"), 1042},
        {from("none", L"", {}, L""), 1033}, {from(korean, L"", L"it", L"it", REG_BINARY), 1042},
        {from(korean, L"", {}, L"fr-fr", REG_SZ, 0), 1036}, // someone else's alone
        {from("none", L"es-mx"), 3082}, {from("none", L"gl-es"), 1034},
        {from("none", L"ca-es"), 1034}, {from("none", L"eu"), 1034}, {from("none", L"", {}, L"zh-cn"), 1028}});
    // A Chinese that nobody chose is the interface's: of the PRC, Singapore and Taiwan; not British English.
    const auto ofInterface = [](LANGID id) { return LanguageForLocale(L"zh-cn", false, id).LanguageId; };
    CheckTable<LANGID, std::uint32_t>(
        ofInterface, {{0x0804, 2052}, {0x1004, 2052}, {0x0404, 1028}, {0x0809, 1028}});
    // clang-format on
    std::filesystem::remove(path);
}

TEST_CASE("every text is there in every language")
{
    std::set<std::wstring> notices;
    for (const wchar_t* locale :
         {L"zh-tw", L"de-de", L"en-us", L"es-es", L"fr-fr", L"it-it", L"ko-kr", L"pt-br", L"zh-cn", L"es-mx"})
    {
        const auto language = MakeRef<CLanguage>(locale);
        for (std::uint16_t text = IDS_TITLE; text <= IDS_UPDATE_NOTICE; ++text)
            CHECK(!language->GetText(text).empty());
        notices.insert(language->GetText(IDS_UPDATE_NOTICE));
    }
    CHECK(notices.size() == 10); // also of the two kinds of Spanish, and of Chinese
}
