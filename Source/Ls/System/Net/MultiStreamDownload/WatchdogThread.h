#pragma once

#include "Ls/System/Win32/Event.h"
#include "Ls/System/Win32/Thread.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace LS::System::Net::MultiStreamDownload
{
class CHTTPDownload;
class CDownloadThread;

/// The one thread that restarts a download: a restart joins every stream, so no stream can do it itself. It
/// also caps the restarts. Streams that stall are not its business: their own retry rules end that.
class CWatchdogThread : public Win32::CThread
{
public:
    /// Starts the thread. Throws CException "WatchdogThread failed to start worker thread".
    explicit CWatchdogThread(CHTTPDownload& coordinator);
    ~CWatchdogThread() override;

    /// Called by a stream that can't go on. When no restart is due any more (four have happened; for the
    /// multi-stream kind also when single-stream mode is forced) it returns and the stream goes on to its own
    /// failure. Otherwise the stream is asked to stop, and it throws CException "Restarting SingleStream;  "
    /// or "Restarting MultiStream;  " and the message.
    void SignalRestartDownloadSingleStream(CDownloadThread& stream, const std::string& message);
    void SignalRestartDownloadMultiStream(CDownloadThread& stream, const std::string& message);

    /// The streams that may have signalled are gone: what they asked for is being done. Called by the
    /// restart before it starts new ones, whose signals count again.
    void ForgetSignals() noexcept;

    /// Asks the thread to end, wakes it and waits for it, unless called on it.
    void StopAndWait() noexcept;

    /// The thread's body.
    std::uint32_t Execute(Win32::CThread& thread);

private:
    enum Restart : std::uint32_t
    {
        RestartNone = 0,
        RestartSingle = 1,
        RestartMulti = 2
    };

    void Signal(Restart restart, CDownloadThread& stream);
    void Watch(Win32::CThread& thread);

    CHTTPDownload& m_Coordinator;
    Win32::CEvent m_WakeEvent;
    std::atomic<std::uint32_t> m_PendingRestart{RestartNone};
};
} // namespace LS::System::Net::MultiStreamDownload
