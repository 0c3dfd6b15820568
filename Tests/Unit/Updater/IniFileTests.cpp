// Real files, read by the system's own INI functions.
#include "Ls/System/String/Convert.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/Mutation.h"
#include "Tests/Support/Soak.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/WideText.h"
#include "Updater/Settings/IniFile.h"

#include <doctest/doctest.h>

#include <tuple>
#include <vector>

using namespace std::string_literals;

namespace
{
/// UTF-16 with its mark, which the system reads in any language.
std::string Wide(const std::wstring& text)
{
    std::string bytes = "\xFF\xFE";
    for (const wchar_t c : text)
        bytes += {static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)};
    return bytes;
}

std::wstring Lookup(const CIniFile& ini, const std::wstring& section, const std::wstring& key)
{
    const auto exception = Tests::Caught([&] { ini.GetValue(section, key); });
    return exception ? L"<" + exception->Message() + L">" : ini.GetValue(section, key);
}
} // namespace

TEST_CASE("values are found by the exact text of their section and key")
{
    const Tests::CTempFolder temp;
    const std::wstring path = temp.Path(L"\u0416 \uD55C.ini");
    Tests::WriteBytes(path, Wide(L"; comment\r\n[User]\r\nVisitorID = {A-1} \r\nEmpty=\r\nQuoted=\"q\"\r\n"
                                 L"[\uC124\uC815]\r\n\u044F\u0437\u044B\u043A=\uD55C\uAD6D\uC5B4\r\n"
                                 L"[User]\r\nVisitorID=second\r\nLate=x\r\n[None]\r\n"));
    CIniFile ini;
    ini.LoadFile(path);
    const std::wstring missing = L"<Desired value not found>";
    const std::tuple<std::wstring, std::wstring, std::wstring> table[] = {
        {L"User", L"VisitorID", L"{A-1}"},
        {L"User", L"Empty", L""},
        {L"User", L"Quoted", L"q"},
        {L"\uC124\uC815", L"\u044F\u0437\u044B\u043A", L"\uD55C\uAD6D\uC5B4"},
        {L"user", L"VisitorID", missing},
        {L"User", L"visitorid", missing},
        {L"User", L"", missing},
        {L"None", L"VisitorID", missing},
        {L"", L"", missing}};
    for (const auto& [section, key, value] : table)
        CHECK(Lookup(ini, section, key) == value);
    CHECK(ini.ContainsSectionName(L"User"));
    CHECK(ini.ContainsSectionName(L"None"));
    CHECK_FALSE(ini.ContainsSectionName(L"user"));

    const auto exception = Tests::Caught([&] { ini.LoadFile(temp.Path(L"missing.ini")); });
    REQUIRE(exception);
    CHECK(exception->Message() == L"File does not exist in CIniFile::LoadFile");
    CHECK(exception->Function() == "CIniFile::LoadFile");
    CHECK(exception->File() == "Updater\\IniFile.cpp");
    CHECK(Lookup(ini, L"User", L"VisitorID") == missing); // the copy is empty now
    CHECK(Tests::Caught([&] { ini.LoadFile(temp.Path()); }));
}

TEST_CASE("what is too long is cut as the system cuts it")
{
    const Tests::CTempFolder temp;
    const std::wstring path = temp.Path(L"a.ini");
    std::wstring text =
        L"[s]\r\nfits=" + std::wstring(518, L'f') + L"\r\nlong=" + std::wstring(519, L'l') + L"\r\n";
    for (int i = 0; i < 1000; ++i)
        text += L"key" + std::to_wstring(i) + L"=" + std::to_wstring(i) + L"\r\n";
    for (int i = 0; i < 1000; ++i)
        text += L"[section" + std::to_wstring(i) + L"]\r\n";
    Tests::WriteBytes(path, Wide(text));
    CIniFile ini;
    ini.LoadFile(path);
    CHECK(ini.GetValue(L"s", L"fits") == std::wstring(518, L'f'));
    CHECK(ini.GetValue(L"s", L"long") == std::wstring(518, L'l'));
    CHECK(ini.GetValue(L"s", L"key150") == L"150");
    CHECK(Lookup(ini, L"s", L"key999") == L"<Desired value not found>");
    CHECK(ini.ContainsSectionName(L"section100"));
    CHECK_FALSE(ini.ContainsSectionName(L"section999"));
}

TEST_CASE("a damaged file is read without harm")
{
    const Tests::CTempFolder temp;
    const std::wstring path = temp.Path(L"a.ini");
    const std::string plain = "[User]\r\nVisitorID={A-1}\r\nOEMOrigin=x\r\n[Other]\r\na=b\r\n";
    const std::vector<std::string> pieces = {
        "[", "]", "=", ";", "\r\n", "\0"s, "\"", "\xFF", std::string(3000, 'k')};
    // Each round is a file written and read some ten times, one to some ms under Wine.
    const unsigned rounds = Tests::Loops(1000, 10000);
    for (const std::string& original :
         {plain, Wide(LS::AnsiToWide(plain) + L"[\uD55C]\r\n\u0416=\u0416\r\n")})
    {
        CHECK(Tests::SurvivesMutations(original, pieces, rounds, [&](const std::string& bytes) {
            Tests::WriteBytes(path, bytes);
            CIniFile ini;
            ini.LoadFile(path);
            return Lookup(ini, L"User", L"VisitorID").size() <= 518;
        }));
    }
}
