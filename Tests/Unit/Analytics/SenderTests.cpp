// What the collector host, the network and other processes do to the sender and to a run's logger.
// Not shown here: a connection that the network keeps from being made at all (Wine and 127.0.0.1 refuse at
// once), and an answer that isn't HTTP at all, which Wine takes for a 200 of HTTP/0.9.
#include "Tests/Support/Caught.h"
#include "Tests/Support/CollectorHost.h"
#include "Tests/Unit/Analytics/Machine.h"
#include "Tests/Unit/Analytics/Queues.h"
#include "Updater/Analytics/AnalyticsSender.h"
#include "Updater/Analytics/DataLogger.h"
#include "Updater/Analytics/OSName.h"
#include "Updater/Analytics/RunAnalytics.h"
#include "Updater/Analytics/SiteCookie.h"
#include "Updater/Analytics/VisitorId.h"

#include <wininet.h>

#include <nlohmann/json.hpp>
#include <random>
#include <thread>

using namespace LS::System;
using Tests::CCollectorHost;
using Tests::HttpReply;
using Tests::HttpRequest;

namespace
{
/// Long enough for any machine to do what it can do; what must not take longer is checked against less.
constexpr std::uint32_t LongMs = 60000;
constexpr std::uint32_t FlushMs = 5000;

struct CFixture
{
    void Append(const Texts& labels)
    {
        for (const std::string& label : labels)
            REQUIRE(Queue->Append(QueryOf(label)));
    }
    /// The time that it takes.
    DWORD Flush(const std::string& endpoint, std::uint32_t limit = LongMs)
    {
        const DWORD start = ::GetTickCount();
        MakeRef<CAnalyticsSender>(Queue, endpoint)->FlushAndStop(limit);
        return ::GetTickCount() - start;
    }
    /// Number of queued query strings, which stay.
    std::size_t Queued() const
    {
        CMemoryStorage copy(Tests::ReadBytes(Queue->Path()));
        return Drain(copy).size();
    }

