#pragma once

#include "Ls/Analytics/Json/Element.h"

#include <string>

namespace LS::Analytics::json
{
/// Compact text of a value: no blanks or line breaks. Numbers in general notation with up to 20 significant
/// digits, so 32-bit integers are exact and have no decimal point. Member names are written as they are, and
/// of the characters of a string only the quote, the backslash and \b \t \n \f \r are escaped.
std::wstring Write(const Element& element);
} // namespace LS::Analytics::json
