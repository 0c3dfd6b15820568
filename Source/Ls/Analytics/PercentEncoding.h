#pragma once

#include <string>
#include <string_view>

namespace LS::Analytics
{
/// Makes JSON text fit for a query string. Letters and digits of any script stay, as do "-_.~" and, outside
/// JSON strings only, "&" and "=". Every other character becomes "%" and two hexadecimal digits of its low 8
/// bits: the collector reads one byte for each, so a character above U+00FF that isn't a letter or digit is
/// not spelled out as UTF-8.
std::wstring PercentEncode(std::wstring_view json);
} // namespace LS::Analytics
