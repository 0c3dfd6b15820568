#pragma once

#include <string>

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
};
