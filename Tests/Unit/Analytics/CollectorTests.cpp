#include "Ls/Analytics/DataCollector.h"
#include "Ls/Analytics/Json/Exception.h"
#include "Ls/Analytics/Json/Writer.h"
#include "Ls/Analytics/PercentEncoding.h"
#include "Ls/Analytics/VisitDocument.h"
#include "Ls/System/String/Convert.h"
#include "Ls/System/String/Printf.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/CollectorHost.h"
#include "Tests/Support/WideText.h"

#include <windows.h>

#include <doctest/doctest.h>

#include <nlohmann/json.hpp>

using namespace LS::Analytics;

namespace
{
std::wstring Query(const CDataCollector& collector)
{
    std::wstring query;
    collector.GetEventsQueryString(query);
    return query;
}

/// Read by the stand-in for the collector host, which also checks it.
Tests::CollectedEvent Decoded(const CDataCollector& collector)
{
    Tests::HttpRequest request;
    request.Method = "GET";
    request.Target = "/DataTracker.aspx?" + LS::WideToAnsi(Query(collector));
    std::string problem;
    const auto event = Tests::DecodeCollectorRequest(request, problem);
    CHECK(problem == "");
    REQUIRE(event);
    return *event;
}

/// The part of the text between two others.
std::wstring Between(const std::wstring& text, const std::wstring& before, const std::wstring& after)
{
    const auto begin = text.find(before) + before.size();
    return text.substr(begin, text.find(after, begin) - begin);
}
} // namespace

TEST_CASE("a visit's document has its members in the collector host's order")
{
    Visit visit{{14, 11, 2026, 5, 56, 3, -60}, L"Updater", L"1.0.0.0", L"site", L"", L"", {}, {}, {}};
    VisitorAndSession who{L"A1", L"S1", L"1920x1080", L"Windows 7", {}};
    const Event event{{14, 11, 2026, 5, 56, 4, -60}, L"Update", L"Start", L"x", 0};
    CHECK(json::Write(BuildVisitDocument(visit, who, event)) ==
          LR"({"d":14,"m":11,"y":2026,"hh":5,"mi":56,"ss":3,"to":-60,"app":"Updater","st":"site","u":"",)"
          LR"("pa":"","v":"1.0.0.0","vt":{"vtor":{"id":"A1"},"sess":{"id":"S1","res":"1920x1080",)"
          LR"("os":"Windows 7"}},"evt":{"ed":14,"em":11,"ey":2026,"ehh":5,"emi":56,"ess":4,"eto":-60,)"
          LR"("ect":"Update","ac":"Start","lb":"x","vl":0}})");

    visit.CustomVariables = {{2, L"k", L"v", 3}};
    who.CustomVariables = {{2, L"m", L"1", 5},
                           {3, L"no", L"kind", 2},
                           {1, L"b", L"2", 2},
                           {1, L"a", L"3", 1},
                           {1, L"no", L"place", 6}};
    const std::wstring text = json::Write(BuildVisitDocument(visit, who, event));
    CHECK(Between(text, L"\"v\":\"1.0.0.0\",", L",\"vt\"") == LR"("c":{"mea":{"3":{"k":"k","v":"v"}}})");
    CHECK(Between(text, L"\"Windows 7\",", L"},\"evt\"") ==
          LR"("c":{"dim":{"2":{"k":"b","v":"2"},"1":{"k":"a","v":"3"}},"mea":{"5":{"k":"m","v":"1"}}}})");
}

