#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#undef DeleteFile

namespace LS::System::IO
{
/// Attributes, size and times of a file. Throws CException "Could not get File Attribute Data: \"".
WIN32_FILE_ATTRIBUTE_DATA GetFileAttributeData(const std::wstring& path);

/// Operations on files.
class CFile
{
public:
    /// True for an existing file (not a folder).
    static bool Exists(const std::wstring& path) noexcept;

    /// Size in bytes. Throws like GetFileAttributeData.
    static std::uint64_t Size(const std::wstring& path);

    /// Tries up to attempts times (at least once), with pauses of 0, 50, 100, ... ms between, and returns
    /// true. Throws CException "Could not Delete \"" when the last try fails.
    static bool DeleteFileW(const std::wstring& path, std::uint32_t attempts);
};
} // namespace LS::System::IO
