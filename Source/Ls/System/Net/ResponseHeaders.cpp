#include "Ls/System/Net/ResponseHeaders.h"

#include "Ls/System/Net/HeaderText.h"

#include <algorithm>
#include <utility>

namespace LS::System::Net
{
namespace
{
/// Three digits; 0 for anything else.
std::uint32_t ParseStatus(std::string_view text)
{
    text = text.substr(0, text.find(' '));
    const std::optional<std::uint64_t> status = ParseDecimal(text);
    return text.size() == 3 && status && *status >= 100 ? static_cast<std::uint32_t>(*status) : 0;
}

/// "HTTP/1.1 200 OK"
std::uint32_t ParseStatusLine(std::string_view line)
{
    constexpr std::string_view protocol = "HTTP/";
    const std::size_t blank = line.find(' ');
    if (blank == std::string_view::npos || !EqualsNoCase(line.substr(0, protocol.size()), protocol))
        return 0;
    return ParseStatus(TrimBlanks(line.substr(blank)));
}
} // namespace

std::optional<ContentRange> ContentRange::Parse(std::string_view value)
{
    constexpr std::string_view unit = "bytes ";
    if (!EqualsNoCase(value.substr(0, unit.size()), unit))
        return std::nullopt;
    value = TrimBlanks(value.substr(unit.size()));
    const std::size_t slash = value.find('/');
    const std::size_t dash = value.find('-');
    if (slash == std::string_view::npos || dash == std::string_view::npos || dash > slash)
        return std::nullopt;

    const auto first = ParseDecimal(value.substr(0, dash));
    const auto last = ParseDecimal(value.substr(dash + 1, slash - dash - 1));
    const std::string_view totalText = value.substr(slash + 1);
    const auto total = ParseDecimal(totalText);
    if (!first || !last || *first > *last)
        return std::nullopt;
    if (total ? *last >= *total : totalText != "*")
        return std::nullopt;
    return ContentRange{*first, *last, total};
}

ResponseHeaders ResponseHeaders::Parse(std::string_view block, CCookieList* cookies)
{
    ResponseHeaders headers;
    bool firstLine = true;
    bool lengthSeen = false;
    bool chunked = false;
    while (!block.empty())
    {
        const std::size_t end = std::min(block.find("\r\n"), block.size());
        const std::string_view line = block.substr(0, end);
        block.remove_prefix(std::min(end + 2, block.size()));
        if (std::exchange(firstLine, false))
        {
            headers.StatusCode = ParseStatusLine(line);
            if (headers.StatusCode != 0)
                continue;
        }
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos)
            continue;
        const std::string_view name = TrimBlanks(line.substr(0, colon));
        const std::string_view value = TrimBlanks(line.substr(colon + 1));

        // Some gateways repeat the status as a header; it counts only where the status line is missing.
        if (EqualsNoCase(name, "Status-Code") && headers.StatusCode == 0)
            headers.StatusCode = ParseStatus(value);
        else if (EqualsNoCase(name, "Content-Length"))
        {
            const std::uint64_t length = ParseDecimal(value).value_or(UnknownLength);
            headers.ContentLength = lengthSeen && length != headers.ContentLength ? UnknownLength : length;
            lengthSeen = true;
        }
        else if (EqualsNoCase(name, "Transfer-Encoding"))
            chunked = chunked || !EqualsNoCase(value, "identity");
        else if (EqualsNoCase(name, "Content-Range"))
            headers.Range = ContentRange::Parse(value);
        else if (EqualsNoCase(name, "Last-Modified"))
            headers.LastModified = IsHeaderText(value) ? value : std::string_view();
        else if (EqualsNoCase(name, "Location"))
            headers.Location = value;
        else if (cookies && EqualsNoCase(name, "Cookie"))
            cookies->Store(value);
        else if (cookies && EqualsNoCase(name, "Set-Cookie"))
            cookies->StoreSetCookie(value);
    }
    if (chunked)
        headers.ContentLength = UnknownLength;
    return headers;
}
} // namespace LS::System::Net
