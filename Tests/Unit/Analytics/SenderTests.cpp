// What the collector host, the network and other processes do to the sender and to a run's logger.
// Not shown here: a connection that the network keeps from being made at all (Wine and 127.0.0.1 refuse at
// once), and an answer that isn't HTTP at all, which Wine takes for a 200 of HTTP/0.9.
#include "Tests/Unit/Analytics/Fixture.h"
#include "Updater/Analytics/DataLogger.h"
#include "Updater/Analytics/OSName.h"
#include "Updater/Analytics/RunAnalytics.h"
#include "Updater/Analytics/SiteCookie.h"
#include "Updater/Analytics/VisitorId.h"

#include <wininet.h>

#include <nlohmann/json.hpp>
#include <numeric>
#include <thread>

using Tests::HttpReply;
using Ending = HttpReply::Ending;

namespace
{
constexpr std::uint32_t FlushMs = 5000;

HttpReply Reply(const std::string& status, const std::string& headers = "Content-Length: 0",
                Ending end = Ending::KeepAlive)
{
    HttpReply reply;
    reply.StallBeforeHead = status == "none";
    reply.Head = status.empty() ? headers : Tests::HttpHead(status == "none" ? "200 OK" : status, {headers});
    reply.End = end;
    return reply;
}

void WriteIni(const std::wstring& path, const wchar_t* section, const wchar_t* key, const wchar_t* value)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    REQUIRE(::WritePrivateProfileStringW(section, key, value, path.c_str()));
}
} // namespace

TEST_CASE("a record leaves the queue when, and only when, the final status is from 200 to 299")
{
    HttpReply slow = Reply("200 OK", "Content-Length: 9");
    slow.Body = Tests::FillPattern;
    slow.BodyLength = 9;
    slow.TrickleBytes = 3;
    slow.TrickleMs = 50;
    // clang-format off
    for (const auto& [answer, taken] : {std::pair{Reply("200 OK"), true}, {Reply("299 Fine"), true},
        {slow, true}, {Reply("302 Found", "Content-Length: 0\r\nLocation: /moved"), true},
        {Reply("300 Multiple Choices"), false}, {Reply("404 Not Found"), false},
        {Reply("503 Service Unavailable", "Content-Length: 0\r\nRetry-After: 1"), false},
        {Reply("", "", Ending::Close), false}, {Reply("", "", Ending::Reset), false},
        {Reply("", "HTTP/1.", Ending::Close), false},
        {Reply("200 OK", "Content-Length: 9", Ending::Close), true}})
    // clang-format on
    {
        CHostedMachine machine([reply = answer](const Tests::HttpRequest& request) {
            return request.Target.find("/moved") != std::string::npos ? Reply("200 OK") : reply;
        });
        machine.Append({"a", "a", "b"}); // also two that are equal
        Flush(machine.Queue, machine.Host.Endpoint());
        // The first failure ends it; what the transport repeats by itself is one attempt.
        const Texts labels = machine.Host.Labels();
        CHECK_MESSAGE((machine.Size() == QueueHeaderSize) == taken, answer.Head);
        CHECK((taken ? labels == Texts{"a", "a", "b"} : std::count(labels.begin(), labels.end(), "b") == 0));
    }
}

TEST_CASE("offline and without a host the queue grows; then the longest query arrives, a longer one not")
{
    CHostedMachine machine;
    std::string longest = QueryOf("x");
    longest.resize(2083, 'x');
    for (const std::string& query : {longest + "x", longest, QueryOf("\xC3\xA9\xED\x95\x9C")})
        REQUIRE(machine.Queue->Append(query));
    machine.Set(L"Software\\Larkspur", L"ConnectionStatusOverride", L"\0"s, REG_DWORD);
    Flush(machine.Queue, machine.Host.Endpoint());
    CHECK(machine.Size() > 2 * 2083);
    machine.Values.pop_front();
    machine.Host.Server().GoAway();
    for (const std::string& endpoint : {machine.Host.Endpoint(), "no URL"s})
        Flush(machine.Queue, endpoint);
    CHECK((machine.Size() > 2083 && machine.Host.Server().Requests().empty()));
    machine.Host.Server().Reopen();
    Flush(machine.Queue, machine.Host.Endpoint());
    REQUIRE((machine.Host.Server().Requests().size() == 2 && machine.Host.Labels().size() == 1));
    CHECK(machine.Host.Server().Requests()[0].Target == "/DataTracker.aspx?" + longest);
    CHECK(machine.Host.Labels()[0] == "\xC3\xA9\xED\x95\x9C");
}

