#pragma once

#include <cstdarg>
#include <string>

// The text services are used by every layer and live directly in LS.
namespace LS
{
/// printf into a string with the system runtime's rules: in a wide format %s takes a wide text and %S or %hs
/// a narrow one, in a narrow format the other way round. Results of up to 65535 characters; a longer one
/// throws CException "Result exceeds 131071 characters." (the number is what the doubling has reached).
std::string PrintfVaListToString(const char* format, va_list arguments);
std::wstring PrintfVaListToWString(const wchar_t* format, va_list arguments);

/// The same with the arguments in place. Only for arguments that survive "...": no class objects.
std::string Printf(const char* format, ...);
std::wstring Printf(const wchar_t* format, ...);
} // namespace LS
