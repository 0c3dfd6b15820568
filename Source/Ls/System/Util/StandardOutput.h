#pragma once

#include "Ls/System/Win32/CriticalSection.h"
#include "Ls/System/Win32/Event.h"

#include <windows.h>

#include <atomic>
#include <cstddef>
#include <deque>
#include <string>

namespace LS::System::Util
{
/// The process's standard output, which never makes its writer wait: the reader of a pipe may have gone to
/// sleep, and a console stands still while its user marks text. Lines wait for a thread of this object's own,
/// up to 64 KiB of them; one for which there is no room any more is left out. Never destroyed once a line was
/// put: the thread may stay blocked until the process ends.
class CStandardOutput
{
public:
    /// One thread at a time. In order; to a file at once. May throw std::bad_alloc.
    void Put(const std::string& line);

    /// Returns when all lines are out, or when none of them was taken for a second. Any thread.
    void Drain() noexcept;

private:
    static DWORD WINAPI ThreadBody(void* self) noexcept;
    void WriteLines() noexcept;
    bool Open();

    enum class State
    {
        Unknown,
        None, ///< there is none, or nobody can read it any more
        File,
        Threaded
    };

    std::atomic<State> m_State = State::Unknown;
    HANDLE m_Output = nullptr;
    const Win32::CEvent m_Given{false, false};
    /// After each piece of a line that was taken, and after each line.
    const Win32::CEvent m_Taken{false, false};
    Win32::CCriticalSection m_Lock;
    // Guarded by it. The line that is being written is still the first.
    std::deque<std::string> m_Lines;
    std::size_t m_Bytes = 0;
};
} // namespace LS::System::Util
