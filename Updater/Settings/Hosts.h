#pragma once

#include <string>

/// The hosts that the program talks to, with an optional ":port". They are set when the program is built; a
/// string value of the same name under "HKEY_LOCAL_MACHINE\SOFTWARE\Larkspur\Debugging", where only an
/// administrator can write, replaces one for tests and support. A value that isn't a text counts as none.
namespace Hosts
{
std::string UpdateHost();
std::string AnalyticsHost();
/// The site whose cookie identifies the user.
std::string CookieDomain();
} // namespace Hosts
