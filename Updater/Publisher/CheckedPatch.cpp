#include "Updater/Publisher/CheckedPatch.h"

#include "Ls/System/Util/Log.h"
#include "Updater/Publisher/PublisherCheck.h"

#include <windows.h>

using LS::System::Win32::CFileHandle;

namespace
{
// A virus scanner may have the fresh file open in a way that excludes this one, for a moment.
constexpr int OpenAttempts = 10;
constexpr DWORD OpenPauseMs = 100;

CFileHandle OpenUnchangeable(const std::wstring& path)
{
    for (int attempt = 1;; ++attempt)
    {
        CFileHandle file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                       FILE_ATTRIBUTE_NORMAL, nullptr));
        const DWORD error = ::GetLastError();
        if (file)
            return file;
        if (error != ERROR_SHARING_VIOLATION || attempt == OpenAttempts)
        {
            LS_LOG_FAILURE(L"Could not open the patch for its check, LastError=%u : %s", error, path.c_str());
            return file;
        }
        ::Sleep(OpenPauseMs);
    }
}
} // namespace

CCheckedPatch::CCheckedPatch(std::wstring path, bool isBlueStacks) :
    m_Path(std::move(path)), m_File(OpenUnchangeable(m_Path))
{
    if (m_File)
        m_IsAccepted = isBlueStacks ? IsFileBlueStacksSigned(m_Path) : IsFileLarkspurSigned(m_Path);
}

void CCheckedPatch::Delete()
{
    m_File.Reset();
    // The run goes on to its own end; the next fetch deletes what may be left.
    if (!::DeleteFileW(m_Path.c_str()) && ::GetLastError() != ERROR_FILE_NOT_FOUND)
        LS_LOG_FAILURE(L"Could not delete the refused patch : %s", m_Path.c_str());
}
