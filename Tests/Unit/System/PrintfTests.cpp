#include "Ls/System/String/Printf.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/WideText.h"

#include <doctest/doctest.h>

using namespace LS;

TEST_CASE("results of up to 65535 characters come out whole, longer ones are refused by the doubled number")
{
    for (const std::size_t length : {0u, 126u, 127u, 128u, 255u, 256u, 65534u, 65535u, 65536u, 200000u})
    {
        CAPTURE(length);
        const std::string narrow(length, 'x');
        const std::wstring wide(length, L'\u0416');
        std::string narrowResult;
        std::wstring wideResult;
        const auto narrowFailure = Tests::Caught([&] { narrowResult = Printf("%s", narrow.c_str()); });
        const auto wideFailure = Tests::Caught([&] { wideResult = Printf(L"%s", wide.c_str()); });
        REQUIRE((length > 65535) == narrowFailure.has_value());
        REQUIRE((length > 65535) == wideFailure.has_value());
        CHECK(narrowResult == (narrowFailure ? "" : narrow));
        CHECK(wideResult == (wideFailure ? L"" : wide));
        if (!wideFailure)
            continue;
        CHECK(narrowFailure->Message() == L"Result exceeds 131071 characters.");
        CHECK(wideFailure->Message() == L"Result exceeds 131071 characters.");
        CHECK(narrowFailure->Function() == "LS::PrintfVaListToString");
        CHECK(wideFailure->Function() == "LS::PrintfVaListToWString");
        CHECK(wideFailure->File() == "Source\\Ls\\System\\String\\Printf.cpp");
    }
}

TEST_CASE("%s and %S mean what the system's runtime means, and arguments survive the retries")
{
    CHECK(Printf(L"%s|%S|%hs|%ls", L"w", "n", "h", L"l") == L"w|n|h|l");
    CHECK(Printf("%s|%S|%hs|%ls", "n", L"w", "h", L"l") == "n|w|h|l");
    CHECK(Printf(L"%#x %I64d", 255u, -5000000000LL) == L"0xff -5000000000");
    CHECK(Printf("%200d|%s|%d", 1, "two", 3) == std::string(199, ' ') + "1|two|3");
}