TEST_CASE("the query string of a filled visit, byte by byte")
{
    SYSTEMTIME before, after;
    ::GetSystemTime(&before);
    CDataCollector collector(L"Updater", L"1.1.1.13", L"www.site.example", L"", L"part&ner");
    collector.AddVisit(L"V-1", L"S-1", L"1920x1080", L"Windows 7");
    collector.AddCustomVariableForSession(CustomVariableDimension, L"OEMOrigin", L"Shop 5", 1);
    collector.AddEvent(L"ErrorInfo", L"NewDL", L"a&b=c \"\u2013\u00E9\"", 0xFFFFFFFF);
    ::GetSystemTime(&after);
    const std::wstring query = Query(collector);

    // The times that the collector took, as the string tells them; everything else is known.
    const nlohmann::json read = nlohmann::json::parse(Decoded(collector).Json);
    const auto number = [&](const char* name) { return read[name].get<int>(); };
    std::wstring moments[2];
    for (const std::wstring prefix : {L"", L"e"})
    {
        const nlohmann::json& object = prefix.empty() ? read : read["evt"];
        for (const char* name : {"d", "m", "y", "hh", "mi", "ss", "to"})
        {
            const std::wstring full = prefix + LS::AnsiToWide(name);
            moments[prefix.size()] +=
                L"%22" + full + L"%22%3A" + std::to_wstring(object[LS::WideToAnsi(full)].get<int>()) + L"%2C";
        }
    }
    CHECK(query == L"action=ev&data=%7B" + moments[0] +
                       L"%22app%22%3A%22Updater%22%2C%22st%22%3A%22www.site.example%22%2C%22u%22%3A%22%22%2C"
                       L"%22pa%22%3A%22part%26ner%22%2C%22v%22%3A%221.1.1.13%22%2C%22vt%22%3A%7B"
                       L"%22vtor%22%3A%7B%22id%22%3A%22V-1%22%7D%2C%22sess%22%3A%7B%22id%22%3A%22S-1%22%2C"
                       L"%22res%22%3A%221920x1080%22%2C%22os%22%3A%22Windows%207%22%2C%22c%22%3A%7B"
                       L"%22dim%22%3A%7B%221%22%3A%7B%22k%22%3A%22OEMOrigin%22%2C%22v%22%3A%22Shop%205%22%7D"
                       L"%7D%7D%7D%7D%2C%22evt%22%3A%7B" +
                       moments[1] +
                       L"%22ect%22%3A%22ErrorInfo%22%2C%22ac%22%3A%22NewDL%22%2C%22lb%22%3A%22a%26b%3Dc%20"
                       L"%5C%22%13\u00E9%5C%22%22%2C%22vl%22%3A4294967295%7D%7D");

    const auto stamp = [](int year, int month, int day, int hour, int minute, int second) {
        return LS::Printf("%04d%02d%02d%02d%02d%02d", year, month, day, hour, minute, second);
    };
    const auto stampOf = [&](const SYSTEMTIME& t) {
        return stamp(t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond);
    };
    const std::string told =
        stamp(number("y"), number("m"), number("d"), number("hh"), number("mi"), number("ss"));
    CHECK(told >= stampOf(before));
    CHECK(told <= stampOf(after));
    TIME_ZONE_INFORMATION zone{};
    ::GetTimeZoneInformation(&zone);
    CHECK(number("to") == zone.Bias);

    CHECK(Query(collector) == query); // nothing is consumed
}

