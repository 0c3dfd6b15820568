#pragma once

#include <string>
#include <string_view>

namespace LS::System::IO
{
/// What stands after the last backslash; the whole text without one.
std::wstring_view FileNameOf(std::wstring_view path) noexcept;

/// What stands before the last backslash or slash; empty without one.
std::wstring_view FolderOf(std::wstring_view path) noexcept;

/// True for a name that can be one component of a path and nothing else: not empty, not "." or "..", not
/// ending in a dot or blank, no separator, colon, wildcard, quote or control character, at most 255
/// characters, and not a device name (CON, PRN, AUX, NUL, COM0-9, LPT0-9, CONIN$, CONOUT$, their
/// superscript forms, with or without extension).
bool IsPlainFileName(std::wstring_view name) noexcept;

/// Whether two names are the same for the file system, which ignores the case of letters.
bool IsSameName(std::wstring_view a, std::wstring_view b) noexcept;

/// Whether a name ends like this (".exe"), for the file system.
bool HasEnding(std::wstring_view name, std::wstring_view ending) noexcept;

/// The full path of the running program's file, whatever its length. Throws CException.
std::wstring ProgramPath();
} // namespace LS::System::IO
