// What other processes do to the sender, and what a run's logger tells. What the collector host and the
// network do is shown by the end-to-end tests.
#include "Ls/Analytics/Json/Writer.h"
#include "Ls/Analytics/VisitDocument.h"
#include "Tests/Support/Platform.h"
#include "Tests/Unit/Analytics/Fixture.h"
#include "Updater/Analytics/DataLogger.h"
#include "Updater/Analytics/OSName.h"
#include "Updater/Analytics/RunAnalytics.h"
#include "Updater/Analytics/SiteCookie.h"

#include <wininet.h>

#include <nlohmann/json.hpp>
#include <thread>

TEST_SUITE_BEGIN(Tests::NeedsAdministrator());

TEST_CASE("another process that hangs delays the end by no more than the limit")
{
    constexpr DWORD broken = 25000; // less than any wait that isn't cut short by the limit
    CHostedMachine machine;
    for (const char* label : {"a", "b"})
        REQUIRE(machine.Queue->Append(QueryOf(label)));
    for (const bool inUpload : {true, false})
    {
        // A mutex belongs to a thread: another one of this process stands for the other process.
        const LS::System::Win32::CEvent taken(true, false), mayEnd(true, false);
        std::thread other([&] {
            const LS::System::Win32::CMutex mutex(
                "_LSAnalytics{98CA00B7-D428-47a8-8EBE-66ADA4179BB9}"s + (inUpload ? "_uld" : ""), false);
            mutex.Wait(60000); // which also shows that the sender has given it back
            taken.Set();
            mayEnd.Wait(300000); // ends without giving the mutex back: the next owner finds it abandoned
        });
        CHECK(taken.Wait(60000) == WAIT_OBJECT_0);
        CHECK(Flush(machine.Queue, machine.Host.Endpoint(), 1000) < broken);
        CHECK(machine.Queue->Append(QueryOf("c")) == inUpload); // the run goes on with or without its record
        CHECK(machine.Host.Labels() == Texts{});
        mayEnd.Set();
        other.join();
    }
    machine.Set(L"Software\\Larkspur", L"ConnectionStatusOverride", std::wstring(1, L'\0'), REG_DWORD);
    Flush(machine.Queue, machine.Host.Endpoint());
    CHECK(machine.Host.Labels() == Texts{});
    machine.Values.pop_front(); // online again
    Flush(machine.Queue, machine.Host.Endpoint());
    CHECK(machine.Host.Labels() == Texts{"a", "b", "c"});
}

TEST_CASE("the document of fixed values, and names of systems")
{
    using namespace LS::Analytics;
    const Moment visit{31, 12, 2026, 23, 58, 59, -345}, event{1, 2, 2027, 3, 4, 5, 60};
    const VisitorAndSession who{L"a", L"b", L"c", L"d", {}};
    CHECK(json::Write(BuildVisitDocument({visit, L"e", L"f", L"g", L"h", L"i", {}, {}, {}}, who,
                                         {event, L"j", L"k", L"l", 7})) ==
          LR"({"d":31,"m":12,"y":2026,"hh":23,"mi":58,"ss":59,"to":-345,"app":"e","st":"g","u":"h","pa":"i",)"
          LR"("v":"f","vt":{"vtor":{"id":"a"},"sess":{"id":"b","res":"c","os":"d"}},"evt":{"ed":1,"em":2,)"
          LR"("ey":2027,"ehh":3,"emi":4,"ess":5,"eto":60,"ect":"j","ac":"k","lb":"l","vl":7}})");
    CHECK(OSNameOf(L"6.1.7601.1") + OSNameOf(L"5.1.2600.3") + OSNameOf(L"6.2.9") ==
          L"Windows 7Windows XPWindows");
}

TEST_CASE("a run's events reach the host with all that is known of the run, and no failure reaches the run")
{
    // The first answer comes late, but within what a run's end waits.
    CHostedMachine machine([](const Tests::HttpRequest& request) {
        ::Sleep(request.Index == 0 ? 600 : 0);
        return Tests::TextReply("");
    });
    machine.Set(L"SOFTWARE\\Larkspur\\Debugging", L"CookieDomain", L"visit.larkspur.example");
    const std::wstring settings = machine.Path(L"Common AppData\\Larkspur");
    std::filesystem::create_directory(settings);
    Tests::WriteBytes(settings + L"\\Larkspur.ini", "[Main]\r\nOEMOrigin=Shop 5\r\n");
    CHECK(CookieValue(L"a=1; ecs_guid=2; b=3", L"ecs_guid") == L"2");
    ::InternetSetCookieW(L"http://visit.larkspur.example", L"ecs_guid", std::wstring(65, L'x').c_str());
    CHECK(SiteUserId(L"visit.larkspur.example") == L""); // too long
    ::InternetSetCookieW(L"http://visit.larkspur.example", L"ecs_guid", L"0f8fad5b-d9cb");
    {
        CDataLogger logger(L"part&ner", L"dp", L"session-1");
        logger.UpdateEvent(L"Update", -2147024891);
        ::SetLastError(ERROR_SUCCESS);
        logger.ErrorEvent(L"a&b=c\\", L"C:\\\"=&"); // nothing in a value is anything to the query string
        CHECK_THROWS_AS(logger.ErrorEvent(L"x", L""), LS::System::CException);
        logger.FinalFlush();
        logger.UpdateEvent(L"after"); // is for the next run
    }
    const std::wstring folder = machine.Path(L"AppData\\Larkspur\\Analytics");
    for (const wchar_t* session : {L"", L"session-2", L"session-3"}) // no logger without a session
    {
        CRunAnalytics::Begin(L"", L"", session);
        for (const wchar_t* action : {L"", L"DeletePrevDL"}) // the first is refused
        {
            ::SetLastError(ERROR_SHARING_VIOLATION);
            CRunAnalytics::ErrorEvent(action, L"NA");
            CHECK(::GetLastError() == ERROR_SHARING_VIOLATION);
        }
        CRunAnalytics::End();
        if (session[0] == L'\0')
            continue;
        std::filesystem::remove_all(folder);
        Tests::WriteBytes(folder, "in the way");
    }
    std::string told;
    for (const auto& event : machine.Host.Events())
        told += event.Category + " " + event.Action + " " + event.Label + " " + std::to_string(event.Value) +
                "; ";
    CHECK(told == "Update -2147024891 Update 2147942405; ErrorInfo a&b=c\\ C:\\\"=& 0; Update NoAction after "
                  "1; ErrorInfo DeletePrevDL NA 32; ");
    CHECK(machine.Host.Problems() == Texts{});
    const auto session = nlohmann::json::parse(machine.Host.Events().at(0).Json)["vt"]["sess"];
    CHECK(session["c"].dump() ==
          R"({"dim":{"1":{"k":"OEMOrigin","v":"Shop 5"},"2":{"k":"ecs_guid","v":"0f8fad5b-d9cb"}}})");
}
