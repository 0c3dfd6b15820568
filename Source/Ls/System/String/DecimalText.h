#pragma once

#include <string>

namespace LS
{
/// The digits of a whole number, with a "-" before a negative one. (The library's own way to wide text brings
/// its whole formatter along, 30 KB of a program that is downloaded.)
template <class Integer>
std::wstring DecimalText(Integer number)
{
    const std::string digits = std::to_string(number);
    return std::wstring(digits.begin(), digits.end());
}
} // namespace LS
