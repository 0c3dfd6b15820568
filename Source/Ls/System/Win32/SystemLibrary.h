#pragma once

#include "Ls/System/Win32/UniqueHandle.h"

#include <string>

namespace LS::System::Win32
{
/// A library of Windows loaded by its full path in the system folder, so that nothing planted elsewhere can
/// take its place. For functions that not every Windows has, and libraries that are rarely needed. Nothing
/// throws: a missing library or function is a null pointer.
class CSystemLibrary
{
public:
    explicit CSystemLibrary(const std::wstring& fileName) noexcept;

    template <class Function>
    Function GetFunction(const char* name) const noexcept
    {
        return reinterpret_cast<Function>(GetAddress(name));
    }

    /// The library stays loaded; null when it isn't there.
    [[nodiscard]] HMODULE Detach() noexcept { return m_Module.Detach(); }

private:
    FARPROC GetAddress(const char* name) const noexcept;

    CModuleHandle m_Module;
};
} // namespace LS::System::Win32
