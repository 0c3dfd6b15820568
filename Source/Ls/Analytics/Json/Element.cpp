#include "Ls/Analytics/Json/Element.h"

#include "Ls/Analytics/Json/Exception.h"

#include <algorithm>

namespace LS::Analytics::json
{
// Here, where a member's size is known.
Object::Object() noexcept = default;
Object::Object(const Object&) = default;
Object::Object(Object&&) noexcept = default;
Object& Object::operator=(const Object&) = default;
Object& Object::operator=(Object&&) noexcept = default;
Object::~Object() = default;

Element& Object::operator[](const std::wstring& name)
{
    const auto found =
        std::find_if(m_Members.begin(), m_Members.end(), [&](const Member& m) { return m.Name == name; });
    if (found != m_Members.end())
        return found->Value;
    m_Members.push_back({name, Element()});
    return m_Members.back().Value;
}

void Object::Insert(const std::wstring& name, Element value)
{
    if (std::any_of(m_Members.begin(), m_Members.end(), [&](const Member& m) { return m.Name == name; }))
        throw Exception(L"Object member already exists: " + name);
    m_Members.push_back({name, std::move(value)});
}
} // namespace LS::Analytics::json
