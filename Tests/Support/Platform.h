#pragma once

#include "Ls/System/Win32/UniqueHandle.h"

#include <windows.h>

#include <string>

namespace Tests
{
/// What is true of one of the two only is told apart by this.
inline bool IsWine()
{
    return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

/// Whether the token has an administrator's rights; without one, whether this process has them.
inline bool IsElevated(HANDLE token = nullptr)
{
    LS::System::Win32::CKernelHandle own;
    TOKEN_ELEVATION elevation = {};
    DWORD size = 0;
    ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, own.Receive());
    ::GetTokenInformation(token ? token : own.Get(), TokenElevation, &elevation, sizeof(elevation), &size);
    return elevation.TokenIsElevated != 0;
}

/// Decorates a test case, or a suite of them, that is left out where it can't be shown. The kit's report
/// gives the suite's name as the reason.
struct Needs
{
    const char* What;
    bool Has;

    template <class Decorated>
    void fill(Decorated& decorated) const
    {
        decorated.m_test_suite = What;
        decorated.m_skip = !Has;
    }
};

inline Needs NeedsAdministrator()
{
    return {"needs an administrator", IsElevated()};
}
inline Needs NeedsWindows()
{
    return {"needs a real Windows", !IsWine()};
}

/// An event that processes with fewer rights may set, too.
inline LS::System::Win32::CKernelHandle OpenToAll(const std::wstring& name, bool manualReset)
{
    SECURITY_DESCRIPTOR all = {};
    ::InitializeSecurityDescriptor(&all, SECURITY_DESCRIPTOR_REVISION);
    ::SetSecurityDescriptorDacl(&all, TRUE, nullptr, FALSE);
    SECURITY_ATTRIBUTES attributes = {sizeof(attributes), &all, FALSE};
    return LS::System::Win32::CKernelHandle(
        ::CreateEventW(&attributes, manualReset, FALSE, name.empty() ? nullptr : name.c_str()));
}
} // namespace Tests
