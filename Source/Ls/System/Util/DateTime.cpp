#include "Ls/System/Util/DateTime.h"

#include "Ls/System/String/Printf.h"

namespace LS::System::Util
{
SYSTEMTIME LocalTime() noexcept
{
    SYSTEMTIME utc{};
    ::GetSystemTime(&utc);
    FILETIME utcFileTime{};
    FILETIME localFileTime{};
    SYSTEMTIME local{};
    if (::SystemTimeToFileTime(&utc, &utcFileTime) && ::FileTimeToLocalFileTime(&utcFileTime, &localFileTime))
    {
        ::FileTimeToSystemTime(&localFileTime, &local);
    }
    return local;
}

std::wstring TimeStamp(const SYSTEMTIME& time)
{
    return Printf(L"%02d:%02d:%02d.%03d %02d/%02d/%04d", time.wHour, time.wMinute, time.wSecond,
                  time.wMilliseconds, time.wMonth, time.wDay, time.wYear);
}
} // namespace LS::System::Util
