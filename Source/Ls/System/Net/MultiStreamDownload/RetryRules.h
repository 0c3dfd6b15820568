#pragma once

#include <cstdint>

// How often and when a stream tries again, as functions of values.
namespace LS::System::Net::MultiStreamDownload
{
/// A time-out doesn't count against a stream while another one received new data this recently.
inline constexpr std::uint32_t OtherStreamAliveMs = 2000;

/// Attempts in a full budget.
constexpr std::uint64_t FullBudget(std::uint32_t retries) noexcept
{
    return std::uint64_t{retries} + 1;
}

/// How one failed attempt went.
struct FailedAttempt
{
    /// The stream's record passed the furthest offset that this stream had recorded in this download: another
    /// attempt goes on behind it. (Data that couldn't be kept, or that came before, doesn't count: a full
    /// disk, and a server that sends the same bytes over and over, would be tried for ever.)
    bool GotAhead = false;
    /// The server didn't answer in time.
    bool TimedOut = false;
    /// The server was given up because it brought too little: it could do so for ever.
    bool TooSlow = false;
    /// Since any stream last received data behind its furthest offset. (Otherwise two streams that receive
    /// the same bytes over and over would keep each other going.)
    std::uint32_t MsSinceData = 0;
};

/// True when the attempt gives the stream its full budget back.
constexpr bool RenewsBudget(const FailedAttempt& attempt) noexcept
{
    return !attempt.TooSlow &&
           (attempt.GotAhead || (attempt.TimedOut && attempt.MsSinceData < OtherStreamAliveMs));
}

/// Pause in ms before the next attempt: one second longer each time. attemptsLeft counts the failed attempt.
constexpr std::uint64_t PauseMs(std::uint32_t retries, std::uint64_t attemptsLeft) noexcept
{
    return (retries - attemptsLeft + 2) * 1000;
}
} // namespace LS::System::Net::MultiStreamDownload
