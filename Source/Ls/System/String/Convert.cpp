#include "Ls/System/String/Convert.h"

#include "Ls/System/ThrowException.h"

#include <windows.h>

#include <climits>
#include <stdexcept>

namespace LS
{
std::string WideToAnsi(std::wstring_view text)
{
    if (text.empty())
        return {};

    std::string result;
    if (text.size() <= INT_MAX)
    {
        const int length = static_cast<int>(text.size());
        const int size = ::WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text.data(), length, nullptr, 0,
                                               nullptr, nullptr);
        result.resize(static_cast<std::size_t>(size));
        if (size > 0 && ::WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text.data(), length,
                                              result.data(), size, nullptr, nullptr) == size)
        {
            return result;
        }
    }
    System::ThrowException(
        System::CException(L"WideToAnsi(): Unable to convert one or more wide characters to ansi.", LS_HERE));
    return {};
}

std::wstring AnsiToWide(std::string_view text)
{
    if (text.empty())
        return {};
    if (text.size() > INT_MAX)
        throw std::length_error("AnsiToWide");

    const int length = static_cast<int>(text.size());
    const int size = ::MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
    std::wstring result(static_cast<std::size_t>(size), L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), length, result.data(), size);
    return result;
}
} // namespace LS
