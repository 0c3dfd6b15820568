#include "Ls/System/Net/HttpDate.h"

#include "Ls/System/String/Printf.h"

namespace LS::System::Net
{
std::string HttpDateText(const SYSTEMTIME& utc)
{
    static constexpr const char* weekdays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    // The way through a file time checks the fields and finds the weekday.
    FILETIME fileTime = {};
    SYSTEMTIME time = {};
    if (!::SystemTimeToFileTime(&utc, &fileTime) || !::FileTimeToSystemTime(&fileTime, &time))
        return {};
    return Printf("%s, %d %s %4d %02d:%02d:%02d UT", weekdays[time.wDayOfWeek], time.wDay,
                  months[time.wMonth - 1], time.wYear, time.wHour, time.wMinute, time.wSecond);
}
} // namespace LS::System::Net
