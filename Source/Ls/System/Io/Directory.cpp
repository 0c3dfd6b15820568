#include "Ls/System/Io/Directory.h"

#include "Ls/System/Io/File.h"
#include "Ls/System/Io/Link.h"
#include "Ls/System/Io/Path.h"
#include "Ls/System/Io/ValidatePath.h"
#include "Ls/System/String/SystemErrorText.h"
#include "Ls/System/ThrowException.h"
#include "Ls/System/Win32/UniqueHandle.h"

#include <algorithm>

namespace LS::System::IO
{
namespace
{
constexpr std::uint32_t DeleteAttempts = 5;

bool IsSeparator(wchar_t character) noexcept
{
    return character == L'\\' || character == L'/';
}

/// The folder that holds path; empty for a root and for a bare name. Always shorter than path.
std::wstring ParentOf(std::wstring_view path)
{
    while (!path.empty() && IsSeparator(path.back()))
        path.remove_suffix(1);
    std::wstring_view parent = FolderOf(path);
    if (!parent.empty() && std::all_of(parent.begin(), parent.end(), IsSeparator))
        return {}; // "\\server"
    // "C:\a" lies in "C:\"; "C:" alone would be the current folder of that drive.
    if (parent.size() < path.size() && (parent.empty() || parent.back() == L':') &&
        IsSeparator(path[parent.size()]))
    {
        parent = path.substr(0, parent.size() + 1);
    }
    return std::wstring(parent);
}

DWORD TryCreate(const std::wstring& path) noexcept
{
    return ::CreateDirectoryW(path.c_str(), nullptr) ? ERROR_SUCCESS : ::GetLastError();
}

std::wstring CouldNotDelete(const std::wstring& path)
{
    const DWORD error = ::GetLastError();
    return WithLastError(error, L"Could not Delete \"" + path + L"\"");
}

void ClearReadOnly(const std::wstring& path, DWORD attributes) noexcept
{
    // Not checked: what stays read-only fails to be deleted, and that is reported.
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY))
    {
        const DWORD cleared = attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY);
        ::SetFileAttributesW(path.c_str(), cleared != 0 ? cleared : FILE_ATTRIBUTE_NORMAL);
    }
}
} // namespace

CDirectoryInfo CDirectory::CreateDirectory(const std::wstring& path)
{
    ValidatePath(path);
    if (LinkInWay(path))
    {
        ThrowException(CException(L"CreateDirectory Failed.  A link stands in the way :" + path, LS_HERE));
        return CDirectoryInfo(path);
    }
    DWORD error = TryCreate(path);
    if (error == ERROR_PATH_NOT_FOUND)
    {
        // Ends at the latest at the root, whose parent is empty.
        const std::wstring parent = ParentOf(path);
        if (!parent.empty())
        {
            CreateDirectory(parent);
            error = TryCreate(path);
        }
    }

    if (error != ERROR_SUCCESS && error != ERROR_ALREADY_EXISTS)
    {
        std::wstring message;
        if (error == ERROR_ACCESS_DENIED)
            message = L"CreateDirectory Failed.  Access Denied :" + path;
        else if (error == ERROR_INVALID_PARAMETER)
            message = L"CreateDirectory Failed.  Invalid Parameter :" + path;
        else
            message = SystemErrorTextWide(error);
        ThrowException(CException(WithLastError(error, message), LS_HERE));
    }
    return CDirectoryInfo(path);
}

void CDirectory::Delete(const std::wstring& path, bool recursive, bool clearReadOnly)
{
    // However a developer's "continue" was meant: an empty path and a separator is the root of the drive.
    if (!ValidatePath(path))
        return;
    const std::wstring folder = IsSeparator(path.back()) ? path : path + L'\\';
    WIN32_FIND_DATAW entry;
    Win32::CFindHandle find(::FindFirstFileW((folder + L'*').c_str(), &entry));
    if (!find && ::GetLastError() != ERROR_FILE_NOT_FOUND)
    {
        ThrowException(CException(CouldNotDelete(path), LS_HERE));
        return;
    }
    for (bool more = static_cast<bool>(find); more; more = ::FindNextFileW(find.Get(), &entry))
    {
        if (entry.cFileName[0] == L'.')
            continue;
        const std::wstring name = folder + entry.cFileName;
        if (!(entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
        {
            if (clearReadOnly)
                ClearReadOnly(name, entry.dwFileAttributes);
            CFile::DeleteFileW(name, DeleteAttempts);
        }
        else if (recursive)
        {
            // A link to a folder elsewhere goes, what it leads to stays.
            if ((entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) &&
                IsReparseTagNameSurrogate(entry.dwReserved0))
            {
                if (clearReadOnly)
                    ClearReadOnly(name, entry.dwFileAttributes);
                if (!::RemoveDirectoryW(name.c_str()))
                    ThrowException(CException(CouldNotDelete(name), LS_HERE));
            }
            else
            {
                Delete(name, recursive, clearReadOnly);
            }
        }
    }
    if (find && ::GetLastError() != ERROR_NO_MORE_FILES)
    {
        ThrowException(CException(CouldNotDelete(path), LS_HERE));
        return;
    }
    find.Reset();

    if (clearReadOnly)
        ClearReadOnly(path, ::GetFileAttributesW(path.c_str()));
    // What was left on purpose keeps the folder; every other reason is a failure like that of a file.
    if (!::RemoveDirectoryW(path.c_str()) && ::GetLastError() != ERROR_DIR_NOT_EMPTY)
        ThrowException(CException(CouldNotDelete(path), LS_HERE));
}

CDirectoryInfo CDirectory::GetParent(const std::wstring& path)
{
    const std::wstring parent = ParentOf(path);
    if (!Exists(parent))
        ThrowException(CException(L"Directory does not exist :" + path, LS_HERE));
    return CDirectoryInfo(parent);
}

std::wstring CDirectory::GetCurrentDirectoryW()
{
    // Another thread may change it between the calls, hence the loop.
    std::wstring path;
    DWORD size = MAX_PATH;
    for (;;)
    {
        path.resize(size);
        const DWORD length = ::GetCurrentDirectoryW(size, path.data());
        if (length == 0)
        {
            ThrowException(CException(L"Could not get current directory.", LS_HERE));
            return {};
        }
        if (length < size)
        {
            path.resize(length);
            return path;
        }
        size = length + 1;
    }
}

bool CDirectory::Exists(const std::wstring& path) noexcept
{
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}
} // namespace LS::System::IO
