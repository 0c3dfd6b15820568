#include "Updater/Analytics/QueueFile.h"

#include "Ls/System/Io/Link.h"

#include <windows.h>

namespace
{
constexpr DWORD PauseBetweenTriesMs = 20;
} // namespace

CQueueFile::CQueueFile(const std::wstring& path, std::uint32_t patienceMs) noexcept
{
    for (const DWORD start = ::GetTickCount();; ::Sleep(PauseBetweenTriesMs))
    {
        m_File = LS::System::IO::OpenUserFile(path, GENERIC_READ | GENERIC_WRITE,
                                              FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_ALWAYS);
        if (m_File || ::GetLastError() != ERROR_SHARING_VIOLATION || ::GetTickCount() - start >= patienceMs)
            return;
    }
}

bool CQueueFile::Seek(std::uint64_t position) noexcept
{
    LARGE_INTEGER distance;
    distance.QuadPart = static_cast<LONGLONG>(position);
    return ::SetFilePointerEx(m_File.Get(), distance, nullptr, FILE_BEGIN) != FALSE;
}

std::optional<std::uint64_t> CQueueFile::Size()
{
    LARGE_INTEGER size;
    if (!::GetFileSizeEx(m_File.Get(), &size))
        return std::nullopt;
    return static_cast<std::uint64_t>(size.QuadPart);
}

std::optional<std::string> CQueueFile::ReadAt(std::uint64_t position, std::size_t size)
{
    std::string bytes(size, '\0');
    DWORD read = 0;
    if (!Seek(position) || !::ReadFile(m_File.Get(), bytes.data(), static_cast<DWORD>(size), &read, nullptr))
        return std::nullopt;
    bytes.resize(read);
    return bytes;
}

bool CQueueFile::WriteAt(std::uint64_t position, std::string_view bytes)
{
    DWORD written = 0;
    return Seek(position) &&
           ::WriteFile(m_File.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
           written == bytes.size();
}

bool CQueueFile::SetSize(std::uint64_t size)
{
    return Seek(size) && ::SetEndOfFile(m_File.Get());
}
