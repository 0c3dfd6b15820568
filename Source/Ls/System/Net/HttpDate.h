#pragma once

#include <windows.h>

#include <string>

namespace LS::System::Net
{
/// A UTC time in calendar fields as "Sat, 14 Nov 2026 05:56:03 UT", whatever the user's language. Empty for
/// fields that are no date.
std::string HttpDateText(const SYSTEMTIME& utc);
} // namespace LS::System::Net
