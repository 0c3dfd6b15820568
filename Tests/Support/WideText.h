#pragma once

#include "Ls/System/String/Convert.h"

#include <doctest/doctest.h>

#include <string>

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
