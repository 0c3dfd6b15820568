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
    std::string Host;
    std::uint16_t Port = 0;
    /// Begins with "/"; ends before a "#".
    std::string PathAndQuery;

    /// Nothing for another scheme, an empty or ill-formed host or port, or a control character anywhere (which
    /// could smuggle a header line into the request). Blanks and bytes above 127 pass: product names hold them.
    static std::optional<Url> Parse(std::string_view text);
};
} // namespace LS::System::Net
