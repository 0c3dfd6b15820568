#include "Ls/System/String/Printf.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/WideText.h"

#include <doctest/doctest.h>

using namespace LS;

TEST_CASE("a result of any length up to 65535 characters comes out whole")
{
    for (const std::size_t length : {0u, 1u, 126u, 127u, 128u, 129u, 254u, 255u, 256u, 4095u, 65534u, 65535u})
    {
        CAPTURE(length);
        const std::string narrow(length, 'x');
        const std::wstring wide(length, L'\u0416');
        CHECK(Printf("%s", narrow.c_str()) == narrow);
        CHECK(Printf(L"%s", wide.c_str()) == wide);
    }
}

TEST_CASE("a longer result is refused with the number that the doubling reached")
{
    for (const std::size_t length : {65536u, 65537u, 200000u})
    {
        const auto narrow = Tests::Caught([&] { Printf("%s", std::string(length, 'x').c_str()); });
        REQUIRE(narrow);
        CHECK(narrow->Message() == L"Result exceeds 131071 characters.");
        CHECK(narrow->Function() == "LS::PrintfVaListToString");
        const auto wide = Tests::Caught([&] { Printf(L"%s", std::wstring(length, L'x').c_str()); });
        REQUIRE(wide);
        CHECK(wide->Message() == L"Result exceeds 131071 characters.");
        CHECK(wide->Function() == "LS::PrintfVaListToWString");
        CHECK(wide->File() == "Source\\Ls\\System\\String\\Printf.cpp");
    }
}

TEST_CASE("%s and %S mean what the system's runtime means, and arguments survive the retries")
{
    CHECK(Printf(L"%s|%S|%hs|%ls", L"w", "n", "h", L"l") == L"w|n|h|l");
    CHECK(Printf("%s|%S|%hs|%ls", "n", L"w", "h", L"l") == "n|w|h|l");
    CHECK(Printf(L"%#x %u %I64d %03d", 255u, 4000000000u, -5000000000LL, 7) ==
          L"0xff 4000000000 -5000000000 007");
    CHECK(Printf("%200d|%s|%d", 1, "two", 3) == std::string(199, ' ') + "1|two|3");
}
