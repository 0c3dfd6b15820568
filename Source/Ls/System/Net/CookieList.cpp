#include "Ls/System/Net/CookieList.h"

#include "Ls/System/Net/HeaderText.h"

#include <algorithm>

namespace LS::System::Net
{
namespace
{
constexpr std::string_view Separator = "; ";
} // namespace

void CCookieList::Store(std::string_view cookies)
{
    while (!cookies.empty())
    {
        const std::size_t end = std::min(cookies.find(';'), cookies.size());
        StorePair(cookies.substr(0, end));
        cookies.remove_prefix(std::min(end + 1, cookies.size()));
    }
}

void CCookieList::StoreSetCookie(std::string_view value)
{
    StorePair(value.substr(0, value.find(';')));
}

void CCookieList::StorePair(std::string_view pair)
{
    const std::size_t equals = pair.find('=');
    if (equals == std::string_view::npos || pair.size() > LongestCookie)
        return;
    const std::string_view name = TrimBlanks(pair.substr(0, equals));
    const std::string_view value = TrimBlanks(pair.substr(equals + 1));
    if (name.empty() || std::any_of(pair.begin(), pair.end(), IsControl))
        return;

    const auto found = std::find_if(m_Cookies.begin(), m_Cookies.end(),
                                    [name](const auto& cookie) { return cookie.first == name; });
    if (found != m_Cookies.end() && value.empty())
        m_Cookies.erase(found);
    else if (found != m_Cookies.end())
        found->second = value;
    else if (!value.empty() && m_Cookies.size() < MostCookies)
        m_Cookies.emplace_back(name, value);
}

std::string CCookieList::Text() const
{
    std::string text;
    for (const auto& [name, value] : m_Cookies)
    {
        if (!text.empty())
            text += Separator;
        text += name;
        text += '=';
        text += value;
    }
    return text;
}
} // namespace LS::System::Net
