// What the collector host, the network and other processes do to the sender.
// Not shown here: a connection that the network keeps from being made at all (Wine and 127.0.0.1 refuse at
// once), and an answer that isn't HTTP at all, which Wine takes for a 200 of HTTP/0.9.
#include "Tests/Support/CollectorHost.h"
#include "Tests/Unit/Analytics/Machine.h"
#include "Tests/Unit/Analytics/MemoryStorage.h"
#include "Tests/Unit/Analytics/TestQuery.h"
#include "Updater/Analytics/AnalyticsSender.h"

#include <doctest/doctest.h>

#include <random>
#include <thread>

using namespace LS::System;
using Tests::CCollectorHost;
using Tests::HttpReply;
using Tests::HttpRequest;
using Labels = std::vector<std::string>;

namespace
{
/// Long enough for any machine to do what it can do; what must not take longer is checked against less.
constexpr std::uint32_t LongMs = 60000;
constexpr std::uint32_t FlushMs = 5000;

class CFixture
{
public:
    CMachine Machine;
    CRefPtr<CAnalyticsQueue> Queue =
        MakeRef<CAnalyticsQueue>(Machine.Path(L"Roaming"), L"", L"LSAnalytics.dat");

    void Append(const Labels& labels)
    {
        for (const std::string& label : labels)
            REQUIRE(Queue->Append(QueryOf(label)));
    }
    CRefPtr<CAnalyticsSender> Sender(const std::string& endpoint)
    {
        return MakeRef<CAnalyticsSender>(Queue, endpoint);
    }
    /// Queued query strings, which stay.
    std::vector<std::string> Queued() const
    {
        CMemoryStorage copy;
        copy.Bytes = Tests::ReadBytes(Queue->Path());
        return Drain(copy);
    }
};

std::uint32_t TimeOf(const std::function<void()>& action)
{
    const DWORD start = ::GetTickCount();
    action();
    return ::GetTickCount() - start;
}

/// An answer by status, without a body.
HttpReply Status(const std::string& status, const std::vector<std::string>& headers = {})
{
    HttpReply reply;
    std::vector<std::string> all = headers;
    all.push_back("Content-Length: 0");
    reply.Head = Tests::HttpHead(status, all);
    return reply;
}

HttpReply Cut(HttpReply::Ending ending, const std::string& head)
{
    HttpReply reply;
    reply.Head = head;
    reply.End = ending;
    return reply;
}
} // namespace

TEST_CASE("a record leaves the queue when, and only when, the final status is from 200 to 299")
{
    const struct
    {
        std::string Name;
        HttpReply Reply;
        bool Taken;
    } Answers[] = {
        {"200", Status("200 OK"), true},
        {"204", Status("204 No Content"), true},
        {"299", Status("299 Fine"), true},
        {"300", Status("300 Multiple Choices"), false},
        {"302 to a 200", Status("302 Found", {"Location: /DataTracker.aspx/moved"}), true},
        {"304", Status("304 Not Modified"), false},
        {"400", Status("400 Bad Request"), false},
        {"404", Status("404 Not Found"), false},
        {"500", Status("500 Internal Server Error"), false},
        {"503", Status("503 Service Unavailable", {"Retry-After: 1"}), false},
        {"599", Status("599 Strange"), false},
        {"closed without an answer", Cut(HttpReply::Ending::Close, ""), false},
        {"reset without an answer", Cut(HttpReply::Ending::Reset, ""), false},
        {"closed in the status line", Cut(HttpReply::Ending::Close, "HTTP/1."), false},
        {"closed in the body of a 200",
         Cut(HttpReply::Ending::Close, Tests::HttpHead("200 OK", {"Content-Length: 9"})), true},
    };
    for (const auto& answer : Answers)
    {
        CAPTURE(answer.Name);
        CFixture fixture;
        fixture.Append({"a", "b", "c"});
        CCollectorHost host([&](const HttpRequest& request) {
            return request.Target.find("/moved") != std::string::npos ? Status("200 OK") : answer.Reply;
        });
        fixture.Sender(host.Endpoint())->FlushAndStop(LongMs);
        // The first failure ends it; what the transport repeats by itself is one attempt.
        Labels labels = host.Labels();
        if (!answer.Taken)
            labels.erase(std::unique(labels.begin(), labels.end()), labels.end());
        CHECK(labels == (answer.Taken ? Labels{"a", "b", "c"} : Labels{"a"}));
        CHECK(fixture.Queued().size() == (answer.Taken ? 0 : 3));
    }
}

TEST_CASE("offline and without a host the queue grows, and nothing is lost")
{
    CFixture fixture;
    CCollectorHost host;
    fixture.Machine.SetOnline(false);
    for (const char* label : {"a", "b"})
    {
        fixture.Append({label});
        fixture.Sender(host.Endpoint())->FlushAndStop(LongMs);
    }
    CHECK(host.Server().Requests().empty());
    CHECK(fixture.Queued().size() == 2);

    fixture.Machine.SetOnline(true);
    host.Server().GoAway();
    fixture.Append({"c"});
    fixture.Sender(host.Endpoint())->FlushAndStop(LongMs);
    fixture.Sender("no URL")->FlushAndStop(LongMs);
    CHECK(fixture.Queued().size() == 3);

    host.Server().Reopen();
    fixture.Sender(host.Endpoint())->FlushAndStop(LongMs);
    CHECK(host.Labels() == Labels{"a", "b", "c"});
    CHECK(host.Problems() == Labels{});
    CHECK(fixture.Queued().empty());
}

