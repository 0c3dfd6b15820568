#include "Ls/System/ExitCodeException.h"
#include "Ls/System/Util/PerUserAppDataPath.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/WideText.h"
#include "Updater/Fetch/PatchPath.h"

#include <doctest/doctest.h>

#include <cstdlib>

using namespace std::string_literals;
using Tests::ReadBytes;
using Tests::WriteBytes;

namespace
{
/// The product's data folder, of a name of its own and gone at the end.
struct DataFolder
{
    const std::wstring Product = L"UnitTest-" + std::to_wstring(::GetCurrentProcessId());
    const std::wstring Path =
        LS::System::Util::GetPerUserAppDataPath() + L"\\Larkspur\\Updater\\" + Product + L"\\";

    DataFolder() { std::filesystem::remove_all(Path); }
    ~DataFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(Path, ignored);
    }
};

/// Exit code that the action throws; 0 for none.
template <class Action>
std::int32_t CodeOf(Action action)
{
    try
    {
        action();
        return 0;
    }
    catch (const LS::System::CExitCodeException& exception)
    {
        return exception.ExitCode();
    }
}
} // namespace

TEST_CASE("percent codes are decoded, everything else is kept")
{
    const std::pair<std::string, std::string> table[] = {
        {"", ""},
        {"a+b", "a+b"},
        {"%41", "A"},
        {"%4a%4A%e9", "JJ\xE9"},
        {"%G1%1G% 1%-1", "%G1%1G% 1%-1"},
        {"a%", "a%"},
        {"a%4", "a%4"},
        {"%%41", "%A"},
        {"%2541", "%41"},
        {"%00x", "\0x"s},
        {"%\x00\x31"s, "%\x00\x31"s},
        {"%x41", "%x41"},
    };
    for (const auto& [text, decoded] : table)
    {
        CAPTURE(text);
        CHECK(PercentDecode(text) == decoded);
    }
}

TEST_CASE("the file name is the decoded URL's last component before the query")
{
    const std::pair<std::string, std::wstring> table[] = {
        {"http://h/dir/Patch%20A.exe?x=1/y", L"Patch A.exe"},
        {"http://h/dir/", L""},
        {"http://h/dir/?a", L""},
        {"", L""},
        {"Patch.exe", L"Patch.exe"},
        {"http://h/a%2Fb.exe", L"b.exe"},
        {"http://h/a%3Fb.exe", L"a"},
        {"http://h/a.exe#part", L"a.exe#part"},
        {"http://h/..%5Ca.exe", L"..\\a.exe"},
        {"http://h/a%00b", L"a\0b"s},
        {"http://h/%D0%9F", L"\x00D0\x009F"}, // not read as UTF-8
    };
    for (const auto& [url, name] : table)
    {
        CAPTURE(url);
        CHECK(PatchFileName(url) == name);
    }
    // The same as the runtime's conversion.
    for (int i = 1; i < 256; ++i)
    {
        if (i == '/' || i == '?' || i == '%')
            continue;
        const char byte[] = {static_cast<char>(i), '\0'};
        wchar_t wide[2] = {};
        REQUIRE(std::mbstowcs(wide, byte, 2) == 1);
        CHECK(PatchFileName(byte) == wide);
    }
}

TEST_CASE("a patch's place is made ready: folder there, old file gone")
{
    const DataFolder data;
    std::wstring path;
    const auto setUp = [&] { SetupFilePathAndName(data.Product, path, "http://h/Patch%20A.exe?q"); };
    CHECK(CodeOf(setUp) == 0);
    CHECK(path == data.Path + L"Patch A.exe");
    REQUIRE(std::filesystem::is_directory(data.Path));

    WriteBytes(path, "old");
    WriteBytes(data.Path + L"other", "kept");
    CHECK(CodeOf(setUp) == 0);
    CHECK(!std::filesystem::exists(path));
    CHECK(ReadBytes(data.Path + L"other") == "kept");

    WriteBytes(path, "locked");
    ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY);
    CHECK(CodeOf(setUp) == 1025);
    ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    CHECK(ReadBytes(path) == "locked");

    // No file name: the folder itself.
    CHECK(CodeOf([&] { SetupFilePathAndName(data.Product, path, "http://h/dir/"); }) == 1025);
    CHECK(path == data.Path);
    CHECK(std::filesystem::is_directory(data.Path));
}

TEST_CASE("a name that leads out of the data folder fails the fetch and touches nothing")
{
    const DataFolder data;
    const std::wstring outside = data.Path + L"..\\UnitTest-victim.exe";
    std::filesystem::create_directories(data.Path + L"..");
    WriteBytes(outside, "victim");
    for (const std::string name :
         {"..%5CUnitTest-victim.exe", "C%3A%5Cx", "C%3Ax", "a.exe%3As", "CON", "nul.exe", "com1", "LPT9.x",
          "..", ".", "a.", "a%20", "a%00.exe", "%01", "a%7Cb", "a%2A", "%22a", "%5C%5C.%5Cx"})
    {
        CAPTURE(name);
        std::wstring path = L"untouched";
        CHECK(CodeOf([&] { SetupFilePathAndName(data.Product, path, "http://h/" + name); }) == 1027);
        CHECK(path == L"untouched");
    }
    CHECK(!std::filesystem::exists(data.Path));
    CHECK(ReadBytes(outside) == "victim");
    std::filesystem::remove(outside);
}
