#include "Ls/System/Win32/Mutex.h"

#include "Ls/System/String/SystemErrorText.h"
#include "Ls/System/ThrowException.h"

namespace LS::System::Win32
{
CMutex::CMutex(const std::string& name, bool initiallyOwned)
{
    m_Handle.Reset(::CreateMutexA(nullptr, initiallyOwned, name.empty() ? nullptr : name.c_str()));
    if (!m_Handle)
        ThrowException(CException(WithSystemErrorText(L"Failed to create mutex:"), LS_HERE));
}

CMutex::CMutex(const std::wstring& name, bool initiallyOwned)
{
    m_Handle.Reset(::CreateMutexW(nullptr, initiallyOwned, name.empty() ? nullptr : name.c_str()));
    if (!m_Handle)
        ThrowException(CException(WithSystemErrorText(L"Failed to create mutex:"), LS_HERE));
}

CRefPtr<CMutex> CMutex::CreateNew(const std::wstring& name)
{
    ::SetLastError(ERROR_SUCCESS);
    CRefPtr<CMutex> mutex(new CMutex(::CreateMutexW(nullptr, TRUE, name.c_str())));
    const DWORD error = ::GetLastError();
    if (mutex->Handle() && error != ERROR_ALREADY_EXISTS)
        return mutex;
    if (!mutex->Handle() && error != ERROR_ACCESS_DENIED)
        ThrowException(CException(WithSystemErrorText(L"Failed to create mutex:"), LS_HERE));
    return {};
}

CMutex CMutex::Shared(const std::string& name)
{
    HANDLE handle = ::CreateMutexA(nullptr, FALSE, name.c_str());
    // Some systems give the second right with the first, others don't need it.
    for (const DWORD rights : {SYNCHRONIZE | MUTEX_MODIFY_STATE, SYNCHRONIZE})
        if (!handle && ::GetLastError() == ERROR_ACCESS_DENIED)
            handle = ::OpenMutexA(rights, FALSE, name.c_str());
    if (!handle)
        ThrowException(CException(WithSystemErrorText(L"Failed to create mutex:"), LS_HERE));
    return CMutex(handle);
}

std::uint32_t CMutex::Wait(std::uint32_t milliseconds) const
{
    const DWORD result = ::WaitForSingleObject(m_Handle.Get(), milliseconds);
    if (result == WAIT_FAILED)
        ThrowException(CException(WithSystemErrorText(L"Wait Failed:"), LS_HERE));
    return result;
}

void CMutex::ReleaseMutex() const
{
    if (!::ReleaseMutex(m_Handle.Get()))
        ThrowException(CException(WithSystemErrorText(L"Failed to release mutex:"), LS_HERE));
}
} // namespace LS::System::Win32
