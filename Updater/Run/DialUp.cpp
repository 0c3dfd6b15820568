#include "Updater/Run/DialUp.h"

#include "Ls/System/Win32/SystemLibrary.h"

#include <windows.h>

#include <ras.h>

void EnumerateDialUpEntries() noexcept
{
    using Function = DWORD(WINAPI*)(LPCWSTR, LPCWSTR, LPRASENTRYNAMEW, LPDWORD, LPDWORD);
    const LS::System::Win32::CSystemLibrary library(L"rasapi32.dll");
    const auto enumerate = library.GetFunction<Function>("RasEnumEntriesW");
    if (!enumerate)
        return;

    RASENTRYNAMEW entry = {};
    entry.dwSize = sizeof(entry);
    DWORD size = sizeof(entry);
    DWORD count = 0;
    enumerate(nullptr, nullptr, &entry, &size, &count);
}
