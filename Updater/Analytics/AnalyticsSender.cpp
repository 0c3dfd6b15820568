#include "Updater/Analytics/AnalyticsSender.h"

#include "Ls/System/Net/HttpWebRequest.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Win32/MutexOwner.h"
#include "Ls/System/Win32/ScopeExit.h"

#include <windows.h>

#include <algorithm>
#include <exception>
#include <utility>

using namespace LS::System;

namespace
{
constexpr std::uint32_t PollMs = 20;
constexpr float AllDone = 100.0f;

/// Kept back from a flush for the sender to notice the stop, so that the flush ends within its limit.
constexpr std::uint32_t StopGraceMs = 100;

/// What is left of limitMs since startTicks.
std::uint32_t Remaining(std::uint32_t limitMs, std::uint32_t startTicks)
{
    const std::uint32_t passed = ::GetTickCount() - startTicks;
    return passed < limitMs ? limitMs - passed : 0;
}
} // namespace

/// Shares the sender, which therefore outlives its thread.
class CAnalyticsSender::CFunction : public Win32::CThreadFunction
{
public:
    CFunction(CRefPtr<CAnalyticsSender> sender, const SenderSettings& settings) :
        m_Sender(std::move(sender)), m_Settings(settings)
    {
    }
    std::uint32_t Execute(Win32::CThread& /*thread*/) override
    {
        m_Sender->Run(m_Settings);
        return 0;
    }

private:
    const CRefPtr<CAnalyticsSender> m_Sender;
    const SenderSettings m_Settings;
};

CAnalyticsSender::CAnalyticsSender(CRefPtr<CAnalyticsQueue> queue, std::string endpoint) :
    m_Queue(std::move(queue)), m_Endpoint(std::move(endpoint))
{
}

void CAnalyticsSender::EnsureRunning(const SenderSettings& settings)
{
    const Win32::CLock lock(m_Lock);
    if (IsStopped(0))
        return;
    if (m_Thread)
    {
        m_LookAgain = true;
        return;
    }
    m_LookAgain = false;
    const auto thread = MakeRef<Win32::CThread>(MakeRef<CFunction>(this, settings));
    m_Thread = thread;
    // A thread that is only late to start is kept, not joined here: it needs the lock to leave.
    const Win32::CScopeExit forgetMissingThread([&] {
        if (!thread->Handle())
            m_Thread.Reset();
    });
    thread->ThreadStart("Analytics sender");
}

void CAnalyticsSender::FlushAndStop(std::uint32_t limitMs)
{
    const std::uint32_t start = ::GetTickCount();
    const std::uint32_t sendingMs = limitMs - std::min(limitMs, StopGraceMs);
    // A thread of the run may still be at it. It may also have left at a failure that is over by now.
    if (WaitForThread(sendingMs))
    {
        if (const std::uint32_t remaining = Remaining(sendingMs, start))
        {
            SenderSettings settings;
            settings.TotalLimitMs = remaining;
            EnsureRunning(settings);
            WaitForThread(remaining);
        }
    }
    Stop(Remaining(limitMs, start));
}

void CAnalyticsSender::Stop(std::uint32_t graceMs) noexcept
{
    if (IsStopped(0))
        return;
    ::SetEvent(m_StopEvent.Handle());
    if (WaitForThread(graceMs))
        return;
    LS_LOG_FAILURE(L"CAnalyticsSender::Stop() : the sender doesn't end and is left behind");
    const Win32::CLock lock(m_Lock);
    if (m_Thread)
        m_Thread->AddRef(); // never joined: the end of the process ends it
}

/// True when no thread runs any more.
bool CAnalyticsSender::WaitForThread(std::uint32_t milliseconds) noexcept
{
    CRefPtr<Win32::CThread> thread;
    {
        const Win32::CLock lock(m_Lock);
        thread = m_Thread;
    }
    return !thread || thread->Wait(milliseconds) != WAIT_TIMEOUT;
}

