#pragma once

#include "Ls/System/Exception.h"
#include "Ls/System/Object.h"
#include "Ls/System/ReferenceCounted.h"
#include "Ls/System/Win32/Event.h"
#include "Ls/System/Win32/UniqueHandle.h"

#include <cstdint>
#include <string>

namespace LS::System::Win32
{
class CThread;

/// What a thread runs. Execute polls thread.ShouldFinish() at least every 100 ms and returns the thread's
/// result; what it throws is kept for the thread's owner. The thread that it is given speaks for the same
/// thread as the owner's object without being it: good for ShouldFinish, SetShouldFinish and Id for as long
/// as Execute runs, whatever becomes of the owner's.
class CThreadFunction : public CReferenceCounted, public CObject
{
public:
    virtual std::uint32_t Execute(CThread& thread) = 0;
};

/// A worker thread: idle, started once, asked to finish and joined by its destructor. The owner starts it,
/// any thread may ask it to finish. When the last reference is dropped on the thread itself (from within
/// Execute), it isn't joined and the object may be gone while Execute still returns: what the thread needs
/// then is shared, not owned.
class CThread : public CReferenceCounted, public CObject
{
public:
    explicit CThread(CRefPtr<CThreadFunction> function);
    CThread(const CThread&) = delete;
    CThread& operator=(const CThread&) = delete;
    ~CThread() override;

    /// Returns once the new thread runs. Throws CException "Thread already started", "_beginthreadex failure;
    /// errno = ..." or, after 5000 ms, "ThreadStart timeout waiting for m_StartedEvent" (the thread may still
    /// run then). A non-empty name is shown by debuggers. The caller keeps its reference during the call.
    /// When the debug switch lets a failure pass, Handle may be null afterwards: then no thread runs.
    void ThreadStart(const std::string& name);

    bool ShouldFinish() const noexcept;
    void SetShouldFinish(bool shouldFinish) noexcept;

    /// Asks the thread to finish and waits until it has, unless called on the thread itself.
    void Stop() noexcept;
    /// Waits for the end; WAIT_OBJECT_0 also for a thread that never ran.
    std::uint32_t Wait(std::uint32_t milliseconds) const noexcept;

    /// Null before the start.
    HANDLE Handle() const noexcept { return m_Handle.Get(); }
    std::uint32_t Id() const noexcept { return m_Id; }
    /// Result of Execute; 0 until it has returned.
    std::uint32_t ExitCode() const noexcept;
    /// The exception that escaped Execute, wrapped in "Thread Execute Function"; empty when none has. Without
    /// memory the wrapping alone is kept.
    CRefPtr<const CException> CapturedException() const;

private:
    struct State;
    /// What Execute is given: the same state, but no handle, so nothing to join.
    explicit CThread(State& state) noexcept;
    static unsigned __stdcall StaticThreadProc(void* argument);

    CKernelHandle m_Handle;
    std::uint32_t m_Id = 0;
    bool m_Started = false;
    /// Outlives this object when the thread drops its own last reference.
    CRefPtr<State> m_State;
};
} // namespace LS::System::Win32
