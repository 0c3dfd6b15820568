#include "Ls/System/Net/ResponseMetadata.h"

#include "Ls/System/Io/Link.h"
#include "Ls/System/Net/HeaderText.h"
#include "Ls/System/Win32/UniqueHandle.h"

#include <windows.h>

namespace LS::System::Net
{
namespace
{
constexpr std::string_view VersionKey = "File-Data-Version: ";
constexpr std::string_view LastModifiedKey = "Last-Modified: ";
constexpr std::string_view ContentLengthKey = "Content-Length: ";
constexpr std::string_view UrlKey = "Url: ";
constexpr std::string_view Version = "1";
constexpr std::string_view LineEnd = "\r\n";
constexpr std::size_t LongestLine = 3072;
/// Four lines of the greatest length.
constexpr DWORD LongestFile = 4 * (LongestLine + 2);

bool TakeKey(std::string_view& line, std::string_view key)
{
    if (!line.starts_with(key))
        return false;
    line.remove_prefix(key.size());
    return true;
}
} // namespace

std::string ResponseMetadata::Text() const
{
    std::string text;
    const auto addLine = [&text](std::string_view key, std::string_view value) {
        text += key;
        text += value;
        text += LineEnd;
    };
    addLine(VersionKey, Version);
    addLine(LastModifiedKey, LastModified);
    addLine(ContentLengthKey, std::to_string(ContentLength));
    addLine(UrlKey, Url);
    return text;
}

std::optional<ResponseMetadata> ResponseMetadata::Parse(std::string_view text)
{
    ResponseMetadata metadata;
    bool versionGood = false;
    while (!text.empty())
    {
        const std::size_t end = text.find(LineEnd);
        if (end == std::string_view::npos)
            break; // the last line has its end too, or it is torn
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end + LineEnd.size());
        if (line.size() > LongestLine)
            continue;
        if (TakeKey(line, VersionKey))
            versionGood = line == Version;
        else if (TakeKey(line, LastModifiedKey))
            metadata.LastModified = IsHeaderText(line) ? line : std::string_view();
        else if (TakeKey(line, ContentLengthKey))
            metadata.ContentLength = ParseDecimal(line).value_or(UnknownLength);
        else if (TakeKey(line, UrlKey))
            metadata.Url = line;
    }
    if (!versionGood || metadata.Url.empty())
        return std::nullopt;
    return metadata;
}

bool ResponseMetadata::Write(const std::wstring& path) const
{
    const Win32::CFileHandle file = IO::OpenUserFile(path, GENERIC_WRITE, FILE_SHARE_READ, CREATE_ALWAYS);
    if (!file)
        return false;
    const std::string text = Text();
    DWORD written = 0;
    return ::WriteFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) &&
           written == text.size();
}

std::optional<ResponseMetadata> ResponseMetadata::Read(const std::wstring& path)
{
    const Win32::CFileHandle file(::CreateFileW(path.c_str(), GENERIC_READ,
                                                FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                                FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
        return std::nullopt;
    std::string text(LongestFile + 1, '\0');
    DWORD read = 0;
    if (!::ReadFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &read, nullptr) ||
        read > LongestFile)
        return std::nullopt;
    return Parse(std::string_view(text).substr(0, read));
}
} // namespace LS::System::Net
