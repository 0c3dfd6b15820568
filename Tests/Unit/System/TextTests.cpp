#include "Ls/System/Io/Stream/MemoryStream.h"
#include "Ls/System/String/Convert.h"
#include "Ls/System/String/SystemErrorText.h"
#include "Ls/System/String/Trim.h"
#include "Ls/System/Util/DateTime.h"
#include "Ls/System/Uuid.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/WideText.h"

#include <windows.h>

#include <doctest/doctest.h>

using namespace LS;
using namespace std::string_literals;

TEST_CASE("text converts to UTF-8 and back; what is no text is refused one way and replaced the other")
{
    const std::pair<std::wstring, std::string> table[] = {
        {L"", ""},
        {L"a\0b"s, "a\0b"s},
        {L"\u00E9\u0416\uD55C\xD83D\xDE00", "\xC3\xA9\xD0\x96\xED\x95\x9C\xF0\x9F\x98\x80"}};
    for (const auto& [wide, narrow] : table)
    {
        CHECK(WideToAnsi(wide) == narrow);
        CHECK(AnsiToWide(narrow) == wide);
    }
    for (const std::wstring& text : {L"\xD83D"s, L"a\xDE00z"s, L"\xDE00\xD83D"s, L"x\xD83D"s})
    {
        const auto exception = Tests::Caught([&] { WideToAnsi(text); });
        REQUIRE(exception);
        CHECK(exception->Message() ==
              L"WideToAnsi(): Unable to convert one or more wide characters to ansi.");
        CHECK(exception->Function() == "LS::WideToAnsi");
    }
    for (const std::string& text : {"a\xFFz"s, "a\xC3"s, "\xED\xA0\xBD"s, "\xF0\x9F\x98"s, "\x80z"s})
    {
        const std::wstring wide = AnsiToWide(text);
        CHECK(wide.find(L'\xFFFD') != std::wstring::npos);
        CHECK_NOTHROW(WideToAnsi(wide)); // no half characters come out
    }
}

TEST_CASE("blanks and line ends are trimmed from both ends only")
{
    const std::pair<std::wstring, std::wstring> table[] = {
        {L"", L""}, {L" \t\r\n", L""}, {L"\r\n a \t b\t\n", L"a \t b"}, {L"\va\f", L"\va\f"}};
    for (const auto& [text, trimmed] : table)
        CHECK(Trim(text) == trimmed);
}

TEST_CASE("system error texts end as the system ends them and leave the last error alone")
{
    ::SetLastError(ERROR_ACCESS_DENIED);
    CHECK(SystemErrorTextWide(0x2FFFFFFF) == L"(No Error Description)\r\n");
    const std::wstring text = SystemErrorTextWide(ERROR_ACCESS_DENIED);
    CHECK(text.find(L"\r\n") + 2 == text.size());
    CHECK(SystemErrorText(ERROR_ACCESS_DENIED) == WideToAnsi(text));
    CHECK(WithSystemErrorText(L"What:") == L"What:  " + text);
    CHECK(::GetLastError() == ERROR_ACCESS_DENIED);
}

TEST_CASE("the time stamp has 23 characters and the local time is the system's")
{
    CHECK(System::Util::TimeStamp({2026, 3, 0, 5, 7, 8, 9, 4}) == L"07:08:09.004 03/05/2026");
    const auto number = [](const SYSTEMTIME& time) {
        FILETIME file{};
        ::SystemTimeToFileTime(&time, &file);
        return (static_cast<std::uint64_t>(file.dwHighDateTime) << 32) | file.dwLowDateTime;
    };
    SYSTEMTIME before, after;
    ::GetLocalTime(&before);
    const SYSTEMTIME ours = System::Util::LocalTime();
    ::GetLocalTime(&after);
    CHECK((number(before) <= number(ours) && number(ours) <= number(after)));
}

TEST_CASE("UUIDs are written in lower case without braces")
{
    const UUID uuid = {0xBA271941, 0x19A8, 0x4EC6, {0xA4, 0x5D, 0xC8, 0x3C, 0xAC, 0xDD, 0x92, 0xBC}};
    CHECK(System::UUIDToString(uuid) == L"ba271941-19a8-4ec6-a45d-c83cacdd92bc");
    CHECK(System::UUIDToString(System::CreateUUID()) != System::UUIDToString(System::CreateUUID()));
}

TEST_CASE("a memory stream gives back what was written, in pieces of any size")
{
    System::IO::Stream::CMemoryStream stream;
    stream.Write("abcd\0e", 6);
    char bytes[10] = {};
    CHECK(stream.Read(bytes, 4) == 4);
    stream.Write("f", 1);
    CHECK(stream.Read(bytes + 4, 6) == 3);
    CHECK(std::string(bytes, 7) == "abcd\0ef"s);
    CHECK(stream.Read(bytes, 10) == 0);
    stream.Rewind();
    CHECK(stream.Read(bytes, 1) == 1);
    CHECK(stream.View() == "abcd\0ef"s);
    stream.Clear();
    CHECK(stream.Length() + stream.Read(bytes, 1) == 0);
}
