#include "Ls/Analytics/DataCollector.h"
#include "Ls/Analytics/Json/Element.h"
#include "Ls/Analytics/Json/Exception.h"
#include "Ls/Analytics/Json/Writer.h"
#include "Ls/Analytics/PercentEncoding.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/CollectorHost.h"

#include <cfloat>
#include <nlohmann/json.hpp>
#include <regex>

using namespace LS::Analytics;

TEST_CASE("JSON text is compact, an independent reader finds every kind of value in it, and names are unique")
{
    json::Object object;
    object[L"z"] = json::Array{1, L"two", json::Array(), json::Object(), true, json::Element()};
    object.Insert(L"text", L"\b\t\n\f\r\"\\/ \u00E9\u4E2D");
    object[L"z"] = object;
    CHECK(json::Write(object) == LR"({"z":{"z":[1,"two",[],{},true,null],"text":"\b\t\n\f\r\"\\/ )"
                                 L"\u00E9\u4E2D\"},\"text\":\"\\b\\t\\n\\f\\r\\\"\\\\/ \u00E9\u4E2D\"}");
    CHECK(nlohmann::json::parse(LS::WideToAnsi(json::Write(object)))["text"] ==
          "\b\t\n\f\r\"\\/ \u00E9\u4E2D");
    CHECK_THROWS_AS(object.Insert(L"text", 4), json::Exception);
    for (const std::int64_t number : {0LL, -60LL, 9999999LL, -2147483648LL, 2147483647LL, 4294967295LL})
        CHECK(json::Write(json::Element(number)) == std::to_wstring(number));
    for (const double number : {0.1, -2.5, 1e19, 123456789012345678.0, 1e300, DBL_MAX, DBL_MIN, 5e-324})
        CHECK(nlohmann::json::parse(json::Write(json::Element(number))).get<double>() == number);
}

TEST_CASE("what is encoded depends on the character and on whether it stands in a JSON string")
{
    const std::pair<const wchar_t*, const wchar_t*> table[] = {
        {L"azAZ09-_.~", L"azAZ09-_.~"},
        {L"{\"a\":[1,-2]}", L"%7B%22a%22%3A%5B1%2C-2%5D%7D"},
        {L"&=\"&=\"&=", L"&=%22%26%3D%22&="},
        {L" +/?#%!'()*;@<>|^`", L"%20%2B%2F%3F%23%25%21%27%28%29%2A%3B%40%3C%3E%7C%5E%60"},
        {L"\b\t\n\x01\x7F", L"%08%09%0A%01%7F"},
        // Letters and digits of any script stay; of everything else the low 8 bits are told.
        {L"\u00E9\u00DF\u0416\uD55C\u4E2D", L"\u00E9\u00DF\u0416\uD55C\u4E2D"},
        {L"\u2013\u20AC\u00A9\u2022", L"%13%AC%A9%22"},
        // An escaped quote doesn't end the string, an escaped backslash doesn't escape the quote behind it.
        {L"\"a\\\"&\"&", L"%22a%5C%22%26%22&"},
        {L"\"a\\\\\"&\"&\"", L"%22a%5C%5C%22&%22%26%22"},
        // Only a quote changes sides: one that the cutting makes doesn't.
        {L"\u2022=\"\u2022=\"", L"%22=%22%22%3D%22"}};
    for (const auto& [text, encoded] : table)
        CHECK(PercentEncode(text) == encoded);
}

