#include "Updater/Launch/ShellStart.h"

#include <shellapi.h>

ShellStart StartThroughShell(const std::wstring& file, const std::wstring& parameters,
                             const std::wstring& workingFolder, bool keepProcess, HWND owner)
{
    SHELLEXECUTEINFOW info = {};
    info.cbSize = sizeof(info);
    info.fMask = SEE_MASK_UNICODE | SEE_MASK_FLAG_NO_UI | SEE_MASK_NOASYNC;
    if (keepProcess)
        info.fMask |= SEE_MASK_NOCLOSEPROCESS;
    info.hwnd = owner;
    info.lpFile = file.c_str();
    info.lpParameters = parameters.c_str();
    info.lpDirectory = workingFolder.c_str();
    info.nShow = SW_SHOWNORMAL;

    ShellStart result;
    result.Started = ::ShellExecuteExW(&info) != FALSE;
    result.LastError = result.Started ? 0 : ::GetLastError();
    result.InstanceCode = static_cast<std::int32_t>(reinterpret_cast<INT_PTR>(info.hInstApp));
    if (keepProcess)
        result.Process.Reset(info.hProcess);
    return result;
}
