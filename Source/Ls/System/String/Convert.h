#pragma once

#include <string>
#include <string_view>

namespace LS
{
/// Wide text to UTF-8 (the name is older than the encoding). An unpaired surrogate can't be converted:
/// throws CException "WideToAnsi(): Unable to convert one or more wide characters to ansi."
std::string WideToAnsi(std::wstring_view text);

/// UTF-8 to wide text; malformed bytes become U+FFFD, so any narrow text can be shown.
std::wstring AnsiToWide(std::string_view text);
} // namespace LS
