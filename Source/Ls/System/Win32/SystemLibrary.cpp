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
    // With this flag what the library itself needs is looked for beside it, not beside the program.
    m_Module.Reset(::LoadLibraryExW(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
}

FARPROC CSystemLibrary::GetAddress(const char* name) const noexcept
{
    return m_Module ? ::GetProcAddress(m_Module.Get(), name) : nullptr;
}
} // namespace LS::System::Win32
