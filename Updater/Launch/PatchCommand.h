#pragma once

#include <windows.h>

#include <functional>
#include <string>

/// Names a visible window of this process, or null.
using WindowSource = std::function<HWND()>;

/// How the patch is to be started, by whichever route.
struct PatchCommand
{
    std::wstring Path;
    /// A Windows Installer package, not a program.
    bool IsPackage = false;
    /// For a program only.
    std::wstring Parameters;
    /// Where it runs; ends in a backslash.
    std::wstring Folder;
    /// Asked as late as possible, since the dialog may show itself meanwhile. May be empty.
    WindowSource PromptOwner;

    HWND Owner() const { return PromptOwner ? PromptOwner() : nullptr; }
};
