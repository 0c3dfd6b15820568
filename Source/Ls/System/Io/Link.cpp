#include "Ls/System/Io/Link.h"

#include "Ls/System/Win32/UniqueHandle.h"

namespace LS::System::IO
{
bool IsLink(const std::wstring& folder) noexcept
{
    WIN32_FIND_DATAW found = {};
    const Win32::CFindHandle handle(::FindFirstFileW(folder.c_str(), &found));
    return handle && (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
           IsReparseTagNameSurrogate(found.dwReserved0);
}
} // namespace LS::System::IO
