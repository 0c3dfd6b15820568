#include "Ls/System/Io/DirectoryInfo.h"
#include "Ls/System/Io/File.h"
#include "Ls/System/Io/Path.h"
#include "Ls/System/Io/ValidatePath.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/WideText.h"

#include <doctest/doctest.h>

using namespace LS::System::IO;
using namespace std::string_literals;

TEST_CASE("a path is judged by its leading blanks and the first character after them")
{
    const std::wstring longest(260, L'a'), tooLong(261, L'a');
    const std::wstring invalid = L"Path contains one or more invalid characters:";
    const std::wstring blank = L"Path contains only whitespace characters:";
    const std::pair<std::wstring, std::wstring> table[] = {
        {L"", L"Empty path"},
        {longest, L""},
        {tooLong, L"Path was too long:" + tooLong},
        {L"   ", blank + L"   "},
        {L"\t\n\v\f\r ", blank + L"\t\n\v\f\r "},
        {L"\ta", L""},
        {L" <x", invalid + L" <x"},
        {L"x<", L""},
        {L"\0a"s, invalid + L"\0a"s},
        {L"\x13z", L""},
        {L"\xA0", L""}, // not white space here
    };
    for (const auto& [path, message] : table)
        CHECK(Tests::CaughtMessage([&path = path] { ValidatePath(path); }) == message);

    std::wstring characters;
    for (unsigned c = 0; c <= 0xFFFF; ++c)
    {
        if (IsInvalidPathCharacter(static_cast<wchar_t>(c)))
            characters += static_cast<wchar_t>(c);
    }
    CHECK(characters == L"\0\x08\x10\x11\x12\x14\x15\x16\x17\x18\x19\"<>|"s);

    CHECK(CDirectoryInfo(longest).Path() == longest);
    CHECK(Tests::CaughtMessage([&] { CDirectoryInfo{tooLong}; }) == L"Path was too long :" + tooLong);
    CHECK(Tests::CaughtMessage([] { CDirectoryInfo{L"C:\\a<b"}; }) == L"Path contains invalid characters");
}

TEST_CASE("paths are split at their separators, and the program knows its own")
{
    struct
    {
        std::wstring Path, FileName, Folder;
    } const table[] = {{L"", L"", L""},
                       {L"a.exe", L"a.exe", L""},
                       {L"C:\\b\\a.exe", L"a.exe", L"C:\\b"},
                       {L"C:\\b\\", L"", L"C:\\b"},
                       {L"C:\\b/a.exe", L"b/a.exe", L"C:\\b"},
                       {L"\\a", L"a", L""}};
    for (const auto& row : table)
    {
        CHECK(FileNameOf(row.Path) == row.FileName);
        CHECK(FolderOf(row.Path) == row.Folder);
    }
    CHECK(FileNameOf(ProgramPath()) == L"SystemTests.exe");
    CHECK(CFile::Exists(ProgramPath()));
}

TEST_CASE("a name chosen by a server is one plain component or refused")
{
    for (const std::wstring& name :
         {L"a"s, L"Patch 1.2.exe"s, L".hidden"s, L"..a"s, L"a..b"s, L" a"s, L"COM"s, L"COM10"s, L"COMA"s,
          L"CONS"s, L"CONfig.exe"s, L"xNUL"s, L"COM1x.exe"s, L"\u041F\uD55C\xD83D\xDE00.msi"s,
          std::wstring(255, L'a')})
    {
        CAPTURE(name);
        CHECK(IsPlainFileName(name));
    }
    for (const std::wstring& name : {L""s,          L"."s,          L".."s,
                                     L"a."s,        L"a "s,         L"..."s,
                                     L"a\\b"s,      L"..\\a"s,      L"a/b"s,
                                     L"/a"s,        L"C:a"s,        L"a:b"s,
                                     L"a::$DATA"s,  L"a*"s,         L"a?"s,
                                     L"\"a\""s,     L"a<b"s,        L"a>b"s,
                                     L"a|b"s,       L"a\nb"s,       L"a\0b"s,
                                     L"\x1F"s,      L"a\x7F"s,      L"CON"s,
                                     L"con"s,       L"Nul.txt"s,    L"aux.tar.gz"s,
                                     L"PRN"s,       L"COM1"s,       L"com0.exe"s,
                                     L"LPT9"s,      L"lpt\u00B9"s,  L"COM\u00B2.x"s,
                                     L"COM\u00B3"s, L"CONIN$"s,     L"conout$.log"s,
                                     L"NUL .exe"s,  L"COM1  .a.b"s, std::wstring(256, L'a')})
    {
        CAPTURE(name);
        CHECK_FALSE(IsPlainFileName(name));
    }
}
