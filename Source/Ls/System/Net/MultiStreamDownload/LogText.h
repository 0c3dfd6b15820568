#pragma once

#include <string>
#include <string_view>

namespace LS::System::Net::MultiStreamDownload
{
/// The first line of a message, for the log: most messages go on with the whole head of an answer.
inline std::string FirstLine(std::string_view message)
{
    return std::string(message.substr(0, message.find_first_of("\r\n")));
}
} // namespace LS::System::Net::MultiStreamDownload
