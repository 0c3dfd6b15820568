#include "Ls/System/Win32/RegistryKey.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/WideText.h"

#include <windows.h>

#include <doctest/doctest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <tuple>

using namespace LS::System;
using namespace LS::System::Win32;
using namespace std::string_literals;

namespace
{
constexpr wchar_t SubKey[] = L"Software\\LsRegistryTests";
const std::wstring Path = L"HKCU\\Software\\LsRegistryTests";

/// The tests' own key doesn't outlive a test.
struct CCleaner
{
    CCleaner() { ::RegDeleteTreeW(HKEY_CURRENT_USER, SubKey); }
    CCleaner(const CCleaner&) = delete;
    ~CCleaner() { ::RegDeleteTreeW(HKEY_CURRENT_USER, SubKey); }
};

void Put(const wchar_t* name, DWORD type, const std::string& bytes)
{
    ::RegSetKeyValueW(HKEY_CURRENT_USER, SubKey, name, type, bytes.data(), static_cast<DWORD>(bytes.size()));
}
} // namespace

TEST_CASE("a key is found by the long and the short name of its root, in any case")
{
    const CCleaner cleaner;
    CRegistryKey(Path, false).SetString(L"Name", L"\u0416 \uD55C");
    for (const std::wstring& root : {L"HKEY_CURRENT_USER"s, L"hkcu"s, L"hKey_Current_User"s})
        CHECK(CRegistryKey(root + L"\\" + SubKey, true).GetString(L"Name", L"") == L"\u0416 \uD55C");
    for (const std::wstring& path :
         {L"HKLM"s, L"hkey_local_machine\\"s, L"HKCR"s, L"HKCC"s, L"HKU"s, L"HKLM\\Software"s, Path})
        CHECK(CRegistryKey::KeyExists(path));
    for (const std::wstring& path : {L"HKXX"s, L"HKXX\\Software"s, L""s, L"\\Software"s, L"HKLMX\\Software"s,
                                     L"HKLM\\Software\\LsNoSuchKey"s})
        CHECK_FALSE(CRegistryKey::KeyExists(path));
}

TEST_CASE("stored texts are read whole, whatever their terminators")
{
    const CCleaner cleaner;
    const CRegistryKey key(Path, false);
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
        {REG_SZ, "a\0b"s, L"a"},
        {REG_SZ, "a", L""},
        {REG_SZ, "a\0\0\0\0\0"s, L"a\0"s},
        {REG_EXPAND_SZ, "%\0T\0%\0\0\0"s, L"%T%"},
    };
    for (const auto& row : table)
    {
        CAPTURE(row.Bytes);
        Put(L"v", row.Type, row.Bytes);
        CHECK(key.GetString(L"v", L"default") == row.Text);
    }
    key.SetString(L"", std::wstring(100000, L'\uD55C'));
    CHECK(key.GetString(L"", L"") == std::wstring(100000, L'\uD55C'));
}

TEST_CASE("a missing value gives the default, what can't be read or written an exception")
{
    const CCleaner cleaner;
    const CRegistryKey key(Path, false), readOnly(Path, true);
    Put(L"number", REG_DWORD, "\x01\x02\x03\xFF");
    Put(L"short", REG_DWORD, "12");
    Put(L"long", REG_DWORD, "12345678");
    Put(L"big", REG_QWORD, "12345678");
    key.SetString(L"text", L"123");
    CHECK(key.ValueExists(L"text"));
    CHECK_FALSE(key.ValueExists(L"none"));
    CHECK(key.GetString(L"none", L"default") == L"default");
    const std::pair<const wchar_t*, std::uint32_t> numbers[] = {
        {L"number", 0xFF030201}, {L"none", 5}, {L"short", 5}, {L"long", 5}};
    for (const auto& [name, value] : numbers)
        CHECK(key.GetUint32(name, 5) == value);

    const std::wstring tooLong = L"HKCU\\" + std::wstring(300, L'x'),
                       missing = L"HKCU\\Software\\LsNoSuchKey";
    const std::wstring create = L"RegCreateKeyEx failure creating registry key '";
    const std::wstring type = L"Unexpected type for registry value '";
    const std::tuple<const char*, std::wstring, std::function<void()>> failures[] = {
        {"CRegistryKey", L"Base key in 'HKXX\\a'is not a predefined key.",
         [] { CRegistryKey(L"HKXX\\a", true); }},
        {"CRegistryKey", create + missing + L"'.", [&] { CRegistryKey(missing, true); }},
        {"CRegistryKey", create + tooLong + L"'.", [&] { CRegistryKey(tooLong, false); }},
        {"GetString", type + L"number'. REG_SZ or REG_EXPAND_SZ expected.",
         [&] { key.GetString(L"number", L""); }},
        {"GetUint32", type + L"text'. REG_DWORD expected.", [&] { key.GetUint32(L"text", 0); }},
        {"GetUint32", type + L"big'. REG_DWORD expected.", [&] { key.GetUint32(L"big", 0); }},
        {"SetString", L"RegSetValueEx failure writing registry value 'x'",
         [&] { readOnly.SetString(L"x", L""); }},
    };
    for (const auto& [function, message, action] : failures)
    {
        const auto exception = Tests::Caught(action);
        REQUIRE(exception);
        CHECK(exception->Message() == message);
        CHECK(exception->Function() == std::string("LS::System::Win32::CRegistryKey::") + function);
    }
    CHECK(Tests::Caught([&] { CRegistryKey(missing, true); })->LastError() == ERROR_FILE_NOT_FOUND);

    // Deleted while it is open: its values count as missing.
    ::RegDeleteTreeW(HKEY_CURRENT_USER, SubKey);
    CHECK(key.GetString(L"text", L"gone") == L"gone");
    CHECK(key.GetUint32(L"number", 6) == 6);
    CHECK(Tests::Caught([&] { key.SetString(L"x", L""); })->LastError() == ERROR_KEY_DELETED);
}

TEST_CASE("a value that grows while it is read is read again")
{
    const CCleaner cleaner;
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
}
