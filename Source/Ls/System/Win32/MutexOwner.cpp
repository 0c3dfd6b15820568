#include "Ls/System/Win32/MutexOwner.h"

#include "Ls/System/ThrowException.h"

namespace LS::System::Win32
{
CMutexOwner::CMutexOwner(const CMutex& mutex, HANDLE stopEvent, std::uint32_t milliseconds) : m_Mutex(mutex)
{
    if (!stopEvent)
    {
        const DWORD result = mutex.Wait(milliseconds);
        m_Owns = result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
        return;
    }
    // In this order: when both are there, the stop is the one that counts.
    const HANDLE handles[] = {stopEvent, mutex.Handle()};
    const DWORD result = ::WaitForMultipleObjects(2, handles, FALSE, milliseconds);
    if (result == WAIT_FAILED)
        ThrowException(CException("Wait Failed:", LS_HERE));
    m_Owns = result == WAIT_OBJECT_0 + 1 || result == WAIT_ABANDONED_0 + 1;
}

CMutexOwner::~CMutexOwner()
{
    if (m_Owns)
        ::ReleaseMutex(m_Mutex.Handle());
}
} // namespace LS::System::Win32
