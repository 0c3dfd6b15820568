#include "Ls/System/String/Printf.h"

#include "Ls/System/String/DecimalText.h"
#include "Ls/System/ThrowException.h"
#include "Ls/System/Win32/ScopeExit.h"

#include <cstdio>
#include <cwchar>

namespace LS
{
namespace
{
constexpr std::size_t FirstCapacity = 128;
/// Capacities below this are tried, so the last one is 65536.
constexpr std::size_t CapacityLimit = 65537;

int FormatInto(std::string& text, const char* format, va_list arguments)
{
    return _vsnprintf(text.data(), text.size() - 1, format, arguments);
}

int FormatInto(std::wstring& text, const wchar_t* format, va_list arguments)
{
    return _vsnwprintf(text.data(), text.size() - 1, format, arguments);
}

/// Formats into text with ever larger capacities. Returns 0, or the capacity at which it gave up.
template <class String>
std::size_t FormatGrowing(String& text, const typename String::value_type* format, va_list arguments)
{
    std::size_t capacity = FirstCapacity;
    do
    {
        text.resize(capacity);
        va_list copy;
        va_copy(copy, arguments);
        // The runtime's counted formatters with the underscore: -1 is "did not fit", a result that fills the
        // count exactly fits and has no terminator.
        const int length = FormatInto(text, format, copy);
        va_end(copy);
        if (length >= 0)
        {
            text.resize(static_cast<std::size_t>(length));
            return 0;
        }
        capacity *= 2;
    } while (capacity < CapacityLimit);
    text.clear();
    return capacity;
}

std::wstring TooLong(std::size_t capacity)
{
    return L"Result exceeds " + DecimalText(capacity - 1) + L" characters.";
}
} // namespace

std::string PrintfVaListToString(const char* format, va_list arguments)
{
    std::string text;
    if (const std::size_t capacity = FormatGrowing(text, format, arguments))
        System::ThrowException(System::CException(TooLong(capacity), LS_HERE));
    return text;
}

std::wstring PrintfVaListToWString(const wchar_t* format, va_list arguments)
{
    std::wstring text;
    if (const std::size_t capacity = FormatGrowing(text, format, arguments))
        System::ThrowException(System::CException(TooLong(capacity), LS_HERE));
    return text;
}

std::string Printf(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const System::Win32::CScopeExit end([&]() noexcept { va_end(arguments); });
    return PrintfVaListToString(format, arguments);
}

std::wstring Printf(const wchar_t* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const System::Win32::CScopeExit end([&]() noexcept { va_end(arguments); });
    return PrintfVaListToWString(format, arguments);
}
} // namespace LS