TEST_CASE("the query string of a filled visit, byte by byte, of a time that is the system's")
{
    CDataCollector collector(L"Updater", L"1.1.1.13", L"www.site.example", L"", L"part&ner");
    collector.AddVisit(L"V-1", L"S-1", L"1920x1080", L"Windows 7");
    collector.AddCustomVariableForSession(CustomVariableDimension, L"OEMOrigin", L"Shop 5", 1);
    for (const std::int32_t index : {0, 6})
        collector.AddCustomVariableForSession(CustomVariableDimension, L"no", L"place", index);
    collector.AddEvent(L"ErrorInfo", L"Other", L"replaced", 1);
    SYSTEMTIME before, after;
    ::GetSystemTime(&before);
    collector.AddEvent(L"ErrorInfo", L"NewDL", L"a&b=c \"\u2013\u00E9\"", 0xFFFFFFFF);
    ::GetSystemTime(&after);
    std::wstring query;
    collector.GetEventsQueryString(query);
    const std::wstring numbers = L"(%22e?(?:d|m|y|hh|mi|ss|to|e[my])%22%3A)-?[0-9]+";
    CHECK(
        std::regex_replace(query, std::wregex(numbers), L"$1#") ==
        L"action=ev&data=%7B%22d%22%3A#%2C%22m%22%3A#%2C%22y%22%3A#%2C%22hh%22%3A#%2C%22mi%22%3A#%2C%22ss%22%"
        L"3A#%2C"
        L"%22to%22%3A#%2C%22app%22%3A%22Updater%22%2C%22st%22%3A%22www.site.example%22%2C%22u%22%3A%22%22%2C"
        L"%22pa%22%3A%22part%26ner%22%2C%22v%22%3A%221.1.1.13%22%2C%22vt%22%3A%7B%22vtor%22%3A%7B%22id%22%3A%"
        L"22"
        L"V-1%22%7D%2C%22sess%22%3A%7B%22id%22%3A%22S-1%22%2C%22res%22%3A%221920x1080%22%2C%22os%22%3A%22"
        L"Windows%207%22%2C%22c%22%3A%7B%22dim%22%3A%7B%221%22%3A%7B%22k%22%3A%22OEMOrigin%22%2C%22v%22%3A%22"
        L"Shop%205%22%7D%7D%7D%7D%7D%2C%22evt%22%3A%7B%22ed%22%3A#%2C%22em%22%3A#%2C%22ey%22%3A#%2C%22ehh%22%"
        L"3A#%2C"
        L"%22emi%22%3A#%2C%22ess%22%3A#%2C%22eto%22%3A#%2C%22ect%22%3A%22ErrorInfo%22%2C%22ac%22%3A%22NewDL%"
        L"22%2C"
        L"%22lb%22%3A%22a%26b%3Dc%20%5C%22%13\u00E9%5C%22%22%2C%22vl%22%3A4294967295%7D%7D");

    Tests::HttpRequest request;
    request.Method = "GET";
    request.Target = "/DataTracker.aspx?" + LS::WideToAnsi(query);
    const auto event = nlohmann::json::parse(Tests::DecodeCollectorRequest(request).Json)["evt"];
    const auto stamp = [](int y, int m, int d, int h, int i, int s) { return std::array{y, m, d, h, i, s}; };
    const auto told = stamp(event["ey"], event["em"], event["ed"], event["ehh"], event["emi"], event["ess"]);
    CHECK(told >=
          stamp(before.wYear, before.wMonth, before.wDay, before.wHour, before.wMinute, before.wSecond));
    CHECK(told <= stamp(after.wYear, after.wMonth, after.wDay, after.wHour, after.wMinute, after.wSecond));
    TIME_ZONE_INFORMATION zone{};
    ::GetTimeZoneInformation(&zone);
    CHECK(event["eto"] == zone.Bias);
}

TEST_CASE("what is missing or empty is refused with its own text")
{
    const std::wstring rest = L" initialized. Please use AddVisit method to add the visitor";
    const std::wstring begin = L"NotInitializedException: The analytics data container has not ";
    const std::wstring been = begin + L"been" + rest, bee = begin + L"bee" + rest;
    const std::wstring noEvent =
        L"ContainerHasNoElementsException: The event should be initialized by calling AddEvent.";
    const auto invalid = [](const wchar_t* name) {
        return L"InvalidStringParameterException: The parameter " + std::wstring(name) + L" is invalid.";
    };
    CDataCollector collector(L"Updater", L"1", L"", L"", L"");
    // One letter for each text that isn't empty.
    const auto visit = [&](const std::wstring& s, std::size_t n) {
        const auto text = [=](std::size_t i) { return i < n ? s : L""; };
        return [=, &collector] { collector.AddVisit(text(0), text(1), text(2), text(3)); };
    };
    const auto event = [&](const wchar_t* a, const wchar_t* b, const wchar_t* c) {
        return [=, &collector] { collector.AddEvent(a, b, c, 0); };
    };
    const auto variable = [&](const wchar_t* key, const wchar_t* value) {
        return [=, &collector] { collector.AddCustomVariableForSession(1, key, value, 1); };
    };
    const auto query = [&] {
        std::wstring text;
        collector.GetEventsQueryString(text);
    };
    Tests::CheckFailures({{event(L"c", L"a", L"l"), been, "::AddEvent"},
                          {variable(L"k", L"v"), bee, "::AddCustomVariableForSession"},
                          {query, bee, "::GetEventsQueryString"},
                          {visit(L"x", 0), invalid(L"visitorId"), "::AddVisit"},
                          {query, noEvent}, // the refused visit is there, but has nobody in it
                          {visit(L"x", 1), invalid(L"sessionId")},
                          {visit(L"x", 2), invalid(L"screenResolution")},
                          {visit(L"x", 3), invalid(L"operatingSystem")},
                          {visit(L"x", 4), L""},
                          {event(L"", L"", L""), invalid(L"category")},
                          {event(L"c", L"", L""), invalid(L"action")},
                          {event(L"c", L"a", L""), invalid(L"label")},
                          {query, noEvent},
                          {event(L"c", L"a", L"l"), L""},
                          {variable(L"", L""), invalid(L"key")},
                          {variable(L"k", L""), invalid(L"value")},
                          {query, L""},
                          {visit(L"x", 4), L""}, // a new visit begins without event
                          {query, noEvent}});
}
