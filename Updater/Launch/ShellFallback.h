#pragma once

#include "Ls/System/Win32/UniqueHandle.h"
#include "Updater/Launch/Park.h"
#include "Updater/Launch/PatchCommand.h"

/// Starts the patch through the shell, a package with the system's msiexec: the last of the routes. When it
/// fails, a waiting park (null: there is none) is told to give up. Returns the process, none when
/// the shell left the start to somebody else and can't name one (which is logged). Throws CExitCodeException
/// 1281. updaterIsElevated is for the analytics of a failure.
LS::System::Win32::CKernelHandle StartThroughShellFallback(const PatchCommand& command,
                                                           bool updaterIsElevated, CPark* park);
