#pragma once

#include "Ls/System/String/Convert.h"

#include <doctest/doctest.h>

#include <string>
#include <vector>

namespace Tests
{
/// The parts of a text between the separators; also empty ones.
template <class Character>
std::vector<std::basic_string<Character>> Split(const std::basic_string<Character>& text, Character separator)
{
    std::vector<std::basic_string<Character>> parts(1);
    for (const Character c : text)
    {
        if (c == separator)
            parts.emplace_back();
        else
            parts.back() += c;
    }
    return parts;
}
} // namespace Tests

namespace doctest
{
/// So that a failed comparison shows its texts.
template <>
struct StringMaker<std::wstring>
{
    static String convert(const std::wstring& text)
    {
        std::wstring shown;
        for (const wchar_t c : text)
            shown += c < 0x20 || (c >= 0xD800 && c < 0xE000) ? L'~' : c;
        return LS::WideToAnsi(shown).c_str();
    }
};
} // namespace doctest
