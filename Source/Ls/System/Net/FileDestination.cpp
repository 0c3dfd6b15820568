#include "Ls/System/Net/FileDestination.h"

#include "Ls/System/Io/Link.h"

#include <windows.h>

namespace LS::System::Net
{
namespace
{
constexpr DWORD DiskQuotaExceeded = 1295; // not every SDK names it

HttpError ErrorOf(DWORD error)
{
    switch (error)
    {
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
    case DiskQuotaExceeded:
        return HttpError::DiskFull;
    default:
        return HttpError::Write;
    }
}
} // namespace

HttpError CFileDestination::Open(const std::wstring& path, std::uint64_t offset)
{
    m_File =
        IO::OpenUserFile(path, GENERIC_WRITE, FILE_SHARE_READ, offset == 0 ? CREATE_ALWAYS : OPEN_EXISTING);
    if (!m_File)
        return ErrorOf(::GetLastError());
    if (offset == 0)
        return HttpError::None;
    LARGE_INTEGER position = {};
    position.QuadPart = static_cast<LONGLONG>(offset);
    if (!::SetFilePointerEx(m_File.Get(), position, nullptr, FILE_BEGIN) || !::SetEndOfFile(m_File.Get()))
        return ErrorOf(::GetLastError());
    return HttpError::None;
}

HttpError CFileDestination::Write(const void* data, std::size_t size)
{
    // A disk with room for less takes that much and calls it a success: only the write of the rest tells what
    // is wrong, or finds that there is room again.
    for (const auto* rest = static_cast<const char*>(data); size > 0;)
    {
        DWORD written = 0;
        if (!::WriteFile(m_File.Get(), rest, static_cast<DWORD>(size), &written, nullptr))
            return ErrorOf(::GetLastError());
        if (written == 0)
            return HttpError::Write;
        rest += written;
        size -= written;
    }
    return HttpError::None;
}
} // namespace LS::System::Net
