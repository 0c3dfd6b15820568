#include "Updater/Launch/LaunchEXE.h"

#include "Ls/System/Util/Log.h"
#include "Updater/Launch/ElevationService.h"
#include "Updater/Launch/ElevationTest.h"
#include "Updater/Launch/LaunchCommands.h"
#include "Updater/Launch/Park.h"
#include "Updater/Launch/PatchWait.h"
#include "Updater/Launch/ProgramFiles.h"
#include "Updater/Launch/ShellFallback.h"

#include <windows.h>

#include <optional>

using LS::System::Win32::CKernelHandle;

std::uint32_t LaunchEXE(CCheckedPatch& patch, const LaunchArguments& arguments,
                        const ProgressSink& showProgress)
{
    LS_LOG_INFO("LaunchEXE() : Begin");
    PatchCommand command;
    command.Path = patch.Path();
    command.Folder = PatchFolder(command.Path);
    command.IsPackage = arguments.IsBlueStacks;
    command.PromptOwner = arguments.PromptOwner;

    std::optional<CPark> park;
    if (arguments.IsBlueStacks)
        LS_LOG_INFO("LaunchEXE() : BlueStacks so we wont launch Park");
    else
    {
        // Without parking, too, the patch is told where a Park lies: it may start it by itself.
        park.emplace(arguments.ParkPath, arguments.ProductName);
        command.Parameters = PatchParameters(park->CopyPath(), arguments.InstallerArgs);
        if (arguments.UseParking)
            park->Start(ParkCommandLine(ClientPath(GetProgramFilesX86Path()), arguments.Locale,
                                        arguments.AppArgs, arguments.DP),
                        command.Owner());
    }

    CKernelHandle process;
    const bool isElevated = IsProcessElevated(::GetCurrentProcess());
    if (!isElevated)
        process = StartThroughElevationService(command);
    if (!process)
        process = StartThroughShellFallback(command, isElevated, park ? &*park : nullptr);
    // Also without a process to wait for: the shell or the service says that it runs, and Park is needed
    // then.
    if (park)
        park->LetGo();
    // A running program's file is safe from changes; msiexec may open its package at any time.
    if (!command.IsPackage)
        patch.Release();
    const std::uint32_t exitCode = WaitForPatch(process, showProgress);
    patch.Release();
    process.Reset();
    LS_LOG_INFO("LaunchEXE() : End : Returning dwExitCode=%d", exitCode);
    return exitCode;
}
