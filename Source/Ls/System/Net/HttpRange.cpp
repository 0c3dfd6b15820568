#include "Ls/System/Net/HttpRange.h"

#include <cstdio>

namespace LS::System::Net
{
std::string HttpRange::Text() const
{
    if (!IsSet())
        return {};

    char buffer[1000] = {};
    if (Start == -1)
        _snprintf(buffer, sizeof(buffer) - 1, "%s=-%I64d", Unit.c_str(), End);
    else if (End == -1)
        _snprintf(buffer, sizeof(buffer) - 1, "%s=%I64d-", Unit.c_str(), Start);
    else
        _snprintf(buffer, sizeof(buffer) - 1, "%s=%I64d-%I64d", Unit.c_str(), Start, End);
    return buffer;
}
} // namespace LS::System::Net
