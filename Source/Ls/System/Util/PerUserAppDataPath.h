#pragma once

#include <string>

namespace LS::System::Util
{
/// The user's roaming application-data folder, without a trailing backslash, created when missing.
/// Throws CException "SHGetSpecialFolderPath() failed for CSIDL_APPDATA".
std::wstring GetPerUserAppDataPath();
} // namespace LS::System::Util
