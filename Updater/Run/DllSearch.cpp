#include "Updater/Run/DllSearch.h"

#include "Ls/System/String/Convert.h"
#include "Ls/System/Win32/SystemLibrary.h"

#include <windows.h>

#include <delayimp.h>

namespace
{
/// Called by the run time before it loads a library for the first call into it. The library stays loaded.
FARPROC WINAPI LoadFromSystemFolder(unsigned event, DelayLoadInfo* info) noexcept
{
    if (event != dliNotePreLoadLibrary)
        return nullptr;
    LS::System::Win32::CSystemLibrary library(LS::AnsiToWide(info->szDll));
    return reinterpret_cast<FARPROC>(library.Detach()); // null: the run time tries by itself
}

/// What Windows 10 can refuse by itself; an older one doesn't know the function or the policy. A file of low
/// integrity was written by a browser's or another sandbox's process, and no honest library is; the system's
/// folder first is what the search above says, for those libraries too that a library loads in turn. Two more
/// policies would hurt honest users: without extension points Winsock providers and input methods are
/// missing, and without remote images perhaps the version of a client on a share.
void RefuseForeignLibraries() noexcept
{
    using Function = BOOL(WINAPI*)(int, const void*, SIZE_T);
    const auto setPolicy = reinterpret_cast<Function>(
        ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "SetProcessMitigationPolicy"));
    if (!setPolicy)
        return;
    constexpr int imageLoad = 10; // PROCESS_MITIGATION_POLICY
    constexpr DWORD noLowLabel = 2, preferSystem32 = 4;
    constexpr DWORD images = noLowLabel | preferSystem32;
    setPolicy(imageLoad, &images, sizeof(images));
}
} // namespace

#ifdef _MSC_VER
extern "C" const PfnDliHook __pfnDliNotifyHook2 = LoadFromSystemFolder;
#endif

void SearchSystemFolderOnly() noexcept
{
#ifndef _MSC_VER // where it is a constant
    __pfnDliNotifyHook2 = LoadFromSystemFolder;
#endif
    // Windows 7 has the function only with an update. The next best thing takes the current folder out.
    using Function = BOOL(WINAPI*)(DWORD);
    const HMODULE kernel = ::GetModuleHandleW(L"kernel32.dll");
    const auto setDirectories =
        reinterpret_cast<Function>(::GetProcAddress(kernel, "SetDefaultDllDirectories"));
    constexpr DWORD system32 = 0x800; // LOAD_LIBRARY_SEARCH_SYSTEM32
    if (!setDirectories || !setDirectories(system32))
        ::SetDllDirectoryW(L"");
    RefuseForeignLibraries();
}
