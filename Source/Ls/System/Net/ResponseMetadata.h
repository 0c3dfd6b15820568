#pragma once

#include "Ls/System/Net/HttpRange.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace LS::System::Net
{
/// What is kept in a small text file beside a cached download, so that the next request can ask whether it
/// is still current:
///
///     File-Data-Version: 1
///     Last-Modified: Sat, 14 Nov 2026 05:56:03 GMT
///     Content-Length: 1048576
///     Url: http://host/path
struct ResponseMetadata
{
    /// The server's text, unchanged. Not empty: have-date, which is what makes a conditional request
    /// possible.
    std::string LastModified;
    /// Of the whole entity; UnknownLength when it isn't known.
    std::uint64_t ContentLength = UnknownLength;
    std::string Url;

    bool HaveDate() const { return !LastModified.empty(); }

    /// The four lines, each ending in CR LF.
    std::string Text() const;
    /// Anyone may have written the file: a line of more than 3072 characters, a date that couldn't stand in a
    /// header and what isn't understood are passed over. Nothing when the version isn't 1 or the URL, which
    /// comes last, is missing (a torn file).
    static std::optional<ResponseMetadata> Parse(std::string_view text);

    /// Replaces the file; false when it can't be written.
    bool Write(const std::wstring& path) const;
    /// Nothing when the file is missing, too long to be one of these, or not good.
    static std::optional<ResponseMetadata> Read(const std::wstring& path);
};
} // namespace LS::System::Net