    CMachine Machine;
    CRefPtr<CAnalyticsQueue> Queue = OpenQueue(Machine.Path(L"Roaming"));
};

/// An answer without a body.
HttpReply Status(const std::string& status)
{
    HttpReply reply;
    reply.Head = Tests::HttpHead(status, {"Content-Length: 0"});
    return reply;
}

HttpReply Cut(HttpReply::Ending ending, const std::string& head)
{
    HttpReply reply;
    reply.Head = head;
    reply.End = ending;
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
    const std::pair<HttpReply, bool> table[] = {
        {Status("200 OK"), true},
        {Status("299 Fine"), true},
        {Status("302 Found\r\nLocation: /DataTracker.aspx/moved"), true},
        {Status("300 Multiple Choices"), false},
        {Status("404 Not Found"), false},
        {Status("503 Service Unavailable\r\nRetry-After: 1"), false},
        {Cut(HttpReply::Ending::Close, ""), false},
        {Cut(HttpReply::Ending::Reset, ""), false},
        {Cut(HttpReply::Ending::Close, "HTTP/1."), false},
        {Cut(HttpReply::Ending::Close, Tests::HttpHead("200 OK", {"Content-Length: 9"})), true}};
    for (const auto& [answer, taken] : table)
    {
        CAPTURE(answer.Head);
        CFixture fixture;
        fixture.Append({"a", "a", "b"}); // also two that are equal
        CCollectorHost host([reply = answer](const HttpRequest& request) {
            return request.Target.find("/moved") != std::string::npos ? Status("200 OK") : reply;
        });
        fixture.Flush(host.Endpoint());
        CHECK(fixture.Queued() == (taken ? 0 : 3));
        // The first failure ends it; what the transport repeats by itself is one attempt.
        const Texts labels = host.Labels();
        CHECK((taken ? labels == Texts{"a", "a", "b"} : std::count(labels.begin(), labels.end(), "b") == 0));
    }
}

TEST_CASE("offline and without a host the queue grows; then the longest query string arrives whole, a longer "
          "one not")
{
    CFixture fixture;
    CCollectorHost host;
    const auto ofLength = [](std::size_t length) {
        std::string query;
        while (query.size() != length) // the time in it may have become longer
            query = QueryOf(std::string(1 + length - QueryOf("x").size(), 'x'));
        return query;
    };
    const std::string longest = ofLength(2083);
    for (const std::string& query : {ofLength(2084), longest, QueryOf("\xC3\xA9\xED\x95\x9C")})
        REQUIRE(fixture.Queue->Append(query));
    fixture.Machine.SetOnline(false);
    fixture.Flush(host.Endpoint());
    fixture.Machine.SetOnline(true);
    host.Server().GoAway();
    fixture.Flush(host.Endpoint());
    fixture.Flush("no URL");
    CHECK(fixture.Queued() == 2);
    CHECK(host.Server().Requests().empty());
    host.Server().Reopen();
    fixture.Flush(host.Endpoint());
    REQUIRE(host.Server().Requests().size() == 2);
    CHECK(host.Server().Requests()[0].Target == "/DataTracker.aspx?" + longest);
    CHECK(host.Labels()[1] == "\xC3\xA9\xED\x95\x9C");
    CHECK(host.Problems() == Texts{});
    CHECK(fixture.Queued() == 0);
}

TEST_CASE(
    "a record that is added while the sender finishes is sent without another event; ten are sent at once")
{
    CFixture fixture;
    CCollectorHost host;
    const auto sender = MakeRef<CAnalyticsSender>(fixture.Queue, host.Endpoint());
    std::mt19937 random(3);
    for (unsigned i = 1; i <= 60; ++i)
    {
        fixture.Append({std::to_string(i)});
        sender->EnsureRunning(SenderSettings());
        REQUIRE(host.Server().WaitForRequests(i, LongMs));
        // The next one comes just when the sender has found the queue empty.
        for (const DWORD start = ::GetTickCount();
             Tests::ReadBytes(fixture.Queue->Path()).size() > QueueHeaderSize &&
             ::GetTickCount() - start < LongMs;)
            ::SwitchToThread();
        for (unsigned spin = random() % 60; spin > 0; --spin)
            ::SwitchToThread();
    }
    fixture.Append(Texts(10, "ten"));
    const DWORD time = fixture.Flush(host.Endpoint(), FlushMs);
    MESSAGE("ten records in " << time << " ms");
    CHECK(time < FlushMs / 2);
    CHECK(host.Labels().size() == 70);
}

TEST_CASE("a host that accepts and never answers delays the end by no more than the flush limit")
{
    CFixture fixture;
    fixture.Append({"a", "b"});
    CCollectorHost host([](const HttpRequest&) {
        HttpReply reply = Status("200 OK");
        reply.StallBeforeHead = true;
        return reply;
    });
    {
        const auto sender = MakeRef<CAnalyticsSender>(fixture.Queue, host.Endpoint());
        sender->EnsureRunning(SenderSettings());
        REQUIRE(host.Server().WaitForRequests(1));
        const DWORD start = ::GetTickCount();
        sender->FlushAndStop(FlushMs);
        CHECK(::GetTickCount() - start >= FlushMs - 200);
        CHECK(::GetTickCount() - start < FlushMs + 1000); // for a busy machine
        sender->EnsureRunning(SenderSettings());          // nothing after a stop
        sender->Stop(250);
    }
    // Other processes can upload at once.
    CHECK(fixture.Queue->UploadMutex().Wait(FlushMs) == WAIT_OBJECT_0);
    fixture.Queue->UploadMutex().ReleaseMutex();
    CHECK(fixture.Queued() == 2);
    host.Server().Release();
    fixture.Flush(host.Endpoint()); // the host may know the one that was given up already
    CHECK(host.Labels().back() == "b");
}

TEST_CASE("another process that hangs in its upload, or in the queue, is waited for within the limit")
{
    CFixture fixture;
    CCollectorHost host;
    fixture.Append({"a"});
    for (const bool inUpload : {true, false})
    {
        // A mutex belongs to a thread: another one of this process stands for the other process.
        const Win32::CEvent taken(true, false), giveBack(true, false);
        std::thread other([&] {
            const Win32::CMutex mutex(std::string("_LSAnalytics{98CA00B7-D428-47a8-8EBE-66ADA4179BB9}") +
                                          (inUpload ? "_uld" : ""),
                                      false);
            mutex.Wait(LongMs);
            taken.Set();
            giveBack.Wait(LongMs); // ends without giving the mutex back: the next owner finds it abandoned
        });
        CHECK(taken.Wait(LongMs) == WAIT_OBJECT_0);
        CHECK(fixture.Flush(host.Endpoint(), 1000) < 3000);
        CHECK(fixture.Queue->Append(QueryOf("b")) == inUpload); // the run goes on with or without its record
        giveBack.Set();
        other.join();
    }
    CHECK(host.Labels().empty());
    fixture.Flush(host.Endpoint());
    CHECK(host.Labels() == Texts{"a", "b"});
}

TEST_CASE("OS names, cookies and visitor ids")
{
    for (const auto& [version, name] : {std::pair{L"6.1.7601.1", L"Windows 7"},
                                        {L"6.0.6002.2", L"Windows Vista"},
                                        {L"5.1.2600.3", L"Windows XP"},
                                        {L"6.10.1", L"Windows"},
                                        {L"10.0.1", L"Windows"}})
        CHECK(OSNameOf(version) == name);
    for (const auto& [cookies, value] : {std::pair{L"ecs_guid=a", L"a"},
                                         {L"x=1; ecs_guid=a=b ;y=2", L"a=b"},
                                         {L";;=;ecs_guid", L""},
                                         {L"xecs_guid=1;ecs_guid2=2;ECS_GUID=3", L""}})
        CHECK(CookieValue(cookies, L"ecs_guid") == value);
    const Tests::CTempFolder folder;
    const std::wstring user = folder.Path(L"User\\a.ini"), machine = folder.Path(L"Machine\\a.ini");
    const std::wstring made = FindOrMakeVisitorId(user, machine);
    CHECK((made.size() == 36 && FindOrMakeVisitorId(user, machine) == made));
    WriteIni(machine, L"Analytics", L"VisitorID", L"machine's");
    CHECK(FindOrMakeVisitorId(user, machine) == made);
    WriteIni(user, L"Analytics", L"VisitorID",
             L""); // counts as missing; the machine's is copied and then stays
    CHECK(FindOrMakeVisitorId(user, machine) == L"machine's");
    CHECK(FindOrMakeVisitorId(user, L"") == L"machine's");
    CHECK(FindOrMakeVisitorId(user + L"\\nowhere", L"").size() == 36);
}

TEST_CASE("a run's events reach the collector host with all that is known of the run, what is left with the "
          "next run's")
{
    CMachine machine;
    CCollectorHost host;
    machine.SetDebug(L"AnalyticsHost", LS::AnsiToWide(host.Host()));
    machine.SetDebug(L"CookieDomain", L"visit.larkspur.example");
    WriteIni(machine.Path(L"Common\\Larkspur\\Larkspur.ini"), L"Main", L"OEMOrigin", L"Shop 5");
    ::InternetSetCookieW(L"http://visit.larkspur.example", L"ecs_guid", L"0f8fad5b-d9cb-469f");
    {
        CDataLogger logger(L"part&ner", L"dp", L"session-1");
        logger.UpdateEvent(L"NoUpdate");
        logger.UpdateEvent(L"Update", -2147024891);
        ::SetLastError(ERROR_SHARING_VIOLATION);
        logger.ErrorEvent(L"DeletePrevDL", L"NA");
        CHECK_THROWS_AS(logger.ErrorEvent(L"x", L""), CException);
        logger.FinalFlush();
        logger.UpdateEvent(L"after");
    }
    CDataLogger(L"", L"", L"session-2").FinalFlush();
    CHECK(host.Problems() == Texts{});
    std::string told, session;
    for (const auto& event : host.Events())
    {
        told += event.Category + " " + event.Action + " " + event.Label + " " + std::to_string(event.Value) +
                "; ";
        session = nlohmann::json::parse(event.Json)["vt"]["sess"].dump() + event.Partner + event.Version;
    }
    CHECK(told ==
          "Update NoAction NoUpdate 1; Update -2147024891 Update 2147942405; ErrorInfo DeletePrevDL NA 32; "
          "Update NoAction after 1; ");
    const std::string screen = std::to_string(::GetSystemMetrics(SM_CXSCREEN)) + "x" +
                               std::to_string(::GetSystemMetrics(SM_CYSCREEN));
    CHECK(
        session ==
        R"({"c":{"dim":{"1":{"k":"OEMOrigin","v":"Shop 5"},"2":{"k":"ecs_guid","v":"0f8fad5b-d9cb-469f"}}},)"
        R"("id":"session-1","os":"Windows","res":")" +
            screen + "\"}part&ner1.1.1.13");
}

TEST_CASE("no failure of analytics reaches the run or its last error")
{
    CMachine machine;
    CCollectorHost host;
    machine.SetDebug(L"AnalyticsHost", LS::AnsiToWide(host.Host()));
    const auto mark = [] {
        ::SetLastError(5);
        CRunAnalytics::UpdateEvent(L"", 7);
        CRunAnalytics::ErrorEvent(L"error", L"detail");
        CHECK(::GetLastError() == 5);
    };
    for (const wchar_t* session : {L"", L"session"}) // no logger without a session
    {
        mark();
        CRunAnalytics::Begin(L"", L"", session);
        mark();
        CRunAnalytics::End();
    }
    CHECK(host.Labels() == Texts{"detail"});
    std::filesystem::remove_all(machine.Path(L"Roaming\\Larkspur\\Analytics"));
    Tests::WriteBytes(machine.Path(L"Roaming\\Larkspur\\Analytics"), "in the way");
    CRunAnalytics::Begin(L"", L"", L"session");
    mark();
    CRunAnalytics::End();
    CHECK(host.Labels().size() == 1);
}
