#include "Ls/System/Io/FilePatience.h"

#include "Ls/System/Util/Log.h"

namespace LS::System::IO
{
bool CFilePatience::WaitAgain(const std::wstring& path, DWORD error) noexcept
{
    if (m_LeftMs <= m_StepMs)
        return false;
    if (!m_IsTold)
        LS_LOG_INFO(L"CFilePatience::WaitAgain() : Waiting for another program : LastError=%u File=%s", error,
                    path.c_str());
    m_IsTold = true;
    m_LeftMs -= m_StepMs;
    ::Sleep(m_StepMs);
    return true;
}

bool IsHeldByOthers(const std::wstring& path, DWORD error) noexcept
{
    switch (error)
    {
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_USER_MAPPED_FILE:
    case ERROR_DELETE_PENDING:
        return true;
    case ERROR_ACCESS_DENIED:
        // A file whose deletion is pending doesn't even tell its attributes.
        return ::GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES &&
               (::GetLastError() == ERROR_ACCESS_DENIED || ::GetLastError() == ERROR_DELETE_PENDING);
    default:
        return false;
    }
}
} // namespace LS::System::IO
