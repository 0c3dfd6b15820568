#include "Ls/System/Win32/Thread.h"

#include "Ls/System/HandledException.h"
#include "Ls/System/String/DecimalText.h"
#include "Ls/System/ThrowException.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Win32/CriticalSection.h"

#include <process.h>

#include <atomic>
#include <cerrno>
#include <memory>

namespace LS::System::Win32
{
namespace
{
/// A machine under heavy load may take seconds to run a new thread for the first time.
constexpr std::uint32_t StartTimeOutMs = 5000;

constexpr char ExecuteFailed[] = "Thread Execute Function";
constexpr char ThreadProc[] = "LS::System::Win32::CThread::StaticThreadProc";

/// The exception by which a program tells its debugger the name of a thread.
constexpr DWORD ThreadNameException = 0x406D1388;

struct ThreadNameRecord
{
    DWORD Type; // 0x1000
    LPCSTR Name;
    DWORD ThreadId;
    DWORD Flags;
};

LONG CALLBACK IgnoreThreadName(EXCEPTION_POINTERS* exception)
{
    return exception->ExceptionRecord->ExceptionCode == ThreadNameException ? EXCEPTION_CONTINUE_EXECUTION
                                                                            : EXCEPTION_CONTINUE_SEARCH;
}

void NameThread(const std::string& name, DWORD threadId) noexcept
{
    const ThreadNameRecord record = {0x1000, name.c_str(), threadId, 0};
    ULONG_PTR arguments[sizeof(record) / sizeof(ULONG_PTR)];
    CopyMemory(arguments, &record, sizeof(arguments));
    // Without a debugger nobody handles the exception. A vectored handler ignores it with every compiler,
    // __try only with one.
    void* handler = ::AddVectoredExceptionHandler(0, IgnoreThreadName);
    if (!handler)
        return;
    ::RaiseException(ThreadNameException, 0, static_cast<DWORD>(std::size(arguments)), arguments);
    ::RemoveVectoredExceptionHandler(handler);
}

/// What escaped Execute as it is kept. Empty when there is no memory for it, as exception may be.
CRefPtr<const CException> Wrap(const CException* exception) noexcept
{
    try
    {
        if (exception)
            return MakeRef<const CException>(*exception, ExecuteFailed, ThreadProc, __LINE__, __FILE__);
    }
    catch (...)
    {
        // The owner learns that something escaped.
    }
    return {};
}
} // namespace

struct CThread::State : CReferenceCounted
{
    explicit State(CRefPtr<CThreadFunction> function) : m_Function(std::move(function)) {}

    /// Needs no memory: where there is none, the wrapping alone is kept.
    void Capture(const CRefPtr<const CException>& exception) noexcept
    {
        const CLock lock(m_Lock);
        m_CapturedException = exception ? exception : m_NoMemory;
    }

    const CRefPtr<CThreadFunction> m_Function;
    const CEvent m_StartedEvent{true, false};
    std::atomic<bool> m_ShouldFinish{false};
    std::atomic<std::uint32_t> m_ExitCode{0};
    CCriticalSection m_Lock;
    /// Guarded by m_Lock.
    CRefPtr<const CException> m_CapturedException;
    /// Made beforehand, since an escape for want of memory is kept too.
    const CRefPtr<const CException> m_NoMemory =
        MakeRef<const CException>(ExecuteFailed, ThreadProc, __LINE__, __FILE__);
};

CThread::CThread(CRefPtr<CThreadFunction> function) : m_State(MakeRef<State>(std::move(function))) {}

CThread::CThread(State& state) noexcept : m_State(&state) {}

CThread::~CThread()
{
    if (!m_Handle)
        return;
    Stop();
    Util::CLog::RemoveThreadName(m_Id);
}

void CThread::ThreadStart(const std::string& name)
{
    if (m_Started)
    {
        ThrowException(CException(L"Thread already started", LS_HERE));
        return;
    }
    m_Started = true;

    auto inside = std::make_unique<CRefPtr<CThread>>(CRefPtr<CThread>(new CThread(*m_State)));
    unsigned id = 0;
    m_Handle.Reset(
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &StaticThreadProc, inside.get(), 0, &id)));
    if (!m_Handle)
    {
        ThrowException(CException(L"_beginthreadex failure; errno = " + DecimalText(errno), LS_HERE));
        return;
    }
    static_cast<void>(inside.release()); // it is the thread's
    m_Id = id;

    if (m_State->m_StartedEvent.Wait(StartTimeOutMs) == WAIT_TIMEOUT)
    {
        ThrowException(CException(L"ThreadStart timeout waiting for m_StartedEvent", LS_HERE));
        return;
    }
    if (!name.empty())
        NameThread(name, m_Id);
}

bool CThread::ShouldFinish() const noexcept
{
    return m_State->m_ShouldFinish;
}

void CThread::SetShouldFinish(bool shouldFinish) noexcept
{
    m_State->m_ShouldFinish = shouldFinish;
}

void CThread::Stop() noexcept
{
    SetShouldFinish(true);
    if (::GetCurrentThreadId() != m_Id)
        Wait(INFINITE);
}

std::uint32_t CThread::Wait(std::uint32_t milliseconds) const noexcept
{
    return m_Handle ? ::WaitForSingleObject(m_Handle.Get(), milliseconds) : WAIT_OBJECT_0;
}

std::uint32_t CThread::ExitCode() const noexcept
{
    return m_State->m_ExitCode;
}

CRefPtr<const CException> CThread::CapturedException() const
{
    const CLock lock(m_State->m_Lock);
    return m_State->m_CapturedException;
}

unsigned __stdcall CThread::StaticThreadProc(void* argument)
{
    // The owner's object is never touched here: Execute may have let go of it.
    const std::unique_ptr<CRefPtr<CThread>> inside(static_cast<CRefPtr<CThread>*>(argument));
    CThread& thread = **inside;
    thread.m_Id = ::GetCurrentThreadId();
    State& state = *thread.m_State;

    try
    {
        state.m_StartedEvent.Set();
        state.m_ExitCode = state.m_Function->Execute(thread);
    }
    catch (...)
    {
        state.Capture(Wrap(HandledException(LS_HERE).Get()));
    }
    return state.m_ExitCode;
}
} // namespace LS::System::Win32
