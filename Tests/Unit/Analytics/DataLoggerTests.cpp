#include "Ls/System/String/Convert.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/CollectorHost.h"
#include "Tests/Support/WideText.h"
#include "Tests/Unit/Analytics/Machine.h"
#include "Tests/Unit/Analytics/MemoryStorage.h"
#include "Updater/Analytics/DataLogger.h"
#include "Updater/Analytics/OSName.h"
#include "Updater/Analytics/RunAnalytics.h"
#include "Updater/Analytics/SiteCookie.h"
#include "Updater/Analytics/VisitorId.h"

#include <windows.h>

#include <wininet.h>

#include <doctest/doctest.h>

using Tests::CCollectorHost;

namespace
{
const wchar_t* const Ini = L"\\Larkspur\\Larkspur.ini";

void WriteIni(const std::wstring& path, const wchar_t* section, const wchar_t* key, const wchar_t* value)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    REQUIRE(::WritePrivateProfileStringW(section, key, value, path.c_str()));
}

std::wstring ReadIni(const std::wstring& path)
{
    wchar_t value[100] = L"";
    ::GetPrivateProfileStringW(L"Analytics", L"VisitorID", L"", value, 100, path.c_str());
    return value;
}
} // namespace

TEST_CASE("an OS name goes by the leading characters of the version")
{
    const std::pair<const wchar_t*, const wchar_t*> Cases[] = {{L"6.1.7601.1", L"Windows 7"},
                                                               {L"6.0.6002.2", L"Windows Vista"},
                                                               {L"5.1.2600.3", L"Windows XP"},
                                                               {L"5.", L"Windows XP"},
                                                               {L"6.2.9200.0", L"Windows"},
                                                               {L"10.0.19045.0", L"Windows"},
                                                               {L"6.10.1", L"Windows"},
                                                               {L"6.1", L"Windows"},
                                                               {L"", L"Windows"}};
    for (const auto& [version, name] : Cases)
        CHECK(OSNameOf(version) == name);

    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof(version);
    ::GetVersionExW(&version);
    const std::wstring begin = std::to_wstring(version.dwMajorVersion) + L"." +
                               std::to_wstring(version.dwMinorVersion) + L"." +
                               std::to_wstring(version.dwBuildNumber) + L".";
    CHECK(CDataLogger::GetOSVersion().rfind(begin, 0) == 0);
}

TEST_CASE("a cookie is found by its whole name, and one that is no id is left out")
{
    const std::tuple<std::wstring, std::wstring> Cases[] = {{L"", L""},
                                                            {L"ecs_guid=a", L"a"},
                                                            {L"x=1; ecs_guid=a=b ;y=2", L"a=b"},
                                                            {L"xecs_guid=1;ecs_guid2=2;ECS_GUID=3", L""},
                                                            {L";;=;ecs_guid", L""},
                                                            {L"ecs_guid=;", L""}};
    for (const auto& [cookies, value] : Cases)
        CHECK(CookieValue(cookies, L"ecs_guid") == value);

    const std::wstring url = L"http://cookie.larkspur.example";
    ::InternetSetCookieW(url.c_str(), L"other", std::wstring(3000, L'o').c_str());
    for (const std::size_t length : {36, 64, 65})
    {
        ::InternetSetCookieW(url.c_str(), L"ecs_guid", std::wstring(length, L'g').c_str());
        CHECK(SiteUserId(L"cookie.larkspur.example") == std::wstring(length == 65 ? 0 : length, L'g'));
    }
    CHECK(SiteUserId(L"") == L"");
}

TEST_CASE("a visitor's id comes from the user, else from the machine, else is made once")
{
    const Tests::CTempFolder folder;
    const std::wstring user = folder.Path(L"User") + Ini;
    const std::wstring machine = folder.Path(L"Machine") + Ini;
    const std::wstring made = FindOrMakeVisitorId(user, machine);
    CHECK(made.size() == 36);
    CHECK(ReadIni(user) == made);
    CHECK(!std::filesystem::exists(machine));
    WriteIni(machine, L"Analytics", L"VisitorID", L"machine's");
    CHECK(FindOrMakeVisitorId(user, machine) == made);

    // Empty counts as missing; the machine's is copied and then stays.
    WriteIni(user, L"Analytics", L"VisitorID", L"");
    WriteIni(user, L"Other", L"Key", L"kept");
    CHECK(FindOrMakeVisitorId(user, machine) == L"machine's");
    std::filesystem::remove(machine);
    CHECK(FindOrMakeVisitorId(user, machine) == L"machine's");
    CHECK(Tests::ReadBytes(user).find("kept") != std::string::npos);

    // Nowhere to save: an id for this run.
    Tests::WriteBytes(folder.Path(L"file"), "");
    CHECK(FindOrMakeVisitorId(folder.Path(L"file") + Ini, machine).size() == 36);
}

