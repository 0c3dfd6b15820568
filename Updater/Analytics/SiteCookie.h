#pragma once

#include <string>
#include <string_view>

/// Value of the cookie of that name among cookies as the system lists them ("a=1; b=2"); empty without it.
std::wstring CookieValue(std::wstring_view cookies, std::wstring_view name);

/// The id that the site has given this user's browser: its cookie "ecs_guid", as far as the system's cookie
/// store has it. Empty without it, or when it is too long to be an id. domain may carry a port.
std::wstring SiteUserId(const std::wstring& domain);
