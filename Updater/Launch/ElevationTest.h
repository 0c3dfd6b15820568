#pragma once

#include <windows.h>

/// Whether a process runs with administrator rights; needs a handle with PROCESS_QUERY_INFORMATION. Where
/// tokens have no elevation of their own it is this program's user who is asked about: whether the
/// machine-wide registry can be written.
bool IsProcessElevated(HANDLE process) noexcept;
