#include "Ls/System/Io/File.h"

#include "Ls/System/Io/Link.h"
#include "Ls/System/ThrowException.h"

namespace LS::System::IO
{
namespace
{
/// Virus scanners and indexers hold a fresh file for a moment; each pause is this much longer.
constexpr DWORD PauseStepMs = 50;
} // namespace

WIN32_FILE_ATTRIBUTE_DATA GetFileAttributeData(const std::wstring& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data))
        ThrowException(CException(L"Could not get File Attribute Data: \"" + path + L"\"", LS_HERE));
    return data;
}

bool CFile::Exists(const std::wstring& path) noexcept
{
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

std::uint64_t CFile::Size(const std::wstring& path)
{
    const WIN32_FILE_ATTRIBUTE_DATA data = GetFileAttributeData(path);
    return (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

bool CFile::DeleteFileW(const std::wstring& path, std::uint32_t attempts)
{
    for (std::uint32_t failed = 1;; ++failed)
    {
        if (DeleteUserFile(path))
            return true;
        if (failed >= attempts)
            break;
        ::Sleep((failed - 1) * PauseStepMs);
    }
    ThrowException(CException(L"Could not Delete \"" + path + L"\"", LS_HERE));
    return false;
}
} // namespace LS::System::IO
