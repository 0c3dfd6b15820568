#include "Ls/System/Net/HeaderText.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace LS::System::Net
{
std::string_view TrimBlanks(std::string_view text)
{
    constexpr std::string_view blanks = " \t";
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string_view::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

bool EqualsNoCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && ::_strnicmp(a.data(), b.data(), a.size()) == 0;
}

std::optional<std::uint64_t> ParseDecimal(std::string_view text)
{
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

bool IsHeaderText(std::string_view text)
{
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
}
} // namespace LS::System::Net
