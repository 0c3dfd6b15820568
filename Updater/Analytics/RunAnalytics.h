#pragma once

#include <cstdint>
#include <string>

/// The run's one analytics logger as the stages of the run see it. Nothing here throws or changes the
/// thread's last error, and without a logger nothing happens: analytics never decide how a run ends. For the
/// driver's thread.
class CRunAnalytics
{
public:
    /// Makes the logger; a failure is logged and leaves the run without analytics.
    static void Begin(const std::wstring& partner, const std::wstring& dp,
                      const std::wstring& session) noexcept;

    // See CDataLogger. An event that is refused is logged.
    static void UpdateEvent(const std::wstring& eventName) noexcept;
    static void UpdateEvent(const std::wstring& eventName, std::int32_t number) noexcept;
    static void ErrorEvent(const std::wstring& errorName, const std::wstring& detail) noexcept;

    /// Flushes and lets go of the logger; takes 5 s at most. Nothing when it has gone already.
    static void End() noexcept;
    /// For a run that reports nothing: lets go without flushing, within 250 ms. What is queued is left to a
    /// later run.
    static void Drop() noexcept;
};
