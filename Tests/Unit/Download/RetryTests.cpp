// When a stream tries again, as far as the table of faults doesn't show it: nobody waits that long there.
#include "Ls/System/Net/MultiStreamDownload/RetryRules.h"

#include <doctest/doctest.h>

using namespace LS::System::Net::MultiStreamDownload;

TEST_CASE("six attempts with pauses of one to five seconds, and what gives them back")
{
    for (std::uint32_t failed = 0; failed < 5; ++failed)
        CHECK(PauseMs(5, FullBudget(5) - failed) == (failed + 1) * 1000);
    CHECK(RenewsBudget({.GotAhead = true, .TimedOut = false, .MsSinceData = 100000}));
    CHECK(!RenewsBudget({.GotAhead = false, .TimedOut = false, .MsSinceData = 0}));
    CHECK(RenewsBudget({.GotAhead = false, .TimedOut = true, .MsSinceData = 1999}));
    CHECK(!RenewsBudget({.GotAhead = false, .TimedOut = true, .MsSinceData = 2000}));
    CHECK(!RenewsBudget({.GotAhead = true, .TimedOut = true, .TooSlow = true, .MsSinceData = 0}));
}
