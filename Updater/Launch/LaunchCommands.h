#pragma once

#include <string>

// The paths and command lines of the launch. The programs that read them (patch, Park, client) are released
// on their own, so each text is fixed to the letter.

/// The patch's folder with a trailing backslash; the whole path and a backslash when it has none.
std::wstring PatchFolder(const std::wstring& patchPath);

/// Where this run's Park lies. dataDir ends in a backslash, and the name begins with a second one.
std::wstring ParkCopyPath(const std::wstring& dataDir, const std::wstring& uuid);

/// Tells the patch where Park is, followed by the installer's own arguments.
std::wstring PatchParameters(const std::wstring& parkCopy, const std::wstring& installerArgs);

/// The client's program below the 32-bit program-files folder.
std::wstring ClientPath(const std::wstring& programFiles);

/// Tells Park how to start the client again. Without arguments for the client it gets "/dp" and its value,
/// even an empty one.
std::wstring ParkCommandLine(const std::wstring& clientPath, const std::wstring& locale,
                             const std::wstring& appArgs, const std::wstring& dp);

/// Tells a waiting Park to give up.
std::wstring ParkTerminateCommandLine();

/// A path as the elevation service takes it.
std::wstring Quoted(const std::wstring& path);

/// Makes msiexec install a package without a question or a window.
std::wstring MsiexecParameters(const std::wstring& packagePath);
