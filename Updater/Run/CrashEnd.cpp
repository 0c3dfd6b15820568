#include "Updater/Run/CrashEnd.h"

#include "Updater/Run/ExitCodes.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <exception>

namespace
{
std::atomic<HANDLE> g_UpdateNo = nullptr;

/// Takes no lock and no memory, since a crash may have come up with either in a bad state. For the same
/// reason the log has no line of it: that it ends without one, and the exit code, tell.
[[noreturn]] void EndNow() noexcept
{
    if (const HANDLE event = g_UpdateNo)
        ::SetEvent(event);
    for (;;) // it doesn't come back for the own process
        ::TerminateProcess(::GetCurrentProcess(), static_cast<UINT>(ExitCodes::UnknownException));
}

void OnAbort(int /*signal*/)
{
    EndNow();
}
} // namespace

void EndCrashesWithOwnCode() noexcept
{
#ifdef _MSC_VER // whose set_terminate is for one thread, and whose abort first shows a box
    ::_set_abort_behavior(0, _WRITE_ABORT_MSG | _CALL_REPORTFAULT);
#endif
    std::set_terminate(&EndNow);
    std::signal(SIGABRT, &OnAbort);
}

void SetEventForCrash(HANDLE updateNo) noexcept
{
    g_UpdateNo = updateNo;
}
