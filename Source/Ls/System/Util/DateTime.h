#pragma once

#include <windows.h>

#include <string>

namespace LS::System::Util
{
/// The present local time in calendar fields (Gregorian, by way of file time).
SYSTEMTIME LocalTime() noexcept;

/// "%02d:%02d:%02d.%03d %02d/%02d/%04d": hour, minute, second, millisecond, month, day, year; 23 characters.
std::wstring TimeStamp(const SYSTEMTIME& time);
} // namespace LS::System::Util
