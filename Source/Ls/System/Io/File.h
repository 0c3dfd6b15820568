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

    /// Deletes a file so that another can take its name at once. A program that has it open and lets others
    /// delete would keep the name until it is done, so the file goes under a new name first, in the same
    /// folder and with this ending; a file that is held in another way is waited for (CFilePatience).
    /// ERROR_SUCCESS, also when there is none; else the system's error, and the file is where it was. Throws
    /// CException when there is no new name to be had.
    static DWORD FreeName(const std::wstring& path, const std::wstring& asideEnding);
};
} // namespace LS::System::IO
