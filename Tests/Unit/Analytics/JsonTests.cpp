#include "Ls/Analytics/Json/Element.h"
#include "Ls/Analytics/Json/Exception.h"
#include "Ls/Analytics/Json/Writer.h"
#include "Ls/System/String/Convert.h"
#include "Tests/Support/WideText.h"

#include <doctest/doctest.h>

#include <cfloat>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <nlohmann/json.hpp>

using namespace LS::Analytics;

namespace
{
/// What an independent reader makes of the written text.
nlohmann::ordered_json ReadBack(const json::Element& element)
{
    return nlohmann::ordered_json::parse(LS::WideToAnsi(json::Write(element)));
}
} // namespace

TEST_CASE("JSON text is compact, and an independent reader finds every kind of value in it")
{
    json::Object inner;
    inner[L"z"] = json::Array{1, L"two", json::Array(), json::Object(), true, json::Element()};
    inner[L"a"] = false;
    json::Object root;
    root.Insert(L"text", L"\b\t\n\f\r\"\\/ \u00E9\u4E2D");
    root.Insert(L"inner", inner);
    inner[L"a"] = L"a later change stays out of the copy";

    CHECK(json::Write(root) == L"{\"text\":\"\\b\\t\\n\\f\\r\\\"\\\\/ \u00E9\u4E2D\","
                               L"\"inner\":{\"z\":[1,\"two\",[],{},true,null],\"a\":false}}");
    const auto read = ReadBack(root);
    CHECK(read["text"] == "\b\t\n\f\r\"\\/ \u00E9\u4E2D");
    CHECK(read["inner"]["z"][1] == "two");
    CHECK(read["inner"].begin().key() == "z");
    CHECK(json::Write(json::Element()) == L"null");
}

TEST_CASE("32-bit integers are written exactly, and every other number reads back as the same double")
{
    for (const std::int64_t number :
         {std::int64_t{0}, std::int64_t{1}, std::int64_t{-60}, std::int64_t{9999999}, std::int64_t{INT32_MIN},
          std::int64_t{INT32_MAX}, std::int64_t{UINT32_MAX}})
        CHECK(json::Write(json::Element(number)) == std::to_wstring(number));

    for (const double number : {0.1, -2.5, 1e19, 123456789012345678.0, 1e20, 1e300, DBL_MAX, DBL_MIN, 5e-324})
    {
        CHECK(ReadBack(json::Element(number)).get<double>() == number);
        CHECK(json::Write(json::Element(number)).size() <= 28); // 20 digits, sign, point and exponent
    }
    CHECK(json::Write(json::Element(std::numeric_limits<double>::infinity())) == L"null");
}

TEST_CASE("a name is assigned again but never inserted twice")
{
    json::Object object;
    object[L"first"] = 1;
    object.Insert(L"second", 2);
    object[L"first"] = 3;
    CHECK(json::Write(object) == L"{\"first\":3,\"second\":2}");
    try
    {
        object.Insert(L"second", 4);
        FAIL("inserted");
    }
    catch (const json::Exception& exception)
    {
        CHECK(exception.Text() == L"Object member already exists: second");
        CHECK(std::string(exception.what()) == "Object member already exists: second");
    }
    CHECK(json::Write(object) == L"{\"first\":3,\"second\":2}");
}
