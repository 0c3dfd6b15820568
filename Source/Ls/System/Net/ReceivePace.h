#pragma once

#include <cstdint>

// How fast a server brings its answer, as functions of values: times are GetTickCount values, whose wrap
// does no harm.
namespace LS::System::Net
{
/// The least that a server must bring: so many bytes in so many ms of waiting for it, and a whole head within
/// these. A receive time-out only counts the silence between two bytes: one byte every 29 seconds would hold
/// an attempt for ever. The program keeps the defaults; shorter times make slow servers cheap to test.
struct LeastPace
{
    std::uint32_t Bytes = 16 * 1024;
    std::uint32_t Ms = 2 * 60 * 1000;
};

/// Only time inside the calls that wait for the server counts: a pause, a slow disk or a scanner on this side
/// is not its fault.
class CReceivePace
{
public:
    explicit CReceivePace(const LeastPace& least) noexcept : m_Least(least) {}

    void CallBegins(std::uint32_t tick) noexcept
    {
        m_InCall = true;
        m_Since = tick;
    }
    /// With the bytes of the body that the call has brought.
    void CallEnds(std::uint32_t tick, std::uint32_t bytes) noexcept
    {
        const std::uint32_t passed = tick - m_Since;
        m_InCall = false;
        m_WaitedMs += passed;
        m_Bytes += bytes;
        m_PieceMs += passed;
        m_PieceBytes += bytes;
        if (m_PieceBytes >= PieceBytes)
        {
            m_Fast = m_PieceBytes * 1000 >= m_PieceMs * FastBytesPerSecond;
            m_PieceMs = m_PieceBytes = 0;
        }
        if (m_Bytes >= m_Least.Bytes && !IsTooSlow(tick))
            BeginStretch();
    }
    /// Counting begins again: a new head, a body behind its head.
    void BeginStretch() noexcept { m_WaitedMs = m_Bytes = 0; }

    /// Also during a call, whose bytes nobody knows yet.
    bool IsTooSlow(std::uint32_t tick) const noexcept
    {
        const std::uint64_t waited = m_WaitedMs + (m_InCall ? tick - m_Since : 0);
        return waited >= m_Least.Ms && m_Bytes * m_Least.Ms < waited * m_Least.Bytes;
    }
    /// Whether a whole block may be asked for at once. WinINet gives nothing back before it has all that was
    /// asked for, so a slow line is asked only for what is there.
    bool IsFast() const noexcept { return m_Fast; }

private:
    /// Fewer bytes say nothing about a line.
    static constexpr std::uint32_t PieceBytes = 4096;
    static constexpr std::uint32_t FastBytesPerSecond = 64 * 1024;

    LeastPace m_Least;
    bool m_InCall = false;
    bool m_Fast = false;
    std::uint32_t m_Since = 0;
    std::uint64_t m_WaitedMs = 0;
    std::uint64_t m_Bytes = 0;
    std::uint64_t m_PieceMs = 0;
    std::uint64_t m_PieceBytes = 0;
};
} // namespace LS::System::Net
