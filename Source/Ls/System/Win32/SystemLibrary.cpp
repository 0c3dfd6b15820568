#include "Ls/System/Win32/SystemLibrary.h"

#include <algorithm>

namespace LS::System::Win32
{
CSystemLibrary::CSystemLibrary(const std::wstring& fileName) noexcept
{
    wchar_t path[MAX_PATH];
    const UINT length = ::GetSystemDirectoryW(path, MAX_PATH);
    // Room for the backslash, the name and the terminator.
    if (length == 0 || length >= MAX_PATH || fileName.size() + 2 > MAX_PATH - length)
        return;
    path[length] = L'\\';
    *std::copy(fileName.begin(), fileName.end(), path + length + 1) = L'\0';
    // What the library itself needs is looked for in the system folder alone or, by a Windows 7 that doesn't
    // know this flag, first beside the library.
    constexpr DWORD searchSystem32 = 0x800; // LOAD_LIBRARY_SEARCH_SYSTEM32
    m_Module.Reset(::LoadLibraryExW(path, nullptr, searchSystem32));
    if (!m_Module && ::GetLastError() == ERROR_INVALID_PARAMETER)
        m_Module.Reset(::LoadLibraryExW(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
}

FARPROC CSystemLibrary::GetAddress(const char* name) const noexcept
{
    return m_Module ? ::GetProcAddress(m_Module.Get(), name) : nullptr;
}
} // namespace LS::System::Win32
