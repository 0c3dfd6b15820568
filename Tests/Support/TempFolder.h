#pragma once

#include "Ls/System/Win32/UniqueHandle.h"
#include "Tests/Support/WaitFor.h"

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Tests
{
/// A new empty folder; removed with all that is in it at the end, whatever its attributes.
class CTempFolder
{
public:
    explicit CTempFolder(const std::wstring& name = L"ls")
    {
        static LONG count = 0;
        m_Path =
            std::filesystem::temp_directory_path() / (name + std::to_wstring(::GetCurrentProcessId()) + L"-" +
                                                      std::to_wstring(::InterlockedIncrement(&count)));
        std::filesystem::remove_all(m_Path);
        std::filesystem::create_directories(m_Path);
    }
    CTempFolder(const CTempFolder&) = delete;
    ~CTempFolder()
    {
        std::error_code ignored;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_Path, ignored))
            ::SetFileAttributesW(entry.path().c_str(), FILE_ATTRIBUTE_NORMAL);
        std::filesystem::remove_all(m_Path, ignored);
    }

    /// With backslashes, without one at the end.
    std::wstring Path() const { return m_Path.wstring(); }
    std::wstring Path(const std::wstring& name) const { return (m_Path / name).wstring(); }

private:
    std::filesystem::path m_Path;
};

/// The whole file; empty when there is none or it can't be read. Waits while somebody excludes the reader:
/// whoever moves a file into place still has it open, with the right to delete, when it is already to be
/// seen.
inline std::string ReadBytes(const std::wstring& path)
{
    LS::System::Win32::CFileHandle file;
    WaitFor([&] {
        file.Reset(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                 OPEN_EXISTING, 0, nullptr));
        return file || ::GetLastError() != ERROR_SHARING_VIOLATION;
    });
    std::string bytes;
    char block[65536];
    for (DWORD size = 0; file && ::ReadFile(file.Get(), block, sizeof(block), &size, nullptr) && size != 0;)
        bytes.append(block, size);
    return bytes;
}

/// Makes or replaces the file.
inline void WriteBytes(const std::wstring& path, std::string_view bytes)
{
    std::ofstream file(std::filesystem::path(path), std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush())
        throw std::runtime_error("can't write a test file");
}
} // namespace Tests
