#pragma once

#include <windows.h>

namespace LS::System::Win32
{
/// A lock of this process; the thread that holds it may take it again.
class CCriticalSection
{
public:
    CCriticalSection() noexcept { ::InitializeCriticalSection(&m_Section); }
    CCriticalSection(const CCriticalSection&) = delete;
    CCriticalSection& operator=(const CCriticalSection&) = delete;
    ~CCriticalSection() { ::DeleteCriticalSection(&m_Section); }

    void Enter() noexcept { ::EnterCriticalSection(&m_Section); }
    void Leave() noexcept { ::LeaveCriticalSection(&m_Section); }

private:
    CRITICAL_SECTION m_Section;
};

/// Holds a lock for a scope.
class CLock
{
public:
    explicit CLock(CCriticalSection& section) noexcept : m_Section(section) { m_Section.Enter(); }
    CLock(const CLock&) = delete;
    CLock& operator=(const CLock&) = delete;
    ~CLock() { m_Section.Leave(); }

private:
    CCriticalSection& m_Section;
};
} // namespace LS::System::Win32
