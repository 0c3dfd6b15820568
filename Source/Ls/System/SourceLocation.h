#pragma once

#include <string_view>

namespace LS::System
{
/// The qualified function name ("LS::System::Win32::CEvent::Set") within a compiler's full signature of
/// it: what stands before the parameter list, without return type, calling convention and template
/// arguments of the return type. Points into the given text.
constexpr std::string_view QualifiedFunctionName(std::string_view signature) noexcept
{
    int depth = 0;
    std::size_t begin = 0;
    for (std::size_t i = 0; i < signature.size(); ++i)
    {
        const char c = signature[i];
        if (c == '<')
            ++depth;
        else if (c == '>')
            --depth;
        else if (depth == 0 && (c == ' ' || c == '*' || c == '&'))
            begin = i + 1;
        else if (depth == 0 && c == '(')
            return signature.substr(begin, i - begin);
    }
    return signature.substr(begin);
}

/// The file's name without its folders.
constexpr std::string_view FileNameOfPath(std::string_view path) noexcept
{
    const auto slash = path.find_last_of("/\\");
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}
} // namespace LS::System

/// The compiler's full signature of the function around it. Not std::source_location: clang has that only
/// from version 16 on.
#ifdef _MSC_VER
#define LS_SIGNATURE __FUNCSIG__
#else
#define LS_SIGNATURE __PRETTY_FUNCTION__
#endif

/// The three arguments (function, line, file) that say where an exception is built. The file is relative
/// to the source tree (the build maps the prefix away); the exception shows it with backslashes.
#define LS_HERE ::LS::System::QualifiedFunctionName(LS_SIGNATURE), __LINE__, __FILE__
