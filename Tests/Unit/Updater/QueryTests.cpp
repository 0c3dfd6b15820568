#include "Ls/System/Io/Path.h"
#include "Tests/Support/TempFolder.h"
#include "Updater/Query/GetPatchURL.h"
#include "Updater/Query/ProductVersion.h"
#include "Updater/Query/UpdateAnswer.h"

#include <windows.h>

#include <doctest/doctest.h>

#include <cstring>

using namespace std::string_literals;

TEST_CASE("the patch URL is picked out of the answer, or the fault is named; the query's URL escapes nothing")
{
    const std::tuple<std::string, std::int32_t, std::string> table[] = {
        {"<string xmlns=\"http://x/\">http://x/y.exe</string>", 0, "http://x/y.exe"},
        {"<string> \r\n u&amp;amp;b </string>", 0, " \r\n u&amp;amp;b "},
        {"<string></string>", 0, ""},
        {"<string xmlns=\"http://x/\" />", 0, ""},
        {"<string/>", 0, ""},
        {"<a><string>one</string><string>two</string></a>", 0, "one"},
        // "<string>" is looked for first, wherever it stands.
        {"<string a=\"1\">one</string><string>two</string>", 0, "two"},
        {"<strings>one</strings>", 0, "one"},
        {"<string>a<b/>c</string>", 0, "a<b/>c"},
        {"<string>a<b/>c", 0, ""},
        {"<string>\0a</string>"s, 0, "\0a"s},
        {"", 774, ""},
        {"<String>u</String>", 774, ""},
        {"<string xmlns=\"http://x/\"", 775, ""},
        {"<string>http://x/y.exe", 776, ""},
        {"<string a=\"1\">http://x/y.exe<", 776, ""}};
    for (const auto& [answer, code, wanted] : table)
    {
        std::string url = code == 0 ? "before" : "";
        CHECK(ParseUpdateAnswer("<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n" + answer, url) == code);
        CHECK(url == wanted);
    }
    for (const std::string begin : {"", "<?xm", "\xEF\xBB\xBF<?xml?>", "\r\n<?xml?>", "<?XML?>", "<html>"})
    {
        std::string url;
        CHECK(ParseUpdateAnswer(begin + (begin.size() > 4 ? "<string>u</string>" : ""), url) == 773);
    }
    CHECK(UpdateQueryURL("h:81", {L"A &|\u00E9", "2.1.0.7", "", "", true}) ==
          "http://h:81/Update.asmx/GetUpdate2?parameters=AppName:A &|\xC3\xA9|Version:2.1.0.7");
    CHECK(UpdateQueryURL("h", {L"A", "0", "", "", false}) ==
          "http://h/Update.asmx/GetUpdate2?parameters=AppName:A|Version:0|throttle:0");
}

TEST_CASE("the version is the product version of the file's resource, or 0; BlueStacks' is the registered "
          "one, or empty")
{
    const Tests::CTempFolder folder(L"\u0424\u0430\u0439\u043B");
    const std::wstring path = folder.Path(L"client.exe");
    std::filesystem::copy_file(LS::System::IO::ProgramPath(), path);
    Tests::WriteBytes(folder.Path(L"text.exe"), "not a program");
    for (const std::wstring& none :
         {std::wstring(), folder.Path(L"missing.exe"), folder.Path(), folder.Path(L"text.exe")})
        CHECK(FileProductVersion(none) == "0");
    // A root block without children: name, padding, fixed information.
    VS_FIXEDFILEINFO info = {};
    info.dwSignature = VS_FFI_SIGNATURE;
    info.dwStrucVersion = VS_FFI_STRUCVERSION;
    info.dwProductVersionMS = 0x0002FFFF;
    info.dwProductVersionLS = 7;
    const std::string fixed(reinterpret_cast<const char*>(&info), sizeof(info));
    std::string good = "\x5C\0\x34\0\0\0V\0S\0_\0V\0E\0R\0S\0I\0O\0N\0_\0I\0N\0F\0O\0\0\0\0\0"s + fixed,
                foreign = good;
    foreign[40] = 1;
    for (const std::string& resource :
         {good, foreign, good.substr(0, 3), std::string(200, '\xFF'), std::string()})
    {
        const HANDLE update = ::BeginUpdateResourceW(path.c_str(), TRUE);
        std::string bytes = resource;
        if (!bytes.empty())
            ::UpdateResourceW(update, MAKEINTRESOURCEW(16), MAKEINTRESOURCEW(1), 0x409, bytes.data(),
                              static_cast<DWORD>(bytes.size()));
        REQUIRE(::EndUpdateResourceW(update, FALSE));
        CHECK(FileProductVersion(path) == (resource == good ? "2.65535.0.7" : "0"));
    }
    const wchar_t* const key = L"SOFTWARE\\BlueStacks";
    RunOptions options;
    options.IsBlueStacks = true;
    options.FromFilePath = path;
    ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, key);
    CHECK(GetProductVersion(options) == "");
    const wchar_t version[] = L"4.2.\u00E9";
    ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, L"Version", REG_SZ, version, sizeof(version));
    CHECK(GetProductVersion(options) == "4.2.\xC3\xA9");
    ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, key);
}
