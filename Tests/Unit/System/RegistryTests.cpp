#include "Ls/System/Win32/RegistryKey.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/WideText.h"

#include <windows.h>

#include <doctest/doctest.h>

#include <atomic>
#include <functional>
#include <thread>

using namespace LS::System;
using namespace LS::System::Win32;
using namespace std::string_literals;

namespace
{
/// A key of the tests' own, gone afterwards.
class CTestKey
{
public:
    CTestKey() { ::RegDeleteTreeW(HKEY_CURRENT_USER, SubKey); }
    CTestKey(const CTestKey&) = delete;
    ~CTestKey() { ::RegDeleteTreeW(HKEY_CURRENT_USER, SubKey); }

    static void Put(const wchar_t* name, DWORD type, const void* data, std::size_t size)
    {
        ::RegSetKeyValueW(HKEY_CURRENT_USER, SubKey, name, type, data, static_cast<DWORD>(size));
    }

    static constexpr wchar_t SubKey[] = L"Software\\LsRegistryTests";
    static inline const std::wstring Path = L"HKCU\\Software\\LsRegistryTests";
};
} // namespace

TEST_CASE("a key is opened by the long and the short name of its root, in any case")
{
    const CTestKey cleaner;
    CRegistryKey(CTestKey::Path, false).SetString(L"Name", L"\u0416 \uD55C");
    for (const std::wstring& root : {L"HKEY_CURRENT_USER"s, L"hkcu"s, L"hKey_Current_User"s})
        CHECK(CRegistryKey(root + L"\\Software\\LsRegistryTests", true).GetString(L"Name", L"") ==
              L"\u0416 \uD55C");

    const std::pair<std::wstring, bool> table[] = {{L"HKLM", true},
                                                   {L"hkey_local_machine\\", true},
                                                   {L"HKCR", true},
                                                   {L"HKCC", true},
                                                   {L"HKU", true},
                                                   {L"HKXX", false},
                                                   {L"HKXX\\Software", false},
                                                   {L"", false},
                                                   {L"\\Software", false},
                                                   {L"HKLMX\\Software", false},
                                                   {L"HKLM\\Software", true},
                                                   {L"HKLM\\Software\\LsNoSuchKey", false},
                                                   {CTestKey::Path, true}};
    for (const auto& [path, exists] : table)
    {
        CAPTURE(path);
        CHECK(CRegistryKey::KeyExists(path) == exists);
    }
    CHECK(CRegistryKey(L"HKLM", true).ValueExists(L"LsNoSuchValue") == false);
}

TEST_CASE("a key that can't be opened is named in the failure, with the system's error")
{
    const auto unknown = Tests::Caught([] { CRegistryKey(L"HKXX\\a", true); });
    REQUIRE(unknown);
    CHECK(unknown->Message() == L"Base key in 'HKXX\\a'is not a predefined key.");
    CHECK(unknown->Function() == "LS::System::Win32::CRegistryKey::CRegistryKey");
    const auto missing = Tests::Caught([] { CRegistryKey(L"HKCU\\Software\\LsNoSuchKey", true); });
    REQUIRE(missing);
    CHECK(missing->Message() ==
          L"RegCreateKeyEx failure creating registry key 'HKCU\\Software\\LsNoSuchKey'.");
    CHECK(missing->LastError() == ERROR_FILE_NOT_FOUND);
    const std::wstring tooLong = L"HKCU\\Software\\" + std::wstring(300, L'x');
    const auto refused = Tests::Caught([&] { CRegistryKey(tooLong, false); });
    REQUIRE(refused);
    CHECK(refused->Message() == L"RegCreateKeyEx failure creating registry key '" + tooLong + L"'.");
    CHECK(refused->LastError() != 0);
}

