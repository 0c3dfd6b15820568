#include "Updater/Launch/LaunchEXE.h"

#include "Ls/System/ExitCodeException.h"
#include "Ls/System/Util/Log.h"
#include "Updater/Launch/InstallProgress.h"
#include "Updater/Launch/LaunchCommands.h"
#include "Updater/Launch/Park.h"
#include "Updater/Launch/ProgramFiles.h"
#include "Updater/Launch/ShellStart.h"
#include "Updater/Run/ExitCodes.h"

#include <windows.h>

using LS::System::CExitCodeException;
using LS::System::Win32::CKernelHandle;

namespace
{
/// Between two looks at the installation's progress.
constexpr DWORD PollMs = 200;
/// A Park that has just been started needs a moment before it hears the signal to give up.
constexpr DWORD ParkStartMs = 1000;

CKernelHandle StartPatch(const std::wstring& patchPath, const std::wstring& parameters,
                         const std::wstring& folder, const CPark* startedPark)
{
    LS_LOG_INFO("LaunchEXE() : PlayDeckService was not found, or it failed. Fallback to using "
                "ShellExecuteEx");
    LS_LOG_INFO("LaunchEXE() : Attempting GA update with ShellExecuteEx()");
    ShellStart start = StartThroughShell(patchPath, parameters, folder, true);
    if (!start.Started)
    {
        LS_LOG_INFO("LaunchEXE() : ShellExecuteEx() returned false : LastError=%d", start.LastError);
        if (startedPark)
        {
            LS_LOG_INFO("LaunchEXE() : ShellExecuteEx() failed, telling park to Terminate");
            ::Sleep(ParkStartMs);
            startedPark->Terminate();
        }
        LS_LOG_INFO("LaunchEXE() : ShellExecuteEx() failed, throw out");
        LS_LOG_FAILURE("ShellExecuteEx failed");
        throw CExitCodeException(ExitCodes::PatchNotStarted);
    }
    return std::move(start.Process);
}

/// Returns when the process has ended, or can't be waited for.
void WaitForPatch(const CKernelHandle& process, const ProgressSink& showProgress)
{
    while (::WaitForSingleObject(process.Get(), PollMs) == WAIT_TIMEOUT)
    {
        LS_LOG_INFO("LaunchEXE() : Launched process : Waiting for it to terminate");
        const std::optional<int> progress = InstallBand(ReadInstallPercent());
        if (progress && showProgress)
            showProgress(*progress);
    }
}
} // namespace

std::uint32_t LaunchEXE(CCheckedPatch& patch, const LaunchArguments& arguments,
                        const ProgressSink& showProgress)
{
    LS_LOG_INFO("LaunchEXE() : Begin");
    const std::wstring patchFolder = PatchFolder(patch.Path());

    // Without parking, too, the patch is told where a Park lies: it may start it by itself.
    const CPark park(arguments.ParkPath, arguments.ProductName);
    const std::wstring patchParameters = PatchParameters(park.CopyPath(), arguments.InstallerArgs);
    if (arguments.UseParking)
        park.Start(ParkCommandLine(ClientPath(GetProgramFilesX86Path()), arguments.Locale, arguments.AppArgs,
                                   arguments.DP));

    const CKernelHandle process =
        StartPatch(patch.Path(), patchParameters, patchFolder, arguments.UseParking ? &park : nullptr);
    patch.Release();
    WaitForPatch(process, showProgress);

    LS_LOG_INFO("LaunchEXE() : Finished waiting for process to exit");
    DWORD exitCode = 1;
    ::GetExitCodeProcess(process.Get(), &exitCode);
    LS_LOG_INFO("LaunchEXE() : End : Returning dwExitCode=%d", exitCode);
    return exitCode;
}
