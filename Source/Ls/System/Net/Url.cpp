#include "Ls/System/Net/Url.h"

#include "Ls/System/Net/HeaderText.h"

#include <algorithm>
#include <charconv>

namespace LS::System::Net
{
namespace
{
constexpr std::uint16_t HttpPort = 80;
constexpr std::uint16_t HttpsPort = 443;
/// Longest name that the domain name system knows.
constexpr std::size_t LongestHost = 255;

constexpr char ToLower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

constexpr bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

constexpr bool IsHexDigit(char c)
{
    return IsDigit(c) || (ToLower(c) >= 'a' && ToLower(c) <= 'f');
}

constexpr bool IsHostCharacter(char c)
{
    return IsDigit(c) || (ToLower(c) >= 'a' && ToLower(c) <= 'z') || c == '-' || c == '.' || c == '_';
}

constexpr bool IsAddressCharacter(char c)
{
    return IsHexDigit(c) || c == ':' || c == '.';
}

/// Removes a prefix that is given in lower case.
bool TakePrefix(std::string_view& text, std::string_view prefix)
{
    if (text.size() < prefix.size() || !std::equal(prefix.begin(), prefix.end(), text.begin(),
                                                   [](char a, char b) { return a == ToLower(b); }))
        return false;
    text.remove_prefix(prefix.size());
    return true;
}

/// What follows the scheme: host, port, path and query.
std::optional<Url> ParseAuthority(std::string_view text, bool secure)
{
    if (std::any_of(text.begin(), text.end(), IsControl))
        return std::nullopt;

    const std::size_t authorityEnd = std::min(text.find_first_of("/?#"), text.size());
    const std::string_view authority = text.substr(0, authorityEnd);
    std::size_t hostEnd = authority.find(':');
    if (authority.starts_with('['))
    {
        const std::size_t bracket = authority.find(']');
        if (bracket == std::string_view::npos || bracket < 3)
            return std::nullopt;
        const std::string_view address = authority.substr(1, bracket - 1);
        if (!std::all_of(address.begin(), address.end(), IsAddressCharacter))
            return std::nullopt;
        hostEnd = bracket + 1;
        if (hostEnd < authority.size() && authority[hostEnd] != ':')
            return std::nullopt;
    }
    hostEnd = std::min(hostEnd, authority.size());
    const std::string_view host = authority.substr(0, hostEnd);
    if (host.empty() || host.size() > LongestHost)
        return std::nullopt;
    // A user name before the host is refused with every other odd character: it makes one site look like
    // another.
    if (!host.starts_with('[') && !std::all_of(host.begin(), host.end(), IsHostCharacter))
        return std::nullopt;

    Url url;
    url.Secure = secure;
    url.Host = host;
    url.Port = secure ? HttpsPort : HttpPort;
    if (hostEnd + 1 < authority.size()) // nothing after the colon means the usual port
    {
        const std::string_view port = authority.substr(hostEnd + 1);
        const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), url.Port);
        if (error != std::errc() || end != port.data() + port.size() || url.Port == 0)
            return std::nullopt;
    }

    std::string_view path = text.substr(authorityEnd);
    path = path.substr(0, path.find('#'));
    if (!path.starts_with('/'))
        url.PathAndQuery = "/";
    url.PathAndQuery += path;
    return url;
}
} // namespace

std::optional<Url> Url::Parse(std::string_view text)
{
    if (TakePrefix(text, "http://"))
        return ParseAuthority(text, false);
    if (TakePrefix(text, "https://"))
        return ParseAuthority(text, true);
    return std::nullopt;
}

std::optional<Url> Url::Resolve(std::string_view location) const
{
    if (location.starts_with("//"))
        return ParseAuthority(location.substr(2), Secure);
    // A scheme ends at a colon that stands before any slash, question mark or hash.
    const std::size_t mark = location.find_first_of(":/?#");
    if (mark != std::string_view::npos && location[mark] == ':')
    {
        const std::optional<Url> target = Parse(location);
        return target && Secure && !target->Secure ? std::nullopt : target;
    }
    if (std::any_of(location.begin(), location.end(), IsControl))
        return std::nullopt;

    Url target = *this;
    location = location.substr(0, location.find('#'));
    if (location.empty())
        return target;
    const std::size_t pathEnd = std::min(target.PathAndQuery.find('?'), target.PathAndQuery.size());
    if (location.starts_with('/'))
        target.PathAndQuery.clear();
    else if (location.starts_with('?'))
        target.PathAndQuery.resize(pathEnd);
    else
        target.PathAndQuery.resize(target.PathAndQuery.rfind('/', pathEnd) + 1);
    target.PathAndQuery += location;
    return target;
}

std::string Url::WirePath() const
{
    constexpr char digits[] = "0123456789ABCDEF";
    std::string wire;
    wire.reserve(PathAndQuery.size());
    for (const char c : PathAndQuery)
    {
        const auto byte = static_cast<unsigned char>(c);
        if (byte == ' ' || byte > 127)
        {
            wire += '%';
            wire += digits[byte >> 4];
            wire += digits[byte & 15];
        }
        else
            wire += c;
    }
    return wire;
}
} // namespace LS::System::Net
