#pragma once

#include "Ls/System/Exception.h"

#include <string>
#include <string_view>

namespace LS::System::Net::MultiStreamDownload
{
/// The first line of a message, for the log: most messages go on with the whole head of an answer.
inline std::string FirstLine(std::string_view message)
{
    return std::string(message.substr(0, message.find_first_of("\r\n")));
}

/// What failed and why, short enough for a line of the log: the head of an answer may be of any length, and
/// the log drops what is longer than its formatter takes.
inline std::wstring LogText(const CException& failure)
{
    constexpr std::size_t Most = 4096;
    std::wstring text = failure.ShortDescription();
    if (text.size() > Most)
    {
        text.resize(Most);
        text += L"...";
    }
    return text;
}
} // namespace LS::System::Net::MultiStreamDownload
