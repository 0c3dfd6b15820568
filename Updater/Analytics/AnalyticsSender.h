#pragma once

#include "Ls/System/Object.h"
#include "Ls/System/ReferenceCounted.h"
#include "Ls/System/Win32/CriticalSection.h"
#include "Ls/System/Win32/Event.h"
#include "Ls/System/Win32/Thread.h"
#include "Updater/Analytics/AnalyticsQueue.h"
#include "Updater/Run/OnlineCheck.h"

#include <cstdint>
#include <optional>
#include <string>

/// How long a sender thread pauses and works, in milliseconds.
struct SenderSettings
{
    std::uint32_t PauseAfterSendMs = 0;
    /// After a pass that found nothing to send, or no network.
    std::uint32_t IdlePauseMs = 60000;
    /// From the thread's start; looked at after each pass. Nothing: no limit.
    std::optional<std::uint32_t> TotalLimitMs;
    /// Ends the thread, instead of pausing it, when there is nothing to send or no network.
    bool StopWhenEmpty = true;
};

/// Takes query strings from the queue, one at a time, and sends each with an HTTP GET. At most one thread at
/// a time does that, on demand; it leaves by itself when there is nothing more to do, or at the first
/// failure: what isn't sent stays in the queue. The owner's thread calls the public functions.
class CAnalyticsSender : public LS::System::CReferenceCounted, public LS::System::CObject
{
public:
    /// endpoint is the collector's URL up to, not including, the "?".
    CAnalyticsSender(LS::System::CRefPtr<CAnalyticsQueue> queue, std::string endpoint);

    /// Starts the thread, or lets the one that runs look at the queue once more before it leaves. Nothing
    /// after a stop. Throws CException when the thread can't be started.
    void EnsureRunning(const SenderSettings& settings);

    /// Lets the queue drain and stops for good, all within that time, whatever the collector host, the
    /// network or another process that is uploading do.
    void FlushAndStop(std::uint32_t limitMs);

    /// Stops for good: what is on its way is given up and stays in the queue. Returns after graceMs at the
    /// latest; a thread that is still stuck in the system then is left behind.
    void Stop(std::uint32_t graceMs) noexcept;

private:
    class CFunction;
    enum class Pass
    {
        Handled,
        Failed,
        Empty,
        Offline,
        Stopped
    };

    void Run(const SenderSettings& settings);
    /// True when the thread is to leave; its handle is closed then.
    bool Leave(bool mayGoOn);
    Pass SendUntilDone(const SenderSettings& settings);
    Pass SendOne(COnlineCheck& onlineCheck);
    Pass Upload(const std::string& query);
    bool IsStopped(std::uint32_t waitMs) const noexcept;
    bool WaitForThread(std::uint32_t milliseconds) noexcept;

    const LS::System::CRefPtr<CAnalyticsQueue> m_Queue;
    const std::string m_Endpoint;
    const LS::System::Win32::CEvent m_StopEvent{true, false};

    LS::System::Win32::CCriticalSection m_Lock;
    // Guarded by m_Lock.
    LS::System::CRefPtr<LS::System::Win32::CThread> m_Thread;
    bool m_LookAgain = false;
};
