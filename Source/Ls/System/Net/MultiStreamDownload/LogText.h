#pragma once

#include "Ls/System/Exception.h"

#include <string>
#include <string_view>

namespace LS::System::Net::MultiStreamDownload
{
// For lines of the log, which no download may fail for: without memory the text is empty.

/// The first line of a message: most messages go on with the whole head of an answer.
inline std::string FirstLine(std::string_view message) noexcept
{
    try
    {
        return std::string(message.substr(0, message.find_first_of("\r\n")));
    }
    catch (...)
    {
        return {};
    }
}

/// What failed and why, short enough for a line of the log: the head of an answer may be of any length, and
/// the log drops what is longer than its formatter takes.
inline std::wstring LogText(const CException& failure) noexcept
{
    constexpr std::size_t Most = 4096;
    try
    {
        std::wstring text = failure.ShortDescription();
        if (text.size() > Most)
        {
            text.resize(Most);
            text += L"...";
        }
        return text;
    }
    catch (...)
    {
        return {};
    }
}
} // namespace LS::System::Net::MultiStreamDownload