TEST_CASE("a silent host, or another process that hangs, delays the end by no more than the limit")
{
    CHostedMachine machine([](const Tests::HttpRequest&) { return Reply("none"); });
    machine.Append({"a", "b"});
    const DWORD time = Flush(machine.Queue, machine.Host.Endpoint(), FlushMs);
    CHECK((time >= FlushMs - 200 && time < 2 * FlushMs)); // twice, for a busy machine
    machine.Host.Server().Release();
    for (const bool inUpload : {true, false})
    {
        // A mutex belongs to a thread: another one of this process stands for the other process.
        const LS::System::Win32::CEvent taken(true, false), mayEnd(true, false);
        std::thread other([&] {
            const LS::System::Win32::CMutex mutex(
                "_LSAnalytics{98CA00B7-D428-47a8-8EBE-66ADA4179BB9}"s + (inUpload ? "_uld" : ""), false);
            mutex.Wait(60000); // which also shows that the sender has given it back
            taken.Set();
            mayEnd.Wait(60000); // ends without giving the mutex back: the next owner finds it abandoned
        });
        CHECK(taken.Wait(60000) == WAIT_OBJECT_0);
        CHECK(Flush(machine.Queue, machine.Host.Endpoint(), 1000) < FlushMs);
        CHECK(machine.Queue->Append(QueryOf("c")) == inUpload); // the run goes on with or without its record
        mayEnd.Set();
        other.join();
    }
    Flush(machine.Queue, machine.Host.Endpoint());
    Texts labels = machine.Host.Labels(); // the host knew the one that was given up
    labels.erase(std::unique(labels.begin(), labels.end()), labels.end());
    CHECK(std::accumulate(labels.begin(), labels.end(), ""s) == "abc");
}

TEST_CASE("OS names, cookies and visitor ids")
{
    // clang-format off
    for (const auto& [version, name] : {std::pair{L"6.1.7601.1", L"Windows 7"},
        {L"6.0.6002.2", L"Windows Vista"}, {L"5.1.2600.3", L"Windows XP"}, {L"6.2.9200", L"Windows"},
        {L"6.10.1", L"Windows"}, {L"10.0.1", L"Windows"}})
        CHECK(OSNameOf(version) == name);
    for (const auto& [cookies, value] : {std::pair{L"ecs_guid=a", L"a"}, {L"x=1; ecs_guid=a=b ;y=2", L"a=b"},
        {L";;=;ecs_guid", L""}, {L"xecs_guid=1;ecs_guid2=2;ECS_GUID=3", L""}})
        CHECK(CookieValue(cookies, L"ecs_guid") == value);
    // clang-format on
    const Tests::CTempFolder folder;
    const std::wstring user = folder.Path(L"User\\a.ini"), machine = folder.Path(L"Machine\\a.ini");
    const std::wstring made = FindOrMakeVisitorId(user, machine);
    WriteIni(machine, L"Analytics", L"VisitorID", L"machine's");
    CHECK((made.size() == 36 && FindOrMakeVisitorId(user, machine) == made));
    WriteIni(user, L"Analytics", L"VisitorID", L""); // counts as missing; the machine's is copied and stays
    for (const std::wstring& other : {machine, std::wstring()})
        CHECK(FindOrMakeVisitorId(user, other) == L"machine's");
    CHECK(FindOrMakeVisitorId(user + L"\\nowhere", L"").size() == 36);
}

TEST_CASE("a run's events reach the host with all that is known of the run, and no failure reaches the run")
{
    CHostedMachine machine;
    machine.Set(L"SOFTWARE\\Larkspur\\Debugging", L"CookieDomain", L"visit.larkspur.example");
    WriteIni(machine.Path(L"Common AppData\\Larkspur\\Larkspur.ini"), L"Main", L"OEMOrigin", L"Shop 5");
    ::InternetSetCookieW(L"http://visit.larkspur.example", L"ecs_guid", L"0f8fad5b-d9cb");
    {
        CDataLogger logger(L"part&ner", L"dp", L"session-1");
        logger.UpdateEvent(L"NoUpdate");
        logger.UpdateEvent(L"Update", -2147024891);
        CHECK_THROWS_AS(logger.ErrorEvent(L"x", L""), LS::System::CException);
        logger.FinalFlush();
        logger.UpdateEvent(L"after"); // is for the next run
    }
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
        std::filesystem::remove_all(machine.Path(session[0] ? L"AppData\\Larkspur\\Analytics" : L"none"));
        Tests::WriteBytes(machine.Path(session[0] ? L"AppData\\Larkspur\\Analytics" : L"none"), "in the way");
    }
    std::string told;
    for (const auto& event : machine.Host.Events())
        told += event.Category + " " + event.Action + " " + event.Label + " " + std::to_string(event.Value) +
                "; ";
    CHECK(told ==
          "Update NoAction NoUpdate 1; Update -2147024891 Update 2147942405; Update NoAction after 1; "
          "ErrorInfo DeletePrevDL NA 32; ");
    CHECK(machine.Host.Problems() == Texts{});
    const std::string screen = std::to_string(::GetSystemMetrics(SM_CXSCREEN)) + "x" +
                               std::to_string(::GetSystemMetrics(SM_CYSCREEN));
    const auto first = machine.Host.Events().at(0);
    const auto session =
        nlohmann::json::parse(first.Json)["vt"]["sess"].dump() + first.Partner + first.Version;
    CHECK(session ==
          R"({"c":{"dim":{"1":{"k":"OEMOrigin","v":"Shop 5"},"2":{"k":"ecs_guid","v":"0f8fad5b-d9cb")"
          R"(}}},"id":"session-1","os":"Windows","res":")" +
              screen + "\"}part&ner1.1.1.13");
}
