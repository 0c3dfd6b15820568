#pragma once

#include "Ls/System/Win32/UniqueHandle.h"

#include <windows.h>

struct WindowTraits
{
    using Type = HWND;
    static Type None() noexcept { return nullptr; }
    static void Free(Type window) noexcept { ::DestroyWindow(window); }
};

/// Owns the progress dialog's window. Made, used and destroyed on one thread.
class CRAIIDialog
{
public:
    /// Makes the window, hidden. Throws CExitCodeException DialogNotCreated.
    explicit CRAIIDialog(DLGPROC procedure);

    HWND Window() const noexcept { return m_Window.Get(); }

private:
    LS::System::Win32::CUniqueHandle<WindowTraits> m_Window;
};
