#include "Ls/System/Net/DownloadCache.h"

#include "Ls/System/Io/Link.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Win32/UniqueHandle.h"

#include <windows.h>

#include <optional>
#include <utility>

namespace LS::System::Net
{
namespace
{
std::optional<std::uint64_t> FileSize(const std::wstring& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    if (!::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) ||
        (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
        return std::nullopt;
    return (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}
} // namespace

CDownloadCache::CDownloadCache(std::wstring destination, std::string url) :
    m_Destination(std::move(destination)), m_PartPath(m_Destination + L"_cache"),
    m_MetadataPath(m_PartPath + L".txt"), m_Url(std::move(url))
{
}

CDownloadCache::State CDownloadCache::Read() const
{
    State state;
    const std::optional<ResponseMetadata> metadata = ResponseMetadata::Read(m_MetadataPath);
    if (!metadata || !metadata->HaveDate() || metadata->Url != m_Url ||
        metadata->ContentLength == UnknownLength)
        return state;
    state.Length = metadata->ContentLength;
    // While a part is there the metadata speaks of it, not of an older whole file.
    if (const auto part = FileSize(m_PartPath))
    {
        if (*part == 0 || *part >= metadata->ContentLength)
            return state;
        state.PartLength = *part;
    }
    else if (FileSize(m_Destination) == metadata->ContentLength)
        state.Whole = true;
    else
        return state;
    state.LastModified = metadata->LastModified;
    return state;
}

void CDownloadCache::Forget() const noexcept
{
    IO::DeleteUserFile(m_MetadataPath);
}

bool CDownloadCache::FlushPart() const
{
    // The metadata vouches for these bytes, also after a power failure.
    const Win32::CFileHandle part(::CreateFileW(m_PartPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    return part && ::FlushFileBuffers(part.Get());
}

bool CDownloadCache::Commit(const std::string& lastModified, std::uint64_t length) const
{
    if (!FlushPart() || !::MoveFileExW(m_PartPath.c_str(), m_Destination.c_str(), MOVEFILE_REPLACE_EXISTING))
    {
        LS_LOG_FAILURE(L"CDownloadCache::Commit() : failed : Error=%u File=%s", ::GetLastError(),
                       m_Destination.c_str());
        Forget();
        return false;
    }
    // Without it the next download only asks for everything again.
    if (!ResponseMetadata{lastModified, length, m_Url}.Write(m_MetadataPath))
        Forget();
    return true;
}

void CDownloadCache::KeepPart(const std::string& lastModified, std::uint64_t length) const
{
    const ResponseMetadata metadata{lastModified, length, m_Url};
    if (!metadata.HaveDate() || length == UnknownLength || !FlushPart() || !metadata.Write(m_MetadataPath))
    {
        Forget();
        IO::DeleteUserFile(m_PartPath);
    }
}
} // namespace LS::System::Net
