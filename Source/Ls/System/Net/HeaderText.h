#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

// What the parsers of header lines have in common.
namespace LS::System::Net
{
/// Without blanks and tabs at both ends.
std::string_view TrimBlanks(std::string_view text);

/// Equal when ASCII letters of either case count as the same.
bool EqualsNoCase(std::string_view a, std::string_view b);

/// A text of decimal digits and nothing else, without overflow.
std::optional<std::uint64_t> ParseDecimal(std::string_view text);

/// True for a character that ends or breaks a header line.
constexpr bool IsControl(char c)
{
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

/// True for a text that can stand in a header line anywhere: printable ASCII, not empty.
bool IsHeaderText(std::string_view text);
} // namespace LS::System::Net