TEST_CASE("a run's events reach the collector host with all that is known of the run")
{
    CMachine machine;
    CCollectorHost host;
    machine.SetDebug(L"AnalyticsHost", LS::AnsiToWide(host.Host()));
    machine.SetDebug(L"CookieDomain", L"visit.larkspur.example");
    WriteIni(machine.Path(L"Common") + Ini, L"Main", L"OEMOrigin", L"Shop 5");
    ::InternetSetCookieW(L"http://visit.larkspur.example", L"ecs_guid", L"0f8fad5b-d9cb-469f");
    {
        CDataLogger logger(L"part&ner", L"dp", L"session-1");
        logger.UpdateEvent(L"NoUpdate");
        logger.UpdateEvent(L"Update", 1603);
        logger.UpdateEvent(L"Update", -2147024891);
        ::SetLastError(ERROR_SHARING_VIOLATION);
        logger.ErrorEvent(L"DeletePrevDL", L"NA");
        CHECK_THROWS_AS(logger.ErrorEvent(L"x", L""), LS::System::CException);
        logger.FinalFlush();
        logger.UpdateEvent(L"after the flush");
    }
    CHECK(host.Problems() == std::vector<std::string>{});
    const auto events = host.Events();
    REQUIRE(events.size() == 4);
    const std::tuple<const char*, const char*, const char*, std::uint32_t> Expected[] = {
        {"Update", "NoAction", "NoUpdate", 1},
        {"Update", "1603", "Update", 1603},
        {"Update", "-2147024891", "Update", 0x80070005},
        {"ErrorInfo", "DeletePrevDL", "NA", ERROR_SHARING_VIOLATION}};
    for (std::size_t i = 0; i < 4; ++i)
        CHECK(std::tie(events[i].Category, events[i].Action, events[i].Label, events[i].Value) ==
              Expected[i]);
    const auto& event = events[0];
    CHECK(event.Site == "visit.larkspur.example");
    CHECK(event.User == "");
    CHECK(event.Partner == "part&ner");
    CHECK(event.Version == "1.1.1.13");
    CHECK(event.Session == "session-1");
    CHECK(LS::AnsiToWide(event.Visitor) == ReadIni(machine.Path(L"Roaming") + Ini));
    CHECK(event.Screen == std::to_string(::GetSystemMetrics(SM_CXSCREEN)) + "x" +
                              std::to_string(::GetSystemMetrics(SM_CYSCREEN)));
    CHECK(event.System.rfind("Windows", 0) == 0);
    CHECK(event.Dimensions ==
          decltype(event.Dimensions){{1, {"OEMOrigin", "Shop 5"}}, {2, {"ecs_guid", "0f8fad5b-d9cb-469f"}}});

    // What was left is sent by the next run of the same visitor, at its start; without OEM origin and cookie
    // nothing stands in their place.
    WriteIni(machine.Path(L"Common") + Ini, L"Main", L"OEMOrigin", L"");
    machine.SetDebug(L"CookieDomain", L"none.larkspur.example");
    {
        CDataLogger logger(L"", L"", L"session-2");
        CHECK(host.Server().WaitForRequests(5));
        logger.UpdateEvent(L"Update", 0);
        logger.FinalFlush();
    }
    REQUIRE(host.Events().size() == 6);
    CHECK(host.Events()[4].Label == "after the flush");
    CHECK(host.Events()[5].Visitor == event.Visitor);
    CHECK(host.Events()[5].Dimensions.empty());
    CHECK(host.Problems() == std::vector<std::string>{});
}

TEST_CASE("no failure of analytics reaches the run or its last error")
{
    CMachine machine;
    CCollectorHost host;
    machine.SetDebug(L"AnalyticsHost", LS::AnsiToWide(host.Host()));
    const auto mark = [] {
        ::SetLastError(5);
        CRunAnalytics::UpdateEvent(L"");
        CRunAnalytics::UpdateEvent(L"", 7);
        CRunAnalytics::ErrorEvent(L"error", L"");
        CRunAnalytics::ErrorEvent(L"error", L"detail");
        CHECK(::GetLastError() == 5);
    };
    mark(); // before the beginning
    CRunAnalytics::Begin(L"", L"", L"");
    mark(); // no logger without a session
    CRunAnalytics::End();
    CHECK(host.Events().empty());

    CRunAnalytics::Begin(L"", L"", L"session");
    mark();
    CRunAnalytics::End();
    CRunAnalytics::End();
    mark();
    CRunAnalytics::Begin(L"", L"", L"session");
    CRunAnalytics::Drop();
    mark();
    REQUIRE(host.Events().size() == 1);
    CHECK(host.Events()[0].Value == 5);

    // A queue that can't be opened.
    Tests::WriteBytes(machine.Path(L"Roaming\\Larkspur\\file"), "");
    std::filesystem::remove_all(machine.Path(L"Roaming\\Larkspur\\Analytics"));
    Tests::WriteBytes(machine.Path(L"Roaming\\Larkspur\\Analytics"), "in the way");
    CRunAnalytics::Begin(L"", L"", L"session");
    mark();
    CRunAnalytics::End();
    CHECK(host.Events().size() == 1);
}
