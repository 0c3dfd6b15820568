#pragma once

#include "Ls/System/Win32/UniqueHandle.h"

#include <windows.h>

#include <sddl.h>

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

/// What everybody may do with an object, as the system's text form has it: "0x100002" is to wait for an event
/// and to set it; empty: nobody but its maker may do anything.
class CGuarded
{
public:
    explicit CGuarded(const std::wstring& rights)
    {
        const std::wstring text = rights.empty() ? L"D:P" : L"D:P(A;;" + rights + L";;;WD)";
        ::ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1,
                                                               &m_Attributes.lpSecurityDescriptor, nullptr);
    }
    CGuarded(const CGuarded&) = delete;
    ~CGuarded() { ::LocalFree(m_Attributes.lpSecurityDescriptor); }

    SECURITY_ATTRIBUTES* Get() { return &m_Attributes; }

private:
    SECURITY_ATTRIBUTES m_Attributes = {sizeof(m_Attributes), nullptr, FALSE};
};

/// An event that processes with fewer rights may open as they like.
inline LS::System::Win32::CKernelHandle OpenToAll(const std::wstring& name, bool manualReset)
{
    return LS::System::Win32::CKernelHandle(::CreateEventW(CGuarded(L"0x1F0003").Get(), manualReset, FALSE,
                                                           name.empty() ? nullptr : name.c_str()));
}
} // namespace Tests
