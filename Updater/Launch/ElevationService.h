#pragma once

#include "Ls/System/Win32/UniqueHandle.h"
#include "Updater/Launch/PatchCommand.h"

/// Has the patch started with administrator rights by the installed elevation service: its generation 6 or,
/// failing that and only for a program, 5. Returns the process; none when no service did it, which the log
/// and the analytics tell. Takes as long as the service does: it may be asking the user. Throws
/// CExitCodeException 1280.
LS::System::Win32::CKernelHandle StartThroughElevationService(const PatchCommand& command);
