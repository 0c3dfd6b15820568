#include "Ls/System/Io/ValidatePath.h"

#include "Ls/System/ThrowException.h"

#include <string_view>

namespace LS::System::IO
{
namespace
{
// U+0013 and the other control characters are absent on purpose: they count as valid.
constexpr wchar_t InvalidCharacters[] = {L'"',   L'<',   L'>',   L'|',   0x0000, 0x0008, 0x0010, 0x0011,
                                         0x0012, 0x0014, 0x0015, 0x0016, 0x0017, 0x0018, 0x0019};

bool IsWhiteSpace(wchar_t character) noexcept
{
    return (character >= 0x09 && character <= 0x0D) || character == L' ';
}
} // namespace

bool IsInvalidPathCharacter(wchar_t character) noexcept
{
    return std::wstring_view(InvalidCharacters, std::size(InvalidCharacters)).find(character) !=
           std::wstring_view::npos;
}

bool ValidatePath(const std::wstring& path)
{
    if (path.empty())
    {
        ThrowException(CException(L"Empty path", LS_HERE));
        return false;
    }
    if (path.size() > MaxPathLength)
    {
        ThrowException(CException(L"Path was too long:" + path, LS_HERE));
        return false;
    }
    for (const wchar_t character : path)
    {
        if (IsInvalidPathCharacter(character))
        {
            ThrowException(CException(L"Path contains one or more invalid characters:" + path, LS_HERE));
            return false;
        }
        if (!IsWhiteSpace(character))
            return true;
    }
    ThrowException(CException(L"Path contains only whitespace characters:" + path, LS_HERE));
    return false;
}
} // namespace LS::System::IO
