#include "Ls/System/Exception.h"

#include "Ls/System/String/Convert.h"
#include "Ls/System/String/DecimalText.h"
#include "Ls/System/String/SystemErrorText.h"
#include "Ls/System/String/Trim.h"

#include <windows.h>

#include <algorithm>

namespace LS::System
{
namespace
{
constexpr std::wstring_view LineBreak = L"\r\n";

/// The build names files with slashes; people look for them with backslashes.
std::string WithBackslashes(std::string_view path)
{
    std::string text(path);
    std::replace(text.begin(), text.end(), '/', '\\');
    return text;
}

std::wstring IndentLines(const std::wstring& text, const std::wstring& indent)
{
    std::wstring result;
    std::size_t begin = 0;
    for (;;)
    {
        const std::size_t end = text.find(LineBreak, begin);
        if (end == std::wstring::npos)
            return result.append(text, begin);
        const std::size_t next = end + LineBreak.size();
        result.append(text, begin, next - begin).append(indent);
        begin = next;
    }
}

/// A message as one sentence on one line.
std::wstring Sentence(const std::wstring& message)
{
    std::wstring result;
    for (const wchar_t c : Trim(message))
    {
        const bool lineEnd = c == L'\r' || c == L'\n';
        if (!lineEnd)
            result += c;
        else if (!result.empty() && result.back() != L' ')
            result += L' ';
    }
    if (result.empty() || result.back() != L'.')
        result += L'.';
    return result;
}
} // namespace

// Braces, not parentheses: they are evaluated from left to right, so that the last error is read before a
// text is converted or copied.
CException::CException(const std::wstring& message, std::string_view function, std::int32_t line,
                       std::string_view file) :
    CException{::GetLastError(), message, nullptr, function, line, file}
{
}

CException::CException(const std::string& message, std::string_view function, std::int32_t line,
                       std::string_view file) :
    CException{::GetLastError(), AnsiToWide(message), nullptr, function, line, file}
{
}

CException::CException(const CException& inner, const std::string& message, std::string_view function,
                       std::int32_t line, std::string_view file) :
    CException{::GetLastError(), AnsiToWide(message), &inner, function, line, file}
{
}

CException::CException(const CException& other) :
    CReferenceCounted(other), CObject(other), m_Message(other.m_Message), m_Function(other.m_Function),
    m_Line(other.m_Line), m_File(other.m_File), m_LastError(other.m_LastError),
    m_Inner(other.m_Inner ? std::make_unique<const CException>(*other.m_Inner) : nullptr)
{
}

CException::CException(std::uint32_t lastError, std::wstring message, const CException* inner,
                       std::string_view function, std::int32_t line, std::string_view file) :
    m_Message(std::move(message)),
    m_Function(function), m_Line(line), m_File(WithBackslashes(file)), m_LastError(lastError),
    m_Inner(inner ? std::make_unique<const CException>(*inner) : nullptr)
{
}

CException::~CException() = default;

std::wstring CException::Format() const
{
    return Format(0);
}

// Concatenated rather than formatted: the formatter throws when a text is too long for it, and describing an
// exception must not bring up another.
std::wstring CException::Format(std::size_t level) const
{
    const std::wstring indent(level, L'\t');
    std::wstring text = L"Exception:  " + IndentLines(m_Message, indent);
    text.append(LineBreak).append(indent).append(L"In Function: ").append(AnsiToWide(m_Function));
    text.append(LineBreak).append(indent).append(L"File ").append(AnsiToWide(m_File));
    text.append(L" Line ").append(DecimalText(m_Line)).append(LineBreak);
    if (m_LastError != 0)
    {
        text.append(indent).append(L"LastError=").append(DecimalText(m_LastError));
        text.append(L"; ").append(SystemErrorTextWide(m_LastError));
    }
    if (m_Inner)
        text.append(indent).append(L"Inner ").append(m_Inner->Format(level + 1));
    return text;
}

std::wstring CException::ShortDescription() const
{
    std::wstring text = Sentence(m_Message);
    if (m_Inner)
        text.append(L"-").append(m_Inner->ShortDescription());
    return text;
}
} // namespace LS::System
