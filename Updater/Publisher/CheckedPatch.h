#pragma once

#include "Ls/System/Win32/UniqueHandle.h"

#include <string>
#include <vector>

/// A patch file that nobody can change, rename or delete, from before its publisher is checked until it has
/// been started or refused: the bytes that were checked are the bytes that run. It stays open, shared for
/// reading only, with the folders above it, and is named by the path that nothing can lead elsewhere.
class CCheckedPatch
{
public:
    CCheckedPatch() noexcept = default;
    /// Opens the file and checks its publisher; IsAccepted tells the outcome. A file that can't be opened
    /// (missing, or someone may still write to it; one that another program holds is waited for) is not
    /// accepted. Any other patch held before is let go.
    CCheckedPatch(std::wstring path, bool isBlueStacks);

    bool IsAccepted() const noexcept { return m_IsAccepted; }
    /// Without links, junctions and mapped drives once the file is open.
    const std::wstring& Path() const noexcept { return m_Path; }

    /// The patch runs: lets the file go.
    void Release() noexcept;
    /// The patch is refused: lets the file go and deletes it, so that another can be fetched in its place.
    /// False, and logged, when it is still there: another program holds it for too long.
    bool Delete();

private:
    std::wstring m_Path;
    LS::System::Win32::CFileHandle m_File;
    std::vector<LS::System::Win32::CFileHandle> m_Folders;
    bool m_IsAccepted = false;
};
