#pragma once

#include <cstdint>

/// Times in milliseconds that a developer can change through REG_DWORD values of these names under
/// "HKEY_LOCAL_MACHINE\Software\Larkspur\Debugging". Read once, before any other thread exists; any
/// thread may look at them afterwards.
namespace DebugSettings
{
/// How long the progress dialog waits before it first shows itself.
inline std::uint32_t UpdaterPauseBeforeDialogMs = 1000;
/// The least time that the progress dialog stays on screen once shown.
inline std::uint32_t UpdaterMinDialogShowTimeMs = 500;
/// Least time from the start of the run to the launch of the patch.
inline std::uint32_t UpdaterMinDownloadTimeMs = 0;
/// Least time from the launch of the patch to the end of the run.
inline std::uint32_t UpdaterMinInstallTimeMs = 0;

/// Never throws: what can't be read keeps its default.
void Read() noexcept;
} // namespace DebugSettings
