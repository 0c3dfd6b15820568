#pragma once

#include <string>
#include <type_traits>
#include <variant>
#include <vector>

namespace LS::Analytics::json
{
class Element;
struct Member;

using Null = std::monostate;
using Array = std::vector<Element>;

/// Named members in the order of their insertion. A value: copied with all that it holds.
class Object
{
public:
    Object() noexcept;
    Object(const Object& other);
    Object(Object&& other) noexcept;
    Object& operator=(const Object& other);
    Object& operator=(Object&& other) noexcept;
    ~Object();

    /// The member of that name, appended as null when there is none. Valid until the next insertion.
    Element& operator[](const std::wstring& name);
    /// Appends a member. Throws Exception "Object member already exists: <name>".
    void Insert(const std::wstring& name, Element value);

    bool IsEmpty() const noexcept { return m_Members.empty(); }
    const std::vector<Member>& Members() const noexcept { return m_Members; }

private:
    std::vector<Member> m_Members;
};

/// One JSON value of any kind, held and copied by value; null by default.
class Element
{
public:
    using Value = std::variant<Null, bool, double, std::wstring, Array, Object>;

    Element() = default;
    Element(bool value) : m_Value(value) {}
    /// Any number; kept as a double, which holds every 32-bit integer exactly.
    template <class Number>
    requires(std::is_arithmetic_v<Number> && !std::is_same_v<Number, bool>) Element(Number value) :
        m_Value(static_cast<double>(value))
    {
    }
    Element(std::wstring value) : m_Value(std::move(value)) {}
    Element(const wchar_t* value) : m_Value(std::wstring(value)) {}
    Element(Array value) : m_Value(std::move(value)) {}
    Element(Object value) : m_Value(std::move(value)) {}

    const Value& Get() const noexcept { return m_Value; }

private:
    Value m_Value;
};

struct Member
{
    std::wstring Name;
    Element Value;
};
} // namespace LS::Analytics::json
