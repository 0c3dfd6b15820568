#include "Updater/Launch/ShellFallback.h"

#include "Ls/System/ExitCodeException.h"
#include "Ls/System/Util/Log.h"
#include "Updater/Analytics/RunAnalytics.h"
#include "Updater/Launch/LaunchCommands.h"
#include "Updater/Launch/ShellStart.h"
#include "Updater/Run/ExitCodes.h"

#include <windows.h>

#include <utility>

using LS::System::CExitCodeException;
using LS::System::Win32::CKernelHandle;

namespace
{
std::wstring MsiexecPath()
{
    wchar_t systemFolder[MAX_PATH];
    const UINT length = ::GetSystemDirectoryW(systemFolder, MAX_PATH);
    if (length == 0 || length >= MAX_PATH)
    {
        LS_LOG_INFO("LaunchEXE() : GetSystemDirectory() failed : LastError=%d : throw out", ::GetLastError());
        LS_LOG_FAILURE("GetSystemDirectory failed");
        throw CExitCodeException(ExitCodes::PatchNotStarted);
    }
    return std::wstring(systemFolder, length) + L"\\msiexec.exe";
}
} // namespace

CKernelHandle StartThroughShellFallback(const PatchCommand& command, bool updaterIsElevated, CPark* park)
{
    LS_LOG_INFO("LaunchEXE() : PlayDeckService was not found, or it failed. Fallback to using "
                "ShellExecuteEx");
    ShellStart start;
    if (command.IsPackage)
    {
        LS_LOG_INFO("LaunchEXE() : Attempting blueStacks update with ShellExecuteEx()");
        start = StartThroughShell(MsiexecPath(), MsiexecParameters(command.Path), command.Folder, true,
                                  command.Owner());
    }
    else
    {
        LS_LOG_INFO("LaunchEXE() : Attempting GA update with ShellExecuteEx()");
        start = StartThroughShell(command.Path, command.Parameters, command.Folder, true, command.Owner());
    }
    if (start.Started && !start.Process)
        LS_LOG_FAILURE("LaunchEXE() : ShellExecuteEx() returned true without a process");
    if (start.Started)
        return std::move(start.Process);

    LS_LOG_INFO("LaunchEXE() : ShellExecuteEx() returned false : LastError=%d", start.LastError);
    const std::wstring elevation = updaterIsElevated ? L"ProcessElevation:true" : L"ProcessElevation:false";
    ::SetLastError(start.LastError); // the mark reports it
    CRunAnalytics::ErrorEvent(L"ShellExec_Patch", elevation);
    if (park && park->IsWaiting())
    {
        LS_LOG_INFO("LaunchEXE() : ShellExecuteEx() failed, telling park to Terminate");
        park->Terminate();
    }
    LS_LOG_INFO("LaunchEXE() : ShellExecuteEx() failed, throw out");
    LS_LOG_FAILURE("ShellExecuteEx failed");
    throw CExitCodeException(ExitCodes::PatchNotStarted);
}
