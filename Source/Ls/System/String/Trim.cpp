#include "Ls/System/String/Trim.h"

namespace LS
{
std::wstring Trim(std::wstring_view text)
{
    constexpr std::wstring_view Blanks = L" \t\r\n";
    const std::size_t begin = text.find_first_not_of(Blanks);
    if (begin == std::wstring_view::npos)
        return {};
    return std::wstring(text.substr(begin, text.find_last_not_of(Blanks) - begin + 1));
}
} // namespace LS
