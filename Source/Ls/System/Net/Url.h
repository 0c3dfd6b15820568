#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace LS::System::Net
{
/// The pieces of an http or https URL, split without decoding anything.
struct Url
{
    bool Secure = false;
    /// A name, an IPv4 address or an IPv6 address in brackets.
    std::string Host;
    std::uint16_t Port = 0;
    /// Begins with "/"; ends before a "#".
    std::string PathAndQuery;

    /// Nothing for another scheme, an empty or ill-formed host or port, or a control character anywhere
    /// (which could smuggle a header line into the request). Blanks and bytes above 127 pass: product names
    /// hold them.
    static std::optional<Url> Parse(std::string_view text);

    /// Where a redirect to location leads from here: a whole URL, one without its scheme ("//host/path"), a
    /// path, a query or a name in the same folder. Nothing for what Parse refuses, or from https to http.
    std::optional<Url> Resolve(std::string_view location) const;

    /// PathAndQuery as it goes over the wire: blanks and bytes above 127 as %XX, everything else as it is.
    /// The transport gets nothing that a code page could turn into question marks.
    std::string WirePath() const;
};
} // namespace LS::System::Net
