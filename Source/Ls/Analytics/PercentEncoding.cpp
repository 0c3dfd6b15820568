#include "Ls/Analytics/PercentEncoding.h"

#include <cwctype>

namespace LS::Analytics
{
std::wstring PercentEncode(std::wstring_view json)
{
    constexpr std::wstring_view AllowedOutside = L"-_.~&=";
    constexpr std::wstring_view AllowedInQuotes = L"-_.~";
    constexpr wchar_t Digits[] = L"0123456789ABCDEF";

    std::wstring result;
    result.reserve(json.size() * 2);
    bool inQuotes = false;
    bool escaped = false;
    for (const wchar_t character : json)
    {
        if (character == L'"' && !escaped)
            inQuotes = !inQuotes;
        escaped = !escaped && character == L'\\';

        const std::wstring_view allowed = inQuotes ? AllowedInQuotes : AllowedOutside;
        if (std::iswalnum(character) || allowed.find(character) != std::wstring_view::npos)
            result += character;
        else
            ((result += L'%') += Digits[(character >> 4) & 0xF]) += Digits[character & 0xF];
    }
    return result;
}
} // namespace LS::Analytics
