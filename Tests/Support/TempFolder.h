#pragma once

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <iterator>
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

/// The whole file; empty when it can't be read.
inline std::string ReadBytes(const std::wstring& path)
{
    std::ifstream file(std::filesystem::path(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
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
