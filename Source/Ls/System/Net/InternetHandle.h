#pragma once

#include "Ls/System/Win32/UniqueHandle.h"

#include <windows.h>

#include <wininet.h>

namespace LS::System::Net
{
/// A WinINet session, connection or request. On Windows closing it from another thread also ends a call that
/// blocks on it; the closed value must not be used afterwards, since WinINet gives it to the next handle.
struct InternetHandleTraits
{
    using Type = HINTERNET;
    static Type None() noexcept { return nullptr; }
    static void Free(Type handle) noexcept { ::InternetCloseHandle(handle); }
};
using CInternetHandle = Win32::CUniqueHandle<InternetHandleTraits>;
} // namespace LS::System::Net
