// Stands in for a library that somebody planted: leaves a file beside itself when it is loaded.
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, void*)
{
    wchar_t path[1024] = {};
    if (reason == DLL_PROCESS_ATTACH && ::GetModuleFileNameW(module, path, 1000))
        ::CloseHandle(::CreateFileW(::lstrcatW(path, L".loaded"), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0,
                                    nullptr));
    return TRUE;
}
