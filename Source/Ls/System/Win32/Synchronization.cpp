#include "Ls/System/Win32/Synchronization.h"

#include "Ls/System/String/SystemErrorText.h"
#include "Ls/System/ThrowException.h"

namespace LS::System::Win32
{
std::uint32_t CSynchronizationObject::Wait(std::uint32_t milliseconds) const
{
    const DWORD result = ::WaitForSingleObject(m_Handle.Get(), milliseconds);
    if (result == WAIT_FAILED)
        ThrowException(CException(WithSystemErrorText(L"Wait Failed:"), LS_HERE));
    return result;
}
} // namespace LS::System::Win32
