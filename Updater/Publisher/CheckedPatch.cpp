#include "Updater/Publisher/CheckedPatch.h"

#include "Ls/System/Io/File.h"
#include "Ls/System/Io/FilePatience.h"
#include "Ls/System/Io/Path.h"
#include "Ls/System/Util/Log.h"
#include "Updater/Publisher/PublisherCheck.h"

#include <windows.h>

#include <string_view>

using LS::System::Win32::CFileHandle;

namespace
{
CFileHandle OpenUnchangeable(const std::wstring& path)
{
    for (LS::System::IO::CFilePatience patience;;)
    {
        CFileHandle file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                       FILE_ATTRIBUTE_NORMAL, nullptr));
        const DWORD error = ::GetLastError();
        if (file)
            return file;
        if (!LS::System::IO::IsHeldByOthers(path, error) || !patience.WaitAgain(path, error))
        {
            LS_LOG_FAILURE(L"Could not open the patch for its check, LastError=%u : %s", error, path.c_str());
            return file;
        }
    }
}

/// The path that leads to the open file through no link, junction or mapped drive; the given one where the
/// system can't tell.
std::wstring FinalPath(const CFileHandle& file, const std::wstring& path)
{
    std::wstring result(MAX_PATH, L'\0');
    DWORD length = 0;
    while ((length = ::GetFinalPathNameByHandleW(file.Get(), result.data(), static_cast<DWORD>(result.size()),
                                                 FILE_NAME_NORMALIZED)) > result.size())
        result.resize(length);
    result.resize(length);
    // Programs and the shell take the ordinary form.
    const std::wstring prefix = L"\\\\?\\";
    const std::wstring networkPrefix = L"\\\\?\\UNC\\";
    if (result.starts_with(networkPrefix))
        return L"\\\\" + result.substr(networkPrefix.size());
    return result.starts_with(prefix) ? result.substr(prefix.size()) : path;
}

/// The folders above a file, open so that none can be renamed. A local disk sees to that by itself while a
/// file is open below; a file server may not.
std::vector<CFileHandle> HoldFolders(std::wstring_view path)
{
    std::vector<CFileHandle> folders;
    while (!(path = LS::System::IO::FolderOf(path)).empty() && path.back() != L':')
    {
        CFileHandle folder(::CreateFileW(std::wstring(path).c_str(), FILE_LIST_DIRECTORY,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                         FILE_FLAG_BACKUP_SEMANTICS, nullptr));
        if (folder) // one that this user can't open is not this user's to rename
            folders.push_back(std::move(folder));
    }
    return folders;
}
} // namespace

CCheckedPatch::CCheckedPatch(std::wstring path, bool isBlueStacks) :
    m_Path(std::move(path)), m_File(OpenUnchangeable(m_Path))
{
    if (!m_File)
        return;
    m_Path = FinalPath(m_File, m_Path);
    m_Folders = HoldFolders(m_Path);
    m_IsAccepted = isBlueStacks ? IsFileBlueStacksSigned(m_Path) : IsFileLarkspurSigned(m_Path);
}

void CCheckedPatch::Release() noexcept
{
    m_File.Reset();
    m_Folders.clear();
}

bool CCheckedPatch::Delete()
{
    Release();
    // What a scanner still looks at gets the ending of an unfinished download, which nobody runs.
    const DWORD error = LS::System::IO::CFile::FreeName(m_Path, L".exe.cache");
    if (error != ERROR_SUCCESS)
        LS_LOG_FAILURE(L"Could not delete the refused patch : %s : LastError=%u", m_Path.c_str(), error);
    return error == ERROR_SUCCESS;
}
