// An update service that misbehaves ends the run with its code, in time. The limit for the answer is five
// seconds; the transport itself would wait thirty and more, so a bound of twelve tells a run that keeps its
// limit (plus a second to end, on a machine that is twice too slow) from one that waits for the transport.
#include "Tests/Run/Sandbox.h"

#include <doctest/doctest.h>

#include <cstring>

using Tests::CSandbox;
using Tests::HttpReply;
using Ending = Tests::HttpReply::Ending;

namespace
{
constexpr std::uint32_t LimitMs = 5000;
constexpr std::uint32_t BoundMs = 2 * (LimitMs + 1000);

void FillBlanks(std::uint64_t, char* bytes, std::size_t size)
{
    std::memset(bytes, ' ', size);
}

HttpReply Body(std::uint64_t length, std::uint64_t cutAfter, Ending end, std::uint32_t trickleMs = 0)
{
    HttpReply reply = Tests::TextReply("");
    reply.Head =
        Tests::HttpHead("200 OK", {"Content-Type: text/xml", "Content-Length: " + std::to_string(length)});
    reply.Body = FillBlanks;
    reply.BodyLength = length;
    reply.CutAfter = cutAfter;
    reply.End = end;
    reply.TrickleBytes = trickleMs ? 100 : 0;
    reply.TrickleMs = trickleMs;
    return reply;
}

HttpReply Silent(Ending end, bool stall)
{
    HttpReply reply;
    reply.StallBeforeHead = stall;
    reply.End = end;
    return reply;
}
} // namespace

TEST_CASE("a service that misbehaves ends the run in time")
{
    const struct
    {
        std::string Fault;
        HttpReply Reply;
        std::uint32_t Code;
    } cases[] = {
        {"accepts and never answers", Silent(Ending::Stall, true), 770},
        {"sends the head, then nothing", Body(1000, 0, Ending::Stall), 770},
        {"sends a body slowly, done after the limit", Body(10000, UINT64_MAX, Ending::KeepAlive, 100), 770},
        {"sends an endless body", Body(UINT64_MAX / 4, UINT64_MAX, Ending::KeepAlive, 5), 770},
        {"closes without an answer", Silent(Ending::Close, false), 772},
        {"closes in the middle of the body", Body(1000, 500, Ending::Close), 772},
        {"resets in the middle of the body", Body(1000, 500, Ending::Reset), 772},
    };
    for (const auto& one : cases)
    {
        CAPTURE(one.Fault);
        CSandbox sandbox;
        sandbox.Query = [&](const Tests::HttpRequest&) { return one.Reply; };
        const auto updater = sandbox.Start(sandbox.From());
        REQUIRE(sandbox.Server().WaitForRequests(1));
        const ULONGLONG asked = ::GetTickCount64();
        const auto outcome = updater->Finish();
        const auto took = ::GetTickCount64() - asked;
        CHECK(outcome.ExitCode == one.Code);
        CHECK(outcome.Events == "No");
        CHECK(took < BoundMs);
        if (one.Code == 770)
            CHECK(outcome.Milliseconds >= LimitMs);
    }
}

TEST_CASE("a patch server that closes early ends the run with 1027")
{
    CSandbox sandbox;
    sandbox.File = [&](const Tests::HttpRequest& request) {
        HttpReply reply = Tests::BytesReply(request, sandbox.Patch);
        reply.CutAfter = reply.BodyLength / 2;
        reply.End = Ending::Close;
        return reply;
    };
    const auto outcome = sandbox.Run(sandbox.From());
    CHECK(outcome.ExitCode == 1027);
    CHECK(outcome.Events == "No");
}
