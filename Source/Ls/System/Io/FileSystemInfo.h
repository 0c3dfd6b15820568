#pragma once

#include "Ls/System/Object.h"

#include <cstdint>
#include <string>

namespace LS::System::IO
{
/// A path and the attributes of what lies there. Nothing is cached.
class CFileSystemInfo : public CObject
{
public:
    explicit CFileSystemInfo(std::wstring path) : m_Path(std::move(path)) {}

    const std::wstring& Path() const { return m_Path; }
    /// FILE_ATTRIBUTE_* bits. Throws CException "Error getting file Attributes:".
    std::uint32_t GetAttributes() const;
    /// Throws CException "Invalid attribute set" for bits that SetFileAttributes can't change, or "Could
    /// not set File Attributes:".
    void SetAttributes(std::uint32_t attributes) const;

private:
    std::wstring m_Path;
};
} // namespace LS::System::IO
