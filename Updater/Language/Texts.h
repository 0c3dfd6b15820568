#pragma once

/// What the message boxes say.
namespace Texts
{
inline constexpr const wchar_t* Title = L"Update";
inline constexpr const wchar_t* AskToUpdate = L"There is an update available. Would you like to receive it?";
inline constexpr const wchar_t* ConnectToInternet =
    L"Sorry, a check for updates is needed. Please connect to the Internet and try again.";
inline constexpr const wchar_t* UpdateNeededForPage =
    L"An update is needed to show this web page. After the update, you will be returned to the web page.";
} // namespace Texts
