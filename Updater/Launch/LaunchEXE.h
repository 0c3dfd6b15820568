#pragma once

#include "Updater/Dialog/ProgressBands.h"
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
};

/// Makes Park ready, runs the accepted patch and waits for its end; the patch's file is let go once it runs.
/// Returns the patch's exit code, 1 when that can't be read. Throws CExitCodeException.
std::uint32_t LaunchEXE(CCheckedPatch& patch, const LaunchArguments& arguments,
                        const ProgressSink& showProgress);
