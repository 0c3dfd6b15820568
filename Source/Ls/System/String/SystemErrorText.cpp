#include "Ls/System/String/SystemErrorText.h"

#include "Ls/System/String/Convert.h"

#include <windows.h>

namespace LS
{
std::string SystemErrorText(std::uint32_t error)
{
    return WideToAnsi(SystemErrorTextWide(error));
}

std::wstring SystemErrorTextWide(std::uint32_t error)
{
    const DWORD lastError = ::GetLastError();
    char ansi[1024];
    const DWORD size =
        ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error,
                         MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), ansi, sizeof(ansi), nullptr);
    // The system answers in its own code page, not in the UTF-8 of our narrow texts. A character never takes
    // fewer bytes there than it takes wide characters.
    wchar_t wide[sizeof(ansi)];
    const int length = size == 0 ? 0
                                 : ::MultiByteToWideChar(CP_ACP, 0, ansi, static_cast<int>(size), wide,
                                                         static_cast<int>(sizeof(ansi)));
    std::wstring text =
        length > 0 ? std::wstring(wide, static_cast<std::size_t>(length)) : L"(No Error Description)\r\n";
    ::SetLastError(lastError);
    return text;
}

std::wstring WithSystemErrorText(std::wstring_view message)
{
    const DWORD lastError = ::GetLastError();
    std::wstring text(message);
    text.append(L"  ").append(SystemErrorTextWide(lastError));
    ::SetLastError(lastError);
    return text;
}

const std::wstring& WithLastError(std::uint32_t error, const std::wstring& message) noexcept
{
    ::SetLastError(error);
    return message;
}
} // namespace LS
