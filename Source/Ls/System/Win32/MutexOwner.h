#pragma once

#include "Ls/System/Win32/Mutex.h"

#include <windows.h>

#include <cstdint>

namespace LS::System::Win32
{
/// Owns a mutex for a scope if it could be had in time. For mutexes that other processes share: one that
/// hangs must not take this one along. A mutex whose owner has died counts as had.
class CMutexOwner
{
public:
    /// Waits up to that many milliseconds (INFINITE: without limit), and no longer than until stopEvent (may
    /// be null) is set. Throws CException when the wait itself fails.
    CMutexOwner(const CMutex& mutex, HANDLE stopEvent, std::uint32_t milliseconds);
    CMutexOwner(const CMutexOwner&) = delete;
    CMutexOwner& operator=(const CMutexOwner&) = delete;
    ~CMutexOwner();

    bool Owns() const noexcept { return m_Owns; }

private:
    const CMutex& m_Mutex;
    bool m_Owns = false;
};
} // namespace LS::System::Win32
