#pragma once

#include "Ls/System/Net/ResponseMetadata.h"

#include <cstdint>
#include <string>

namespace LS::System::Net
{
/// The files of a cached download. The body grows in "<destination>_cache" and takes the destination's name
/// once it is whole; "<destination>_cache.txt" holds the metadata of whichever is there. With it the next
/// request asks for the rest of what broke off (Range with If-Range) or only for something newer
/// (If-Modified-Since).
///
/// The metadata is deleted before a body is replaced and written after it has ended, so a crash leaves too
/// little knowledge, never a wrong one.
class CDownloadCache
{
public:
    /// url is the one that the download is asked for with, before any redirect.
    CDownloadCache(std::wstring destination, std::string url);

    /// What is known of an earlier download from the same URL.
    struct State
    {
        /// Empty when nothing usable is there.
        std::string LastModified;
        /// True when the destination is whole, false when PartPath holds the first PartLength bytes.
        bool Whole = false;
        std::uint64_t PartLength = 0;
        /// Of the whole entity.
        std::uint64_t Length = UnknownLength;
    };
    State Read() const;

    const std::wstring& PartPath() const { return m_PartPath; }
    /// Before a body is replaced, and when the server contradicts what is known.
    void Forget() const noexcept;
    /// The part is whole: it becomes the destination. False when the system refuses.
    bool Commit(const std::string& lastModified, std::uint64_t length) const;
    /// The body broke off: keeps what is there for a later request when its rest can be asked for, deletes it
    /// otherwise.
    void KeepPart(const std::string& lastModified, std::uint64_t length) const;

private:
    bool FlushPart() const;

    std::wstring m_Destination;
    std::wstring m_PartPath;
    std::wstring m_MetadataPath;
    std::string m_Url;
};
} // namespace LS::System::Net
