#pragma once

#include "Ls/System/Win32/Synchronization.h"

#include <string>

namespace LS::System::Win32
{
/// A kernel mutex with default security, opened when the name exists already. An empty name makes an
/// unnamed one. Failures are thrown as CException with the system's text.
class CMutex : public CSynchronizationObject
{
public:
    CMutex(const std::string& name, bool initiallyOwned);
    CMutex(const std::wstring& name, bool initiallyOwned);

    /// Made and owned; empty when someone else has made one of that name, also one that the system keeps from
    /// this process (an elevated process's, another user's).
    static CRefPtr<CMutex> CreateNew(const std::wstring& name);

    /// Made or opened, not owned, for those who only wait. Where the system refuses all rights, as of a mutex
    /// that an elevated process has made, it is opened with those that waiting needs.
    static CMutex Shared(const std::string& name);

    std::uint32_t Wait(std::uint32_t milliseconds) const override;
    /// The calling thread gives its ownership up.
    void ReleaseMutex() const;

private:
    explicit CMutex(HANDLE handle) noexcept { m_Handle.Reset(handle); }
};

/// Owns a mutex for a scope; waits without limit. An abandoned mutex counts as taken.
class CMutexLock
{
public:
    explicit CMutexLock(const CMutex& mutex) : m_Mutex(mutex) { m_Mutex.Wait(INFINITE); }
    CMutexLock(const CMutexLock&) = delete;
    CMutexLock& operator=(const CMutexLock&) = delete;
    ~CMutexLock() { ::ReleaseMutex(m_Mutex.Handle()); }

private:
    const CMutex& m_Mutex;
};
} // namespace LS::System::Win32
