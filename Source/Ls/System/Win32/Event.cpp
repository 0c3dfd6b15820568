#include "Ls/System/Win32/Event.h"

#include "Ls/System/String/SystemErrorText.h"
#include "Ls/System/ThrowException.h"

namespace LS::System::Win32
{
CEvent::CEvent(bool manualReset, bool initiallySignalled)
{
    m_Handle.Reset(::CreateEventA(nullptr, manualReset, initiallySignalled, nullptr));
    if (!m_Handle)
        ThrowException(CException(WithSystemErrorText(L"Failed to create event:"), LS_HERE));
}

CEvent::CEvent(const std::wstring& name, bool manualReset, bool initiallySignalled)
{
    m_Handle.Reset(
        ::CreateEventW(nullptr, manualReset, initiallySignalled, name.empty() ? nullptr : name.c_str()));
    // All rights are asked for of an event that exists. One that a process with more rights has made, or that
    // its maker guards, may be open for less.
    if (!m_Handle && ::GetLastError() == ERROR_ACCESS_DENIED)
        m_Handle.Reset(::OpenEventW(EVENT_MODIFY_STATE, FALSE, name.c_str()));
    if (!m_Handle)
        ThrowException(CException(WithSystemErrorText(L"Failed to create event:"), LS_HERE));
}

void CEvent::Set() const
{
    if (!::SetEvent(m_Handle.Get()))
        ThrowException(CException(WithSystemErrorText(L"Failed to Set event:"), LS_HERE));
}

void CEvent::Reset() const
{
    if (!::ResetEvent(m_Handle.Get()))
        ThrowException(CException(WithSystemErrorText(L"Failed to Reset event:"), LS_HERE));
}
} // namespace LS::System::Win32
