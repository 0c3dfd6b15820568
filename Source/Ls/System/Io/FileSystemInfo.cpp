#include "Ls/System/Io/FileSystemInfo.h"

#include "Ls/System/ThrowException.h"

#include <windows.h>

namespace LS::System::IO
{
namespace
{
// What SetFileAttributes can change, and the folder bit, which a folder's own attributes carry when they are
// read, altered and set again.
constexpr std::uint32_t AcceptedAttributes =
    FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE |
    FILE_ATTRIBUTE_NORMAL | FILE_ATTRIBUTE_TEMPORARY | FILE_ATTRIBUTE_OFFLINE |
    FILE_ATTRIBUTE_NOT_CONTENT_INDEXED | FILE_ATTRIBUTE_DIRECTORY;
} // namespace

std::uint32_t CFileSystemInfo::GetAttributes() const
{
    const DWORD attributes = ::GetFileAttributesW(m_Path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        ThrowException(CException(L"Error getting file Attributes:" + m_Path, LS_HERE));
    return attributes;
}

void CFileSystemInfo::SetAttributes(std::uint32_t attributes) const
{
    if ((attributes & ~AcceptedAttributes) != 0)
    {
        ThrowException(CException(L"Invalid attribute set", LS_HERE));
        return;
    }
    if (!::SetFileAttributesW(m_Path.c_str(), attributes))
        ThrowException(CException(L"Could not set File Attributes:" + m_Path, LS_HERE));
}
} // namespace LS::System::IO