TEST_CASE("what is missing or empty is refused with its own text")
{
    const std::wstring been =
        L"NotInitializedException: The analytics data container has not been initialized. Please use "
        L"AddVisit method to add the visitor";
    std::wstring bee = been;
    bee.erase(bee.find(L"been") + 3, 1);
    const std::wstring noEvent =
        L"ContainerHasNoElementsException: The event should be initialized by calling AddEvent.";

    CDataCollector collector(L"Updater", L"1", L"", L"", L"");
    const auto visit = [&](const wchar_t* a, const wchar_t* b, const wchar_t* c, const wchar_t* d) {
        return [=, &collector] { collector.AddVisit(a, b, c, d); };
    };
    const auto event = [&](const wchar_t* a, const wchar_t* b, const wchar_t* c) {
        return [=, &collector] { collector.AddEvent(a, b, c, 0); };
    };
    const auto variable = [&](const wchar_t* key, const wchar_t* value, std::int32_t index = 1) {
        return [=, &collector] { collector.AddCustomVariableForSession(1, key, value, index); };
    };
    const auto query = [&] { Query(collector); };
    const auto invalid = [](const std::wstring& name) {
        return L"InvalidStringParameterException: The parameter " + name + L" is invalid.";
    };

    const struct
    {
        std::function<void()> Action;
        std::wstring Message;
        const char* Function;
    } Steps[] = {
        {event(L"c", L"a", L"l"), been, "AddEvent"},
        {variable(L"k", L"v"), bee, "AddCustomVariableForSession"},
        {query, bee, "GetEventsQueryString"},
        {visit(L"", L"", L"", L""), invalid(L"visitorId"), "AddVisit"},
        // The refused visit is there, but has nobody in it.
        {query, noEvent, "GetEventsQueryString"},
        {event(L"c", L"a", L"l"), L"", ""},
        {variable(L"k", L"v"), bee, "AddCustomVariableForSession"},
        {query, bee, "GetEventsQueryString"},
        {visit(L"v", L"", L"", L""), invalid(L"sessionId"), "AddVisit"},
        {visit(L"v", L"s", L"", L""), invalid(L"screenResolution"), "AddVisit"},
        {visit(L"v", L"s", L"r", L""), invalid(L"operatingSystem"), "AddVisit"},
        {visit(L"v", L"s", L"r", L"o"), L"", ""},
        {query, noEvent, "GetEventsQueryString"},
        {event(L"", L"", L""), invalid(L"category"), "AddEvent"},
        {event(L"c", L"", L""), invalid(L"action"), "AddEvent"},
        {event(L"c", L"a", L""), invalid(L"label"), "AddEvent"},
        {query, noEvent, "GetEventsQueryString"},
        {event(L"c", L"a", L"l"), L"", ""},
        {variable(L"", L""), invalid(L"key"), "AddCustomVariableForSession"},
        {variable(L"k", L""), invalid(L"value"), "AddCustomVariableForSession"},
        {event(L"c", L"a", L""), invalid(L"label"), "AddEvent"}, // the earlier event stays
        {query, L"", ""},
        // A new visit begins without event and variables, also a refused one.
        {variable(L"k", L"v"), L"", ""},
        {visit(L"v", L"s", L"r", L""), invalid(L"operatingSystem"), "AddVisit"},
        {visit(L"v", L"s", L"r", L"o"), L"", ""},
        {query, noEvent, "GetEventsQueryString"},
    };
    for (const auto& step : Steps)
    {
        CAPTURE(&step - Steps);
        const auto exception = Tests::Caught(step.Action);
        CHECK((exception ? exception->Message() : L"") == step.Message);
        if (exception)
            CHECK(exception->Function() == std::string("LS::Analytics::CDataCollector::") + step.Function);
    }
}

TEST_CASE("a second event replaces the first, and unusable custom variables leave no trace")
{
    CDataCollector collector(L"Updater", L"1", L"", L"", L"");
    collector.AddVisit(L"v", L"s", L"r", L"o");
    collector.AddCustomVariableForSession(CustomVariableDimension, L"k", L"v", 0);
    collector.AddCustomVariableForSession(CustomVariableMeasure, L"k", L"v", 6);
    collector.AddEvent(L"c", L"first", L"l", 1);
    collector.AddEvent(L"c", L"second", L"l", 2);
    CHECK(Decoded(collector).Action == "second");
    CHECK(Decoded(collector).Json.find("\"c\":") == std::string::npos);

    // Two in one place are found out when the text is made, every time.
    collector.AddCustomVariableForSession(CustomVariableDimension, L"k", L"v", 2);
    collector.AddCustomVariableForSession(CustomVariableMeasure, L"k", L"v", 2);
    CHECK(Decoded(collector).Dimensions.at(2).first == "k");
    collector.AddCustomVariableForSession(CustomVariableDimension, L"k", L"v", 2);
    std::wstring result = L"kept";
    for (int i = 0; i < 2; ++i)
        CHECK_THROWS_AS(collector.GetEventsQueryString(result), json::Exception);
    CHECK(result == L"kept");
}
