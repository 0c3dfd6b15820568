#pragma once

#include "Ls/System/Win32/UniqueHandle.h"
#include "Updater/Dialog/ProgressBands.h"

#include <cstdint>

/// Waits until the patch's process has ended, shows meanwhile how far it says it is, and returns its exit
/// code, 1 when that can't be read. Throws CExitCodeException 1281 for a process that can't be waited for or
/// that nobody knows (null): it may run on, and nothing tells its end.
std::uint32_t WaitForPatch(const LS::System::Win32::CKernelHandle& process, const ProgressSink& showProgress);
