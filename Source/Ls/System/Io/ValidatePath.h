#pragma once

#include <cstddef>
#include <string>

namespace LS::System::IO
{
/// Longest path accepted, in characters.
inline constexpr std::size_t MaxPathLength = 260;

/// True for the 15 code points that no path may begin with.
bool IsInvalidPathCharacter(wchar_t character) noexcept;

/// Throws CException when path is empty, longer than MaxPathLength, all white space, or when an invalid
/// character stands in its leading white space or is the first character after it. What follows that
/// character is left to the file system. False when the debug switch lets such a path pass.
bool ValidatePath(const std::wstring& path);
} // namespace LS::System::IO
