#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace LS
{
/// The system's own description of a Win32 error code, with the line break that the system ends it with;
/// "(No Error Description)\r\n" when it has none. The narrow form is UTF-8. Leaves the thread's last error as
/// it was.
std::string SystemErrorText(std::uint32_t error);
std::wstring SystemErrorTextWide(std::uint32_t error);

/// The message, two blanks and the description of the thread's last error, which stays as it was.
std::wstring WithSystemErrorText(std::wstring_view message);

/// Makes error the thread's last error, which an exception built with the message captures. For calls that
/// return their error, and after work that may have changed it. Returns the message.
const std::wstring& WithLastError(std::uint32_t error, const std::wstring& message) noexcept;
} // namespace LS
