#pragma once

#include <string>
#include <string_view>

/// "major.minor.build.servicepack" as the system tells this program.
std::wstring OSVersionText();

/// The name that analytics give a version, by its leading characters: "Windows 7", "Windows Vista", "Windows
/// XP", and "Windows" for every other one.
std::wstring OSNameOf(std::wstring_view version);
