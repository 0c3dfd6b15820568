#pragma once

#include <exception>
#include <string>

namespace LS::Analytics::json
{
/// Misuse of the document model. Not a CException: it says what is wrong with a document, not where in the
/// program something failed.
class Exception : public std::exception
{
public:
    explicit Exception(const std::wstring& text) : m_Text(text)
    {
        for (const wchar_t character : text)
            m_Narrow += character < 0x80 ? static_cast<char>(character) : '?';
    }

    const std::wstring& Text() const noexcept { return m_Text; }
    /// The text with "?" for what isn't ASCII.
    const char* what() const noexcept override { return m_Narrow.c_str(); }

private:
    std::wstring m_Text;
    std::string m_Narrow;
};
} // namespace LS::Analytics::json