bool CAnalyticsSender::IsStopped(std::uint32_t waitMs) const noexcept
{
    return ::WaitForSingleObject(m_StopEvent.Handle(), waitMs) != WAIT_TIMEOUT;
}

void CAnalyticsSender::Run(const SenderSettings& settings)
{
    for (;;)
    {
        Pass last = Pass::Failed;
        try
        {
            last = SendUntilDone(settings);
        }
        catch (const CException& exception)
        {
            Util::CLog::WriteText(LS_LOG_LOCATION(Util::LogLevelFailure), // whole, however long
                                  L"CAnalyticsSender::Run() : " + exception.Format());
        }
        catch (const std::exception& exception)
        {
            LS_LOG_FAILURE("CAnalyticsSender::Run() : %s", exception.what());
        }
        if (Leave(last == Pass::Empty))
            return;
    }
}

bool CAnalyticsSender::Leave(bool mayGoOn)
{
    const Win32::CLock lock(m_Lock);
    // A record that came after this thread had found the queue empty.
    if (mayGoOn && std::exchange(m_LookAgain, false))
        return false;
    m_Thread.Reset();
    return true;
}

CAnalyticsSender::Pass CAnalyticsSender::SendUntilDone(const SenderSettings& settings)
{
    COnlineCheck onlineCheck;
    const std::uint32_t start = ::GetTickCount();
    for (;;)
    {
        const Pass pass = SendOne(onlineCheck);
        const bool isIdle = pass == Pass::Empty || pass == Pass::Offline;
        if (pass == Pass::Failed || pass == Pass::Stopped || (isIdle && settings.StopWhenEmpty))
            return pass;
        if (settings.TotalLimitMs && Remaining(*settings.TotalLimitMs, start) == 0)
            return Pass::Stopped;
        if (IsStopped(isIdle ? settings.IdlePauseMs : settings.PauseAfterSendMs))
            return Pass::Stopped;
    }
}

CAnalyticsSender::Pass CAnalyticsSender::SendOne(COnlineCheck& onlineCheck)
{
    if (!onlineCheck.IsOnline())
        return Pass::Offline;

    // Another process may hang in its upload: the wait has no limit of its own, but a stop ends it, and so
    // the limit of a flush does.
    const Win32::CMutexOwner upload(m_Queue->UploadMutex(), m_StopEvent.Handle(), INFINITE);
    if (!upload.Owns())
        return Pass::Stopped;

    const CQueueContents::FirstRecord record = m_Queue->GetFirst(m_StopEvent.Handle());
    switch (record.Kind)
    {
    case CQueueContents::First::None:
        return Pass::Empty;
    case CQueueContents::First::Failed:
        return Pass::Failed;
    case CQueueContents::First::Unsendable:
        break;
    case CQueueContents::First::Unsent:
        if (const Pass pass = Upload(record.Query); pass != Pass::Handled)
            return pass;
        break;
    }
    return m_Queue->RemoveFirst(record.Key) ? Pass::Handled : Pass::Failed;
}

CAnalyticsSender::Pass CAnalyticsSender::Upload(const std::string& query)
{
    const auto request = Net::CHttpWebRequest::CreateHttp(m_Endpoint + "?" + query, 0, 0, 0, 0);
    if (!request)
    {
        LS_LOG_FAILURE("CAnalyticsSender::Upload() : no request for %s", m_Endpoint.c_str());
        return Pass::Failed;
    }
    request->Start();
    while (request->PercentDone() < AllDone)
    {
        if (!IsStopped(PollMs))
            continue;
        // An answer that is there, or is just coming in, still counts: its record would be sent again by the
        // next run. Otherwise the request is dropped; its worker goes when the transport lets it.
        if (request->PercentDone() < AllDone)
            ::Sleep(PollMs);
        if (request->PercentDone() < AllDone)
            return Pass::Stopped;
    }
    const std::uint32_t status = request->StatusCode();
    if (status >= 200 && status <= 299)
        return Pass::Handled;
    LS_LOG_INFO("CAnalyticsSender::Upload() : not taken : status=%u error=%u", status, request->ErrorCode());
    return Pass::Failed;
}