TEST_CASE("the longest query string arrives whole, a longer one and what is no query string are dropped")
{
    CFixture fixture;
    const std::string longest = QueryOfLength("longest", 2083);
    for (const std::string& query : {QueryOfLength("longer", 2084), longest, std::string("a b\r\nX: y"),
                                     QueryOf("\xC3\xA9\xED\x95\x9C"), QueryOf("last")})
        REQUIRE(fixture.Queue->Append(query));
    CCollectorHost host;
    fixture.Sender(host.Endpoint())->FlushAndStop(LongMs);
    CHECK(host.Problems() == Labels{});
    const auto requests = host.Server().Requests();
    REQUIRE(requests.size() == 3);
    CHECK(requests[0].Target == "/DataTracker.aspx?" + longest);
    CHECK(host.Labels()[1] == "\xC3\xA9\xED\x95\x9C");
    CHECK(host.Labels()[2] == "last");
    CHECK(fixture.Queued().empty());
}

TEST_CASE("two equal events are both sent")
{
    CFixture fixture;
    const std::string query = QueryOf("same");
    for (int i = 0; i < 2; ++i)
        REQUIRE(fixture.Queue->Append(query));
    CCollectorHost host([](const HttpRequest&) { return Status("200 OK", {"Cache-Control: max-age=3600"}); });
    fixture.Sender(host.Endpoint())->FlushAndStop(LongMs);
    CHECK(host.Labels() == Labels{"same", "same"});
}

TEST_CASE("a record that is added while the sender finishes is sent without another event")
{
    CFixture fixture;
    CCollectorHost host;
    const auto sender = fixture.Sender(host.Endpoint());
    std::mt19937 random(3);
    for (unsigned i = 1; i <= 60; ++i)
    {
        fixture.Append({std::to_string(i)});
        sender->EnsureRunning(SenderSettings());
        REQUIRE(host.Server().WaitForRequests(i, LongMs));
        // The next one comes just when the sender has found the queue empty.
        const DWORD start = ::GetTickCount();
        while (Tests::ReadBytes(fixture.Queue->Path()).size() > QueueHeaderSize &&
               ::GetTickCount() - start < LongMs)
            ::SwitchToThread();
        for (unsigned spin = random() % 60; spin > 0; --spin)
            ::SwitchToThread();
    }
    sender->FlushAndStop(LongMs);
    CHECK(fixture.Queued().empty());
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
    // On its way when the end comes, only begun by the flush, and stopped without a flush.
    for (const bool begun : {true, false})
    {
        const auto sender = fixture.Sender(host.Endpoint());
        const unsigned requests = static_cast<unsigned>(host.Server().Requests().size());
        if (begun)
        {
            sender->EnsureRunning(SenderSettings());
            REQUIRE(host.Server().WaitForRequests(requests + 1));
        }
        const std::uint32_t time = TimeOf([&] { sender->FlushAndStop(FlushMs); });
        CHECK(time >= FlushMs - 200);
        CHECK(time < FlushMs + 1000); // for a busy machine
        sender->EnsureRunning(SenderSettings());
        CHECK(TimeOf([&] { sender->Stop(250); }) < FlushMs);
        // Other processes can upload at once.
        CHECK(fixture.Queue->UploadMutex().Wait(FlushMs) == WAIT_OBJECT_0);
        fixture.Queue->UploadMutex().ReleaseMutex();
    }
    CHECK(fixture.Queued().size() == 2);

    // What was given up is sent the next time; the host may know it already.
    host.Server().Release();
    fixture.Sender(host.Endpoint())->FlushAndStop(LongMs);
    CHECK(host.Labels().back() == "b");
}

TEST_CASE("a flush with a host that answers at once is far from its limit")
{
    CFixture fixture;
    CCollectorHost host;
    fixture.Append({"0", "1", "2", "3", "4", "5", "6", "7", "8", "9"});
    const auto sender = fixture.Sender(host.Endpoint());
    const std::uint32_t time = TimeOf([&] { sender->FlushAndStop(FlushMs); });
    MESSAGE("ten records in " << time << " ms");
    CHECK(time < FlushMs / 2);
    CHECK(host.Labels().size() == 10);
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
            mutex.Wait(INFINITE);
            taken.Set();
            giveBack.Wait(INFINITE);
            // Ends without giving it back: the next owner finds it abandoned.
        });
        taken.Wait(INFINITE);
        const auto sender = fixture.Sender(host.Endpoint());
        CHECK(TimeOf([&] { sender->FlushAndStop(1000); }) < 3000);
        // The run goes on with or without its record.
        CHECK(fixture.Queue->Append(QueryOf("b")) == inUpload);
        if (!inUpload)
            CHECK(TimeOf([&] { CHECK(!fixture.Queue->Append(QueryOf("lost"))); }) < 3000); // waited once
        giveBack.Set();
        other.join();
    }
    CHECK(host.Labels().empty());

    fixture.Append({"c"});
    fixture.Sender(host.Endpoint())->FlushAndStop(LongMs);
    CHECK(host.Labels() == Labels{"a", "b", "c"});
}
