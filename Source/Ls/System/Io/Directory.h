#pragma once

#include "Ls/System/Io/DirectoryInfo.h"

#include <windows.h>

#include <string>

// windows.h turns these into macros; the members carry the plain names.
#undef CreateDirectory
#undef GetCurrentDirectory

namespace LS::System::IO
{
/// Operations on folders; every failure is thrown as CException.
class CDirectory
{
public:
    /// Creates the folder and any missing parents; an existing one is fine.
    static CDirectoryInfo CreateDirectory(const std::wstring& path);

    /// Deletes the folder and what is in it, except entries whose name begins with a dot (so a folder that
    /// holds one stays). Sub-folders only when recursive. A failure leaves what was removed so far removed.
    static void Delete(const std::wstring& path, bool recursive, bool clearReadOnly);

    /// Throws "Directory does not exist :" when path has no parent folder or that folder isn't there.
    static CDirectoryInfo GetParent(const std::wstring& path);

    static std::wstring GetCurrentDirectoryW();

    static bool Exists(const std::wstring& path) noexcept;
};
} // namespace LS::System::IO
