#include "Ls/System/String/Printf.h"
#include "Ls/System/String/SystemErrorText.h"
#include "Ls/System/String/Trim.h"
#include "Ls/System/Util/DateTime.h"
#include "Ls/System/Uuid.h"
#include "Tests/Support/Caught.h"

using namespace LS;
using namespace std::string_literals;

TEST_CASE("text converts to UTF-8 and back; what is no text is refused one way and replaced the other")
{
    const std::pair<std::wstring, std::string> table[] = {
        {L"", ""},
        {L"a\0b"s, "a\0b"s},
        {L"\u00E9\u0416\uD55C\xD83D\xDE00", "\xC3\xA9\xD0\x96\xED\x95\x9C\xF0\x9F\x98\x80"}};
    for (const auto& [wide, narrow] : table)
        CHECK((WideToAnsi(wide) == narrow && AnsiToWide(narrow) == wide));
    for (const std::wstring& text : {L"\xD83D"s, L"a\xDE00z"s, L"\xDE00\xD83D"s, L"x\xD83D"s})
        CHECK(Tests::CaughtMessage([&] { WideToAnsi(text); }) ==
              L"WideToAnsi(): Unable to convert one or more wide characters to ansi.");
    for (const std::string& text : {"a\xFFz"s, "a\xC3"s, "\xED\xA0\xBD"s, "\xF0\x9F\x98"s, "\x80z"s})
        CHECK(WideToAnsi(AnsiToWide(text)).find("\xEF\xBF\xBD") != std::string::npos); // no half characters
}

TEST_CASE("results of up to 65535 characters come out whole, longer ones are refused by the doubled number")
{
    for (const std::size_t length : {0u, 127u, 128u, 255u, 256u, 65535u, 65536u, 200000u})
    {
        std::string narrow;
        std::wstring wide;
        const std::wstring message = length > 65535 ? L"Result exceeds 131071 characters." : L"";
        Tests::CheckFailures({{[&] { narrow = Printf("%s", std::string(length, 'x').c_str()); }, message,
                               "::PrintfVaListToString"},
                              {[&] { wide = Printf(L"%s", std::wstring(length, L'x').c_str()); }, message,
                               "::PrintfVaListToWString"}});
        CHECK((narrow == std::string(message.empty() ? length : 0, 'x') && wide == AnsiToWide(narrow)));
    }
    // As the system's runtime means them; arguments survive the second try.
    CHECK(Printf(L"%s|%S|%hs|%ls %I64d", L"w", "n", "h", L"l", -5000000000LL) == L"w|n|h|l -5000000000");
    CHECK(Printf("%s|%S|%200d|%d", "n", L"w", 1, 3) == "n|w|" + std::string(199, ' ') + "1|3");
}

TEST_CASE("trimming, error texts, time stamps and UUIDs have their forms")
{
    for (const auto& [text, trimmed] :
         {std::pair{L" \t\r\n", L""}, {L"\r\n a \t b\n", L"a \t b"}, {L"\va", L"\va"}})
        CHECK(Trim(text) == trimmed);
    ::SetLastError(ERROR_ACCESS_DENIED);
    CHECK(SystemErrorTextWide(0x2FFFFFFF) == L"(No Error Description)\r\n");
    const std::wstring text = SystemErrorTextWide(ERROR_ACCESS_DENIED);
    CHECK(text.find(L"\r\n") + 2 == text.size());
    CHECK(::GetLastError() == ERROR_ACCESS_DENIED);
    CHECK(System::Util::TimeStamp({2026, 3, 0, 5, 7, 8, 9, 4}) == L"07:08:09.004 03/05/2026");
    const UUID uuid = {0xBA271941, 0x19A8, 0x4EC6, {0xA4, 0x5D, 0xC8, 0x3C, 0xAC, 0xDD, 0x92, 0xBC}};
    CHECK(System::UUIDToString(uuid) == L"ba271941-19a8-4ec6-a45d-c83cacdd92bc");
    CHECK(System::UUIDToString(System::CreateUUID()) != System::UUIDToString(System::CreateUUID()));
}
