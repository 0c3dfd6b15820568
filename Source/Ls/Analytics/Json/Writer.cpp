#include "Ls/Analytics/Json/Writer.h"

#include "Ls/System/String/Printf.h"

#include <cmath>
#include <string_view>

namespace LS::Analytics::json
{
namespace
{
class CWriter
{
public:
    explicit CWriter(std::wstring& text) : m_Text(text) {}

    void operator()(const Element& element) const { std::visit(*this, element.Get()); }
    void operator()(Null) const { m_Text += L"null"; }
    void operator()(bool value) const { m_Text += value ? L"true" : L"false"; }
    void operator()(double value) const
    {
        // JSON has no infinity; null is what other writers make of it.
        m_Text += std::isfinite(value) ? Printf(L"%.20g", value) : L"null";
    }
    void operator()(const std::wstring& value) const
    {
        m_Text += L'"';
        for (const wchar_t character : value)
        {
            constexpr std::wstring_view Special = L"\b\t\n\f\r\"\\";
            const auto special = Special.find(character);
            if (special == std::wstring_view::npos)
                m_Text += character;
            else
                (m_Text += L'\\') += L"btnfr\"\\"[special];
        }
        m_Text += L'"';
    }
    void operator()(const Array& array) const
    {
        m_Text += L'[';
        const wchar_t* separator = L"";
        for (const Element& element : array)
        {
            m_Text += separator;
            (*this)(element);
            separator = L",";
        }
        m_Text += L']';
    }
    void operator()(const Object& object) const
    {
        m_Text += L'{';
        const wchar_t* separator = L"";
        for (const Member& member : object.Members())
        {
            ((m_Text += separator) += L'"') += member.Name;
            m_Text += L"\":";
            (*this)(member.Value);
            separator = L",";
        }
        m_Text += L'}';
    }

private:
    std::wstring& m_Text;
};
} // namespace

std::wstring Write(const Element& element)
{
    std::wstring text;
    CWriter{text}(element);
    return text;
}
} // namespace LS::Analytics::json
