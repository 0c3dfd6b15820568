// A collector that fails never changes a run's outcome, and costs it no more than the flush's limit; what it
// didn't take is delivered by a later run, each event with what is known of its own run.
#include "Tests/Run/Sandbox.h"

#include <doctest/doctest.h>

using Tests::CSandbox;
using Tests::HttpReply;
using Ending = Tests::HttpReply::Ending;

namespace
{
constexpr std::uintmax_t HeaderBytes = 20;
/// How long the transport itself would wait for a collector that is silent.
constexpr std::uint32_t TransportLimitMs = 30000;

/// What the collector knows of runs that found no update.
std::vector<Tests::CollectedEvent> Outcomes(CSandbox& sandbox)
{
    auto events = sandbox.Collector().Events();
    std::erase_if(events, [](const auto& event) { return event.Value != 3; });
    return events;
}
} // namespace

TEST_CASE("whatever the collector does, the run ends as it would, and nothing is lost")
{
    const std::pair<std::string, HttpReply> cases[] = {
        {"refuses", Tests::NotFound()},
        {"resets", Tests::BrokenReply(Ending::Reset)},
        {"never answers", Tests::BrokenReply(Ending::Stall)},
    };
    for (const auto& one : cases)
    {
        CAPTURE(one.first);
        CSandbox sandbox;
        sandbox.Query = Tests::Answer(Tests::UpdateXml(""));
        sandbox.Collect = [&](const Tests::HttpRequest&) { return one.second; };
        const auto updater = sandbox.StartAnswered(sandbox.From(), L"");
        REQUIRE(updater->WaitForEvent("No"));
        const ULONGLONG told = ::GetTickCount64();
        const auto outcome = updater->Finish();
        CHECK(::GetTickCount64() - told < TransportLimitMs);
        CHECK(outcome.ExitCode == 3);
        CHECK(outcome.Events == "No");
        CHECK(std::filesystem::file_size(sandbox.AnalyticsQueue()) > HeaderBytes);

        const std::size_t before = Outcomes(sandbox).size();
        sandbox.Collect = [](const Tests::HttpRequest&) { return Tests::TextReply(""); };
        CHECK(sandbox.Run(sandbox.From() + L" /session=abc-1 /partner=P7").ExitCode == 3);
        CHECK(std::filesystem::file_size(sandbox.AnalyticsQueue()) == HeaderBytes);
        const auto events = Outcomes(sandbox);
        REQUIRE(events.size() == before + 2);
        const auto &late = events[before], &last = events.back();
        CHECK(late.Session.size() == 36); // one of its own
        CHECK(last.Session == "abc-1");
        CHECK(last.Partner == "P7");
        CHECK(last.Version == "1.1.1.13");
        CHECK(last.Visitor.size() == 36);
        CHECK(last.Visitor == late.Visitor);
    }
}
