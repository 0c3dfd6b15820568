#pragma once

#include "Ls/System/Object.h"
#include "Ls/System/ReferenceCounted.h"
#include "Ls/System/Win32/UniqueHandle.h"

#include <cstdint>

namespace LS::System::Win32
{
/// Base of the waitable wrappers; owns the kernel handle.
class CSynchronizationObject : public CReferenceCounted, public CObject
{
public:
    CSynchronizationObject(const CSynchronizationObject&) = delete;
    CSynchronizationObject& operator=(const CSynchronizationObject&) = delete;

    HANDLE Handle() const noexcept { return m_Handle.Get(); }

    /// WAIT_OBJECT_0, WAIT_ABANDONED or WAIT_TIMEOUT; milliseconds may be INFINITE. Throws CException
    /// "Wait Failed:" when the wait itself fails. Any thread may wait.
    virtual std::uint32_t Wait(std::uint32_t milliseconds) const;

protected:
    CSynchronizationObject() = default;

    CKernelHandle m_Handle;
};
} // namespace LS::System::Win32
