#pragma once

#include "Ls/System/Win32/UniqueHandle.h"

#include <windows.h>

#include <tlhelp32.h>

namespace Tests
{
// What this process holds of the system.

/// Open handles among the first few thousand (Wine's GetProcessHandleCount always says 0, and its list of
/// processes tells the size of the handle table).
inline unsigned HandleCount()
{
    unsigned count = 0;
    for (ULONG_PTR value = 4; value < 0x4000; value += 4)
    {
        DWORD flags = 0;
        count += ::GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) ? 1 : 0;
    }
    return count;
}

inline unsigned ThreadCount()
{
    const LS::System::Win32::CFileHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    unsigned count = 0;
    THREADENTRY32 thread = {};
    thread.dwSize = sizeof(thread);
    for (BOOL found = ::Thread32First(snapshot.Get(), &thread); found;
         found = ::Thread32Next(snapshot.Get(), &thread))
        count += thread.th32OwnerProcessID == ::GetCurrentProcessId() ? 1 : 0;
    return count;
}
} // namespace Tests
