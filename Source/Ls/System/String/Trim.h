#pragma once

#include <string>
#include <string_view>

namespace LS
{
/// Without space, tab, carriage return and line feed at both ends.
std::wstring Trim(std::wstring_view text);
} // namespace LS
