// A collector that fails never changes a run's outcome, and costs it no more than the flush's limit; what it
// didn't take is delivered by a later run.
#include "Tests/Run/Sandbox.h"

#include <doctest/doctest.h>

using Tests::CSandbox;
using Tests::HttpReply;
using Ending = Tests::HttpReply::Ending;

namespace
{
constexpr std::uintmax_t HeaderBytes = 20;
constexpr std::uint32_t FlushLimitMs = 5000;

HttpReply Status(const char* status, const char* header = "Connection: close")
{
    HttpReply reply;
    reply.Head = Tests::HttpHead(status, {"Content-Length: 0", header});
    reply.End = Ending::Close;
    return reply;
}

} // namespace

TEST_CASE("whatever the collector does, the run ends as it would, and nothing is lost")
{
    const struct
    {
        std::string Fault;
        HttpReply Reply;
    } cases[] = {
        {"500", Status("500 Internal Server Error")},  {"404", Status("404 Not Found")},
        {"304", Status("304 Not Modified")},           {"closes", Tests::BrokenReply(Ending::Close)},
        {"resets", Tests::BrokenReply(Ending::Reset)}, {"never answers", Tests::BrokenReply(Ending::Stall)},
    };
    for (const auto& one : cases)
    {
        CAPTURE(one.Fault);
        CSandbox sandbox;
        sandbox.Query = Tests::Answer(Tests::UpdateXml(""));
        sandbox.Collect = [&](const Tests::HttpRequest&) { return one.Reply; };
        const auto updater = sandbox.StartAnswered(sandbox.From(), L"");
        REQUIRE(updater->WaitForEvent("No"));
        const ULONGLONG told = ::GetTickCount64();
        const auto outcome = updater->Finish();
        const auto took = ::GetTickCount64() - told;
        CHECK(outcome.ExitCode == 3);
        CHECK(outcome.Events == "No");
        CHECK(took < 2 * FlushLimitMs); // the limit, on a machine that is twice too slow
        CHECK(std::filesystem::file_size(sandbox.AnalyticsQueue()) > HeaderBytes);

        const std::size_t before = sandbox.Collector().Events().size();
        sandbox.Collect = [](const Tests::HttpRequest&) { return Tests::TextReply(""); };
        CHECK(sandbox.Run(sandbox.From()).ExitCode == 3);
        CHECK(sandbox.Collector().Events().size() == before + 2);
        CHECK(std::filesystem::file_size(sandbox.AnalyticsQueue()) == HeaderBytes);
    }
}

TEST_CASE("an event tells what the command line and the machine say of the run")
{
    CSandbox sandbox;
    sandbox.Query = Tests::Answer(Tests::UpdateXml(""));
    CHECK(sandbox.Run(sandbox.From() + L" /session=abc-1 /partner=P7").ExitCode == 3);
    CHECK(sandbox.Run(sandbox.From()).ExitCode == 3);
    const auto events = sandbox.Collector().Events();
    REQUIRE(events.size() == 2);
    CHECK(events[0].Session == "abc-1");
    CHECK(events[0].Partner == "P7");
    CHECK(events[0].Version == "1.1.1.13");
    CHECK(events[0].Value == 3);
    CHECK(events[1].Session.size() == 36); // one of its own
    CHECK(events[0].Visitor.size() == 36);
    CHECK(events[1].Visitor == events[0].Visitor);
}
