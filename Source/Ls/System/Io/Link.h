#pragma once

#include "Ls/System/Win32/UniqueHandle.h"

#include <windows.h>

#include <string>

// A user can put a link in the place of any file or folder below his own folders. A program that runs with
// his rights follows it, as he may want; one with more rights than his would write or delete for him where he
// can't. Everything that is made, written or deleted below the per-user folders goes through here.
namespace LS::System::IO
{
/// From here on this process follows no links below the folder: no junction, no symbolic link and no file
/// that has another name elsewhere (a hard link). What leads to the folder itself isn't looked at. For two
/// folders at most; called before other threads exist. The folder must be there.
void FollowNoLinksBelow(const std::wstring& folder);

/// Whether that rule holds for the path and a link stands in its place or in that of a folder above it.
/// What doesn't exist is judged by the folders above it. For what can only be done by path.
bool LinkInWay(const std::wstring& path) noexcept;

/// CreateFile for a file that may lie below such a folder, with OPEN_EXISTING, OPEN_ALWAYS or CREATE_ALWAYS.
/// Where the rule holds, the opened file itself is judged before it is emptied, so that nothing that is
/// exchanged meanwhile counts; at worst an empty file is left where an exchanged folder led to. An empty
/// handle and the last error tell a failure, ERROR_CANT_RESOLVE_FILENAME that of the rule.
Win32::CFileHandle OpenUserFile(const std::wstring& path, DWORD access, DWORD share,
                                DWORD disposition) noexcept;

/// DeleteFile, by the same rule: what stands there as a link isn't deleted either.
bool DeleteUserFile(const std::wstring& path) noexcept;
} // namespace LS::System::IO
