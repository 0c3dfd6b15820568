#pragma once

#include "Updater/Dialog/ProgressBands.h"
#include "Updater/Launch/PatchCommand.h"
#include "Updater/Publisher/CheckedPatch.h"

#include <cstdint>
#include <string>

/// What the command line says about the launch.
struct LaunchArguments
{
    std::wstring ProductName;
    std::wstring Locale;
    std::wstring InstallerArgs;
    /// Empty: Park is searched for beside the updater.
    std::wstring ParkPath;
    std::wstring AppArgs;
    /// Whether Park is started; it is made ready in any case.
    bool UseParking = true;
    std::wstring DP;
    /// The patch is a Windows Installer package of the outside product, run without Park.
    bool IsBlueStacks = false;
    /// The window that Windows' elevation prompt belongs to.
    WindowSource PromptOwner;
};

/// Makes Park ready, runs the accepted patch with administrator rights where they can be had (through the
/// elevation service, else through the shell) and waits for its end; the patch's file is let go once it runs,
/// a package once it is installed. Returns the exit code of the patch, which has ended, 1 when it can't be
/// read. Throws CExitCodeException, also when the patch was started and nothing tells its end.
std::uint32_t LaunchEXE(CCheckedPatch& patch, const LaunchArguments& arguments,
                        const ProgressSink& showProgress);
