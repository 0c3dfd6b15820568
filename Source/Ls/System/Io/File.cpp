#include "Ls/System/Io/File.h"

#include "Ls/System/Io/FilePatience.h"
#include "Ls/System/Io/Link.h"
#include "Ls/System/Io/Path.h"
#include "Ls/System/ThrowException.h"
#include "Ls/System/Uuid.h"

namespace LS::System::IO
{
namespace
{
/// Virus scanners and indexers hold a fresh file for a moment; each pause is this much longer.
constexpr DWORD PauseStepMs = 50;

DWORD TryDelete(const std::wstring& path) noexcept
{
    return DeleteUserFile(path) ? ERROR_SUCCESS : ::GetLastError();
}

DWORD MoveAsideAndDelete(const std::wstring& path, const std::wstring& aside) noexcept
{
    if (LinkInWay(path) || !::MoveFileW(path.c_str(), aside.c_str()))
        return TryDelete(path);
    const DWORD error = TryDelete(aside);
    // A running program, a read-only file and a folder move, but can't be deleted. They get their name back;
    // if that fails, the name is free.
    if (error != ERROR_SUCCESS && !::MoveFileW(aside.c_str(), path.c_str()))
        return ERROR_SUCCESS;
    return error;
}
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

DWORD CFile::FreeName(const std::wstring& path, const std::wstring& asideEnding)
{
    const std::wstring aside =
        std::wstring(FolderOf(path)) + L"\\" + UUIDToString(CreateUUID()) + asideEnding;
    CFilePatience patience;
    for (;;)
    {
        const DWORD error = MoveAsideAndDelete(path, aside);
        if (error == ERROR_SUCCESS || error == ERROR_FILE_NOT_FOUND)
            return ERROR_SUCCESS;
        if (!IsHeldByOthers(path, error) || !patience.WaitAgain(path, error))
            return error;
    }
}
} // namespace LS::System::IO
