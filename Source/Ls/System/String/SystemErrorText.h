#pragma once

#include <cstdint>
#include <string>

namespace LS
{
/// The system's own description of a Win32 error code, with the line break that the system ends it with;
/// "(No Error Description)\r\n" when it has none. Leaves the thread's last error as it was.
std::string SystemErrorText(std::uint32_t error);
std::wstring SystemErrorTextWide(std::uint32_t error);
} // namespace LS
