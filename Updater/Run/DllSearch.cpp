#include "Updater/Run/DllSearch.h"

#include <windows.h>

void SearchSystemFolderOnly() noexcept
{
    // Windows 7 has the function only with an update. The next best thing takes the current folder out.
    using Function = BOOL(WINAPI*)(DWORD);
    const HMODULE kernel = ::GetModuleHandleW(L"kernel32.dll");
    const auto setDirectories =
        reinterpret_cast<Function>(::GetProcAddress(kernel, "SetDefaultDllDirectories"));
    constexpr DWORD system32 = 0x800; // LOAD_LIBRARY_SEARCH_SYSTEM32
    if (!setDirectories || !setDirectories(system32))
        ::SetDllDirectoryW(L"");
}
