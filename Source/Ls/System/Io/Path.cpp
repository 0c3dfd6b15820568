#include "Ls/System/Io/Path.h"

#include "Ls/System/ThrowException.h"

#include <windows.h>

#include <algorithm>

namespace LS::System::IO
{
namespace
{
constexpr std::size_t MaxNameLength = 255;
/// Longest path of the system, with its terminator.
constexpr DWORD MaxSystemPath = 32768;

/// For ASCII letters only, which is what device names are made of.
bool EqualsIgnoringCase(std::wstring_view text, std::wstring_view upperCase) noexcept
{
    return std::equal(text.begin(), text.end(), upperCase.begin(), upperCase.end(), [](wchar_t a, wchar_t b) {
        return (a >= L'a' && a <= L'z' ? static_cast<wchar_t>(a - (L'a' - L'A')) : a) == b;
    });
}

/// The system opens the device for such a name in any folder and with any extension.
bool IsDeviceName(std::wstring_view name) noexcept
{
    name = name.substr(0, name.find(L'.'));
    name = name.substr(0, name.find_last_not_of(L' ') + 1);
    for (const std::wstring_view device : {L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$"})
    {
        if (EqualsIgnoringCase(name, device))
            return true;
    }
    if (name.size() != 4)
        return false;
    const std::wstring_view port = name.substr(0, 3);
    constexpr std::wstring_view Numbers = L"0123456789\u00B9\u00B2\u00B3";
    return (EqualsIgnoringCase(port, L"COM") || EqualsIgnoringCase(port, L"LPT")) &&
           Numbers.find(name[3]) != std::wstring_view::npos;
}
} // namespace

std::wstring_view FileNameOf(std::wstring_view path) noexcept
{
    return path.substr(path.find_last_of(L'\\') + 1);
}

std::wstring_view FolderOf(std::wstring_view path) noexcept
{
    const std::size_t separator = path.find_last_of(L"\\/");
    return separator == std::wstring_view::npos ? std::wstring_view() : path.substr(0, separator);
}

bool IsPlainFileName(std::wstring_view name) noexcept
{
    if (name.empty() || name.size() > MaxNameLength)
        return false;
    const auto isForbidden = [](wchar_t character) {
        return character < 0x20 || character == 0x7F ||
               std::wstring_view(L"\\/:*?\"<>|").find(character) != std::wstring_view::npos;
    };
    if (std::any_of(name.begin(), name.end(), isForbidden))
        return false;
    // This covers "." and ".." too; the system drops dots and blanks at the end of a name.
    if (name.back() == L'.' || name.back() == L' ')
        return false;
    return !IsDeviceName(name);
}

bool IsSameName(std::wstring_view a, std::wstring_view b) noexcept
{
    return ::CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(), static_cast<int>(b.size()),
                                  TRUE) == CSTR_EQUAL;
}

bool HasEnding(std::wstring_view name, std::wstring_view ending) noexcept
{
    return name.size() >= ending.size() && IsSameName(name.substr(name.size() - ending.size()), ending);
}

std::wstring ProgramPath()
{
    std::wstring path;
    for (DWORD size = MAX_PATH; size <= MaxSystemPath * 2; size *= 2)
    {
        path.resize(size);
        const DWORD length = ::GetModuleFileNameW(nullptr, path.data(), size);
        if (length == 0)
            break;
        if (length < size)
        {
            path.resize(length);
            return path;
        }
    }
    ThrowException(CException(L"Could not get the program's path.", LS_HERE));
    return {};
}
} // namespace LS::System::IO
