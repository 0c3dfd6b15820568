#pragma once

#include "Ls/System/Win32/Synchronization.h"

#include <string>

namespace LS::System::Win32
{
/// A kernel event with default security. Failures are thrown as CException with the system's text. Any
/// thread may set, reset and wait.
class CEvent : public CSynchronizationObject
{
public:
    /// Unnamed.
    CEvent(bool manualReset, bool initiallySignalled);
    /// Named; opened when it exists already (its kind and state are then the maker's), with the right to set
    /// it when the system gives no more.
    CEvent(const std::wstring& name, bool manualReset, bool initiallySignalled);

    void Set() const;
    void Reset() const;
};
} // namespace LS::System::Win32
