#include "Ls/Analytics/PercentEncoding.h"
#include "Tests/Support/Caught.h"
#include "Tests/Unit/Analytics/Fixture.h"

using namespace LS::Analytics;

TEST_CASE("what is encoded depends on the character and on whether it stands in a JSON string")
{
    // clang-format off
    for (const auto& [text, encoded] : {std::pair
        {L"azAZ09-_.~", L"azAZ09-_.~"}, {L"{\"a\":[1,-2]}", L"%7B%22a%22%3A%5B1%2C-2%5D%7D"},
        {L"&=\"&=\"&=", L"&=%22%26%3D%22&="}, {L"\b\t\n\x01\x7F", L"%08%09%0A%01%7F"},
        {L" +/?#%!'()*;@<>|^`", L"%20%2B%2F%3F%23%25%21%27%28%29%2A%3B%40%3C%3E%7C%5E%60"},
        // Letters and digits of any script stay; of everything else the low 8 bits are told.
        {L"\u00E9\u00DF\u0416\uD55C\u4E2D", L"\u00E9\u00DF\u0416\uD55C\u4E2D"},
        {L"\u2013\u20AC\u00A9", L"%13%AC%A9"},
        // An escaped quote doesn't end the string, an escaped backslash doesn't escape the quote behind it,
        // and a quote that the cutting makes changes nothing.
        {L"\"a\\\"&\"&", L"%22a%5C%22%26%22&"}, {L"\"a\\\\\"&\"&\"", L"%22a%5C%5C%22&%22%26%22"},
        {L"\u2022=\"\u2022=\"", L"%22=%22%22%3D%22"}})
        CHECK(PercentEncode(text) == encoded);
    // clang-format on
}

TEST_CASE("what is missing or empty is refused with its own text")
{
    const std::wstring rest = L" initialized. Please use AddVisit method to add the visitor";
    const std::wstring begin = L"NotInitializedException: The analytics data container has not ";
    const std::wstring been = begin + L"been" + rest, bee = begin + L"bee" + rest;
    const std::wstring none =
        L"ContainerHasNoElementsException: The event should be initialized by calling AddEvent.";
    const auto invalid = [](const wchar_t* name) {
        return L"InvalidStringParameterException: The parameter " + std::wstring(name) + L" is invalid.";
    };
    CDataCollector c(L"Updater", L"1", L"", L"", L"");
    std::wstring x = L"x", e, query;
    const auto make = [&] { c.GetEventsQueryString(query); };
    // clang-format off
    Tests::CheckFailures({
        {[&] { c.AddEvent(x, x, x, 0); }, been, "::AddEvent"}, {make, bee, "::GetEventsQueryString"},
        {[&] { c.AddCustomVariableForSession(1, x, x, 1); }, bee, "::AddCustomVariableForSession"},
        {[&] { c.AddVisit(e, e, e, e); }, invalid(L"visitorId"), "::AddVisit"}, {make, none},
        {[&] { c.AddVisit(x, x, x, e); }, invalid(L"operatingSystem")}, {[&] { c.AddVisit(x, x, x, x); }, L""},
        {[&] { c.AddEvent(x, x, e, 0); }, invalid(L"label")}, {make, none},
        {[&] { c.AddEvent(x, x, x, 0); }, L""},
        {[&] { c.AddCustomVariableForSession(1, x, e, 1); }, invalid(L"value")}, {make, L""}});
    // clang-format on
}