TEST_CASE("stored texts are read whole, whatever their terminators")
{
    const CTestKey cleaner;
    const CRegistryKey key(CTestKey::Path, false);
    const std::wstring longText(100000, L'\uD55C');
    struct
    {
        DWORD Type;
        std::string Bytes;
        std::wstring Text;
    } const table[] = {
        {REG_SZ, "", L""},
        {REG_SZ, "\0\0"s, L""},
        {REG_SZ, "a\0\0\0"s, L"a"},
        {REG_SZ, "a\0b\0"s, L"ab"},
        {REG_SZ, "a\0b\0\0\0\0\0"s, L"ab\0"s},
        {REG_SZ, "a\0b"s, L"a"},
        {REG_SZ, "a", L""},
        {REG_EXPAND_SZ, "%\0T\0%\0\0\0"s, L"%T%"},
        {REG_SZ, std::string(reinterpret_cast<const char*>(longText.c_str()), longText.size() * 2 + 2),
         longText},
    };
    for (const auto& row : table)
    {
        CAPTURE(row.Bytes.size());
        CTestKey::Put(L"v", row.Type, row.Bytes.data(), row.Bytes.size());
        CHECK(key.GetString(L"v", L"default") == row.Text);
    }
    key.SetString(L"", L"the key's own value");
    CHECK(key.GetString(L"", L"") == L"the key's own value");
}

TEST_CASE("a missing value gives the default, a wrong type or a failing key an exception")
{
    const CTestKey cleaner;
    const CRegistryKey key(CTestKey::Path, false);
    CHECK(key.GetString(L"none", L"default") == L"default");
    CHECK(key.GetUint32(L"none", 5) == 5);
    CHECK_FALSE(key.ValueExists(L"none"));

    const std::uint32_t number = 4000000000u;
    CTestKey::Put(L"number", REG_DWORD, &number, 4);
    CTestKey::Put(L"short", REG_DWORD, &number, 2);
    CTestKey::Put(L"long", REG_DWORD, "12345678", 8);
    CTestKey::Put(L"big", REG_QWORD, "12345678", 8);
    key.SetString(L"text", L"123");
    CHECK(key.ValueExists(L"text"));
    CHECK(key.GetUint32(L"number", 5) == number);
    CHECK(key.GetUint32(L"short", 5) == 5);
    CHECK(key.GetUint32(L"long", 5) == 5);

    const CRegistryKey readOnly(CTestKey::Path, true);
    const std::wstring textType = L"'. REG_SZ or REG_EXPAND_SZ expected.",
                       numberType = L"'. REG_DWORD expected.";
    const std::wstring unexpected = L"Unexpected type for registry value '";
    struct
    {
        std::function<void()> Action;
        std::wstring Message;
        const char* Function;
    } const table[] = {
        {[&] { key.GetString(L"number", L""); }, unexpected + L"number" + textType, "GetString"},
        {[&] { key.GetUint32(L"text", 0); }, unexpected + L"text" + numberType, "GetUint32"},
        {[&] { key.GetUint32(L"big", 0); }, unexpected + L"big" + numberType, "GetUint32"},
        {[&] { readOnly.SetString(L"x", L""); }, L"RegSetValueEx failure writing registry value 'x'",
         "SetString"},
    };
    for (const auto& row : table)
    {
        const auto exception = Tests::Caught(row.Action);
        REQUIRE(exception);
        CHECK(exception->Message() == row.Message);
        CHECK(exception->Function() == std::string("LS::System::Win32::CRegistryKey::") + row.Function);
    }

    // Deleted while it is open: its values count as missing.
    ::RegDeleteTreeW(HKEY_CURRENT_USER, CTestKey::SubKey);
    CHECK(key.GetString(L"text", L"gone") == L"gone");
    CHECK(key.GetUint32(L"number", 6) == 6);
    const auto exception = Tests::Caught([&] { key.SetString(L"x", L""); });
    REQUIRE(exception);
    CHECK(exception->LastError() == ERROR_KEY_DELETED);
}

TEST_CASE("a value that grows while it is read is read again")
{
    const CTestKey cleaner;
    const CRegistryKey key(CTestKey::Path, false);
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
}
