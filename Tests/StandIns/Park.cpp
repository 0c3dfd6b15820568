// Stands in for Park. Started with its events it records how, in a file beside itself, and waits: for
// /EventExecute's event, when the real one would start the client, or /EventTerminate's, when it gives up;
// then it adds to the record which came. With /SignalTerminate it sets the terminate event and ends.
#include "Tests/StandIns/Record.h"

namespace
{
/// A Park that nobody signals ends all the same.
constexpr DWORD LongestLifeMs = 300000;

/// The argument after the named one; empty without it.
std::wstring After(const std::vector<std::wstring>& arguments, const wchar_t* name)
{
    for (std::size_t i = 0; i + 1 < arguments.size(); ++i)
    {
        if (arguments[i] == name)
            return arguments[i + 1];
    }
    return {};
}

HANDLE Event(const std::wstring& name)
{
    return ::CreateEventW(nullptr, TRUE, FALSE, name.empty() ? nullptr : name.c_str());
}
} // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int)
{
    const auto arguments = StandIns::Arguments();
    const HANDLE events[] = {Event(After(arguments, L"/EventTerminate")),
                             Event(After(arguments, L"/EventExecute"))};
    const bool signal = !arguments.empty() && arguments.back() == L"/SignalTerminate";
    const std::wstring record = StandIns::OwnPath() + (signal ? L".signal.txt" : L".txt");
    StandIns::WriteRecord(record);
    if (signal)
        return ::SetEvent(events[0]) ? 0 : 1;

    const DWORD result = ::WaitForMultipleObjects(2, events, FALSE, LongestLifeMs);
    const wchar_t* const ends[] = {L"Ended: terminate\n", L"Ended: execute\n"};
    StandIns::WriteRecord(record, result < 2 ? ends[result] : L"Ended: alone\n");
    return 0;
}
