#include "Ls/System/Net/MultiStreamDownload/WatchdogThread.h"

#include "Ls/System/Net/MultiStreamDownload/DownloadThread.h"
#include "Ls/System/Net/MultiStreamDownload/HTTPDownload.h"
#include "Ls/System/Net/MultiStreamDownload/LogText.h"
#include "Ls/System/Net/MultiStreamDownload/ThreadBody.h"
#include "Ls/System/ThrowException.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Win32/ScopeExit.h"

namespace LS::System::Net::MultiStreamDownload
{
namespace
{
/// A download that had to start over this often doesn't get better by another start.
constexpr std::uint32_t MaxRestarts = 4;
constexpr std::uint32_t PollMs = 1000;
} // namespace

CWatchdogThread::CWatchdogThread(CHTTPDownload& coordinator) :
    CThread(MakeRef<CThreadBody<CWatchdogThread>>(*this)), m_Coordinator(coordinator),
    m_WakeEvent(false, false)
{
    // A thread that comes up late must not find this object gone.
    Win32::CScopeExit stop([this]() noexcept { Stop(); });
    try
    {
        ThreadStart("");
        stop.Release();
    }
    catch (const CException& failure)
    {
        Stop();
        ThrowException(CException(failure, "WatchdogThread failed to start worker thread", LS_HERE));
    }
}

CWatchdogThread::~CWatchdogThread()
{
    StopAndWait();
}

void CWatchdogThread::SignalRestartDownloadSingleStream(CDownloadThread& stream, const std::string& message)
{
    if (m_Coordinator.RestartCount() >= MaxRestarts)
    {
        LS_LOG_INFO(
            "CWatchdogThread::SignalRestartDownloadSingleStream() : ignored, the restarts are used up : %s",
            FirstLine(message).c_str());
        return;
    }
    LS_LOG_INFO("CWatchdogThread::SignalRestartDownloadSingleStream() : %s", FirstLine(message).c_str());
    Signal(RestartSingle, stream);
    ThrowException(CException("Restarting SingleStream;  " + message, LS_HERE));
}

void CWatchdogThread::SignalRestartDownloadMultiStream(CDownloadThread& stream, const std::string& message)
{
    if (m_Coordinator.RestartCount() >= MaxRestarts || m_Coordinator.ForcedSingle())
    {
        LS_LOG_INFO(
            "CWatchdogThread::SignalRestartDownloadMultiStream() : ignored, single stream is forced or "
            "the restarts are used up : %s",
            FirstLine(message).c_str());
        return;
    }
    LS_LOG_INFO("CWatchdogThread::SignalRestartDownloadMultiStream() : %s", FirstLine(message).c_str());
    Signal(RestartMulti, stream);
    ThrowException(CException("Restarting MultiStream;  " + message, LS_HERE));
}

void CWatchdogThread::Signal(Restart restart, CDownloadThread& stream)
{
    m_PendingRestart = restart;
    m_WakeEvent.Set();
    stream.RequestStop();
}

void CWatchdogThread::ForgetSignals() noexcept
{
    m_PendingRestart = RestartNone;
}

void CWatchdogThread::StopAndWait() noexcept
{
    SetShouldFinish(true);
    ::SetEvent(m_WakeEvent.Handle());
    Stop();
}

std::uint32_t CWatchdogThread::Execute(Win32::CThread& thread)
{
    try
    {
        Watch(thread);
        return 0;
    }
    catch (...)
    {
        // A stream that waits for a restart has ended, and nobody else would tell the owner.
        if (!thread.ShouldFinish())
            m_Coordinator.ReportEscape();
        return 1;
    }
}

void CWatchdogThread::Watch(Win32::CThread& thread)
{
    // A failing restart tells the download's owner, who may let go of the download, and of this object with
    // it: after a restart only the thread knows whether there is anything left to watch.
    while (!thread.ShouldFinish())
    {
        m_WakeEvent.Wait(PollMs);
        if (thread.ShouldFinish())
            break;
        // Cleared by the restart between the old streams, which may still signal, and the new ones.
        switch (m_PendingRestart)
        {
        case RestartSingle:
            m_Coordinator.RestartSingleStream();
            break;
        case RestartMulti:
            m_Coordinator.RestartMultiStream();
            break;
        default:
            break;
        }
    }
}
} // namespace LS::System::Net::MultiStreamDownload
