#pragma once

#include "Ls/System/Win32/UniqueHandle.h"

#include <windows.h>

#include <cstdint>
#include <string>

/// What became of a start through the shell.
struct ShellStart
{
    bool Started = false;
    /// The thread's last error when it wasn't started.
    std::uint32_t LastError = 0;
    /// The shell's own error number, below 33 for a failure.
    std::int32_t InstanceCode = 0;
    /// The process; only when it was asked for.
    LS::System::Win32::CKernelHandle Process;
};

/// Starts a program as a double click would (so that its manifest can ask for administrator rights), with no
/// message of the shell's own, and returns once it runs or has failed. owner is a visible window of this
/// process that Windows' elevation prompt belongs to: without one (null) the prompt doesn't come to the
/// foreground, it only flashes in the task bar.
ShellStart StartThroughShell(const std::wstring& file, const std::wstring& parameters,
                             const std::wstring& workingFolder, bool keepProcess, HWND owner);
