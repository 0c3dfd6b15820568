#include "Ls/System/Win32/RegistryKey.h"
#include "Tests/Support/Caught.h"

#include <windows.h>

#include <atomic>
#include <thread>

using namespace LS::System::Win32;
using namespace std::string_literals;

namespace
{
const std::wstring SubKey = L"Software\\LsRegistryTests", Path = L"HKCU\\" + SubKey;

void Put(const wchar_t* name, DWORD type, const std::string& bytes)
{
    ::RegSetKeyValueW(HKEY_CURRENT_USER, SubKey.c_str(), name, type, bytes.data(),
                      static_cast<DWORD>(bytes.size()));
}
} // namespace

TEST_CASE("keys are found by either name of their root, and texts are read whole whatever their terminators")
{
    ::RegDeleteTreeW(HKEY_CURRENT_USER, SubKey.c_str());
    const CRegistryKey key(Path, false);
    key.SetString(L"", std::wstring(100000, L'\uD55C'));
    for (const wchar_t* root : {L"HKEY_CURRENT_USER\\", L"hkcu\\", L"hKey_Current_User\\"})
        CHECK(CRegistryKey(root + SubKey, true).GetString(L"", L"") == std::wstring(100000, L'\uD55C'));
    for (const std::wstring& path :
         Tests::Split(L"HKLM,hkey_local_machine\\,HKCR,HKCC,HKU,HKLM\\Software"s, L','))
        CHECK_MESSAGE(CRegistryKey::KeyExists(path), path);
    for (const std::wstring& path :
         Tests::Split(L"HKXX,HKXX\\Software,,\\Software,HKLMX\\a,HKLM\\LsNone"s, L','))
        CHECK_MESSAGE(!CRegistryKey::KeyExists(path), path);
    const std::pair<std::string, std::wstring> table[] = {
        {"", L""}, {"\0\0"s, L""}, {"a\0\0\0"s, L"a"}, {"a\0b\0"s, L"ab"}, {"a\0b"s, L"a"}, {"a", L""}};
    for (const auto& [bytes, text] : table)
        for (const DWORD type : {REG_SZ, REG_EXPAND_SZ})
        {
            Put(L"v", type, bytes);
            CHECK(key.GetString(L"v", L"default") == text);
        }
}

TEST_CASE("a missing value gives the default, what can't be read or written an exception")
{
    const CRegistryKey key(Path, false), readOnly(Path, true);
    for (const auto& [name, bytes] :
         {std::pair{L"number", "\x01\x02\x03\xFF"}, {L"short", "12"}, {L"long", "12345678"}})
        Put(name, REG_DWORD, bytes);
    key.SetString(L"text", L"123");
    CHECK((key.ValueExists(L"text") && !key.ValueExists(L"none")));
    CHECK(key.GetString(L"none", L"default") == L"default");
    CHECK(key.GetUint32(L"number", 5) == 0xFF030201);
    for (const wchar_t* name : {L"none", L"short", L"long"})
        CHECK(key.GetUint32(name, 5) == 5);
    const std::wstring missing = L"HKCU\\Software\\LsNone";
    const std::wstring create = L"RegCreateKeyEx failure creating registry key '";
    const std::wstring type = L"Unexpected type for registry value '";
    Tests::CheckFailures(
        {{[] { CRegistryKey(L"HKXX\\a", true); }, L"Base key in 'HKXX\\a'is not a predefined key."},
         {[&] { CRegistryKey(missing, true); }, create + missing + L"'.", "", ERROR_FILE_NOT_FOUND},
         {[&] { key.GetString(L"number", L""); }, type + L"number'. REG_SZ or REG_EXPAND_SZ expected."},
         {[&] { key.GetUint32(L"text", 0); }, type + L"text'. REG_DWORD expected."},
         {[&] { readOnly.SetString(L"x", L""); }, L"RegSetValueEx failure writing registry value 'x'"}});
    // Deleted while it is open: its values count as missing.
    ::RegDeleteTreeW(HKEY_CURRENT_USER, SubKey.c_str());
    CHECK((key.GetString(L"text", L"gone") == L"gone" && key.GetUint32(L"number", 6) == 6));
}

TEST_CASE("a value that grows while it is read is read again")
{
    const CRegistryKey key(Path, false);
    const std::wstring brief(3, L'b'), wordy(5000, L'w');
    key.SetString(L"v", brief);
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        for (bool turn = false; !stop; turn = !turn)
            key.SetString(L"v", turn ? wordy : brief);
    });
    int bad = 0;
    for (int i = 0; i < 3000; ++i)
    {
        const std::wstring text = key.GetString(L"v", L"");
        bad += text != brief && text != wordy;
    }
    stop = true;
    writer.join();
    CHECK(bad == 0);
    ::RegDeleteTreeW(HKEY_CURRENT_USER, SubKey.c_str());
}
