#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

namespace LS::System::IO
{
/// How long to wait for a file that another program holds: virus scanners and indexers open a fresh file in a
/// way that keeps others out, and take long over a large one. Everything that waits for such a file waits as
/// long as this says. One object for each thing that is tried; one thread.
class CFilePatience
{
public:
    static constexpr std::uint32_t LimitMs = 25'000;
    static constexpr std::uint32_t StepMs = 250;

    explicit CFilePatience(std::uint32_t limitMs = LimitMs, std::uint32_t stepMs = StepMs) noexcept :
        m_LeftMs(limitMs), m_StepMs(stepMs)
    {
    }

    /// After a try that failed with error: pauses for a step and returns true, or returns false at once when
    /// there is no whole step left behind this one, so that by default the 100th try is the last. The first
    /// wait is logged.
    bool WaitAgain(const std::wstring& path, DWORD error) noexcept;

private:
    std::uint32_t m_LeftMs;
    std::uint32_t m_StepMs;
    bool m_IsTold = false;
};

/// Whether error, of a call that opens, moves or deletes path, comes from another program's hold on the file
/// and so may pass: it is shared otherwise or partly locked, or it has been deleted while someone has it
/// open, which the system also tells as a refused access. Not for a running program, a folder, a read-only
/// file or one that the user has no right to: waiting doesn't mend these.
bool IsHeldByOthers(const std::wstring& path, DWORD error) noexcept;
} // namespace LS::System::IO
