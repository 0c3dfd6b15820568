#include "Tests/Support/Caught.h"
#include "Tests/Unit/Analytics/Fixture.h"

using namespace LS::Analytics;

TEST_CASE("the query string of a filled visit, byte by byte")
{
    CDataCollector collector(L"Updater", L"1.1.1.13", L"www.site.example", L"", L"part&ner");
    std::wstring query;
    SYSTEMTIME time, after;
    do // all within one second
    {
        ::GetSystemTime(&time);
        collector.AddVisit(L"V-1", L"S-1", L"1920x1080", L"Windows 7");
        collector.AddCustomVariableForSession(CustomVariableDimension, L"OEMOrigin", L"Shop 5", 1);
        collector.AddCustomVariableForSession(CustomVariableDimension, L"no", L"place", 0);
        collector.AddCustomVariableForSession(CustomVariableMeasure, L"no", L"place", 6);
        collector.AddEvent(L"ErrorInfo", L"Other", L"replaced", 1);
        collector.AddEvent(L"ErrorInfo", L"NewDL", L"a&b=c \"\u2013\u00E9\"", 0xFFFFFFFF);
        collector.GetEventsQueryString(query);
        ::GetSystemTime(&after);
    } while (time.wSecond != after.wSecond);
    TIME_ZONE_INFORMATION zone{};
    ::GetTimeZoneInformation(&zone);
    // clang-format off
    std::wstring wanted =
        L"action=ev&data=%7B%22d%22%3A#%2C%22m%22%3A#%2C%22y%22%3A#%2C%22hh%22%3A#%2C%22mi%22%3A#%2C%22ss"
        L"%22%3A#%2C%22to%22%3A#%2C%22app%22%3A%22Updater%22%2C%22st%22%3A%22www.site.example%22%2C%22u%22"
        L"%3A%22%22%2C%22pa%22%3A%22part%26ner%22%2C%22v%22%3A%221.1.1.13%22%2C%22vt%22%3A%7B%22vtor%22%3A"
        L"%7B%22id%22%3A%22V-1%22%7D%2C%22sess%22%3A%7B%22id%22%3A%22S-1%22%2C%22res%22%3A%221920x1080%22"
        L"%2C%22os%22%3A%22Windows%207%22%2C%22c%22%3A%7B%22dim%22%3A%7B%221%22%3A%7B%22k%22%3A%22OEMOrigin"
        L"%22%2C%22v%22%3A%22Shop%205%22%7D%7D%7D%7D%7D%2C%22evt%22%3A%7B%22ed%22%3A#%2C%22em%22%3A#%2C%22e"
        L"y%22%3A#%2C%22ehh%22%3A#%2C%22emi%22%3A#%2C%22ess%22%3A#%2C%22eto%22%3A#%2C%22ect%22%3A%22ErrorIn"
        L"fo%22%2C%22ac%22%3A%22NewDL%22%2C%22lb%22%3A%22a%26b%3Dc%20%5C%22%13\u00E9%5C%22%22%2C%22vl%22%3A"
        L"4294967295%7D%7D";
    // clang-format on
    const long numbers[] = {time.wDay,    time.wMonth,  time.wYear, time.wHour,
                            time.wMinute, time.wSecond, zone.Bias};
    for (std::size_t i = 0, at = 0; (at = wanted.find(L'#')) != std::wstring::npos; i = (i + 1) % 7)
        wanted.replace(at, 1, std::to_wstring(numbers[i]));
    CHECK(query == wanted);
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
