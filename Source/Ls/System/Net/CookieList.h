#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace LS::System::Net
{
/// The cookies of one request, in the order in which they came. Names are compared with case. A pair that
/// would break a header line is dropped, and so is everything beyond the limits: a server must not be able
/// to make the next request unbounded.
class CCookieList
{
public:
    static constexpr std::size_t MostCookies = 64;
    static constexpr std::size_t LongestCookie = 4096;

    /// "a=1; b=2": each pair is added or replaces the one of its name; an empty value removes it.
    void Store(std::string_view cookies);
    /// Value of a Set-Cookie header: the first pair; the attributes after it don't matter to a list that
    /// lives no longer than its owner.
    void StoreSetCookie(std::string_view value);

    bool IsEmpty() const { return m_Cookies.empty(); }
    /// "a=1; b=2": joined with the separator that servers expect in a Cookie header.
    std::string Text() const;

private:
    void StorePair(std::string_view pair);

    std::vector<std::pair<std::string, std::string>> m_Cookies;
};
} // namespace LS::System::Net
