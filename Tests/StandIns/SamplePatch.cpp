// Stands in for a patch. Its installer arguments say what it does, in this order:
//   /peek-event=NAME   notes in the record whether that event was set when the patch began (and leaves it so)
//   /record=FILE       writes how it was started; without it, beside itself with ".started" at the end
//   /report=10,40,90   writes each number to "Install", as an installer reports its progress,
//   /pause=MS          with this pause after each (for the eye; no test needs it)
//   /wait-event=NAME   waits until that event is set, five minutes at the most
//   /set-event=NAME    sets that event (as an installer tells Park to start the client again)
//   /exit=CODE         ends with this code, decimal or 0x..., else with 0
#include "Tests/StandIns/Record.h"

namespace
{
constexpr DWORD LongestWaitMs = 300000;

void Report(const std::wstring& percent)
{
    HKEY key = nullptr;
    ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"Software\\Larkspur\\InstallerStatus", 0, nullptr, 0, KEY_WRITE,
                      nullptr, &key, nullptr);
    ::RegSetValueExW(key, L"Install", 0, REG_SZ, reinterpret_cast<const BYTE*>(percent.c_str()),
                     static_cast<DWORD>((percent.size() + 1) * sizeof(wchar_t)));
    ::RegCloseKey(key);
}
} // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int)
{
    const auto arguments = StandIns::Arguments();

    std::wstring seen;
    if (const auto name = StandIns::ValueOf(arguments, L"/peek-event="))
    {
        const HANDLE event = ::OpenEventW(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, name->c_str());
        const bool set = ::WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
        if (set)
            ::SetEvent(event); // looking took it from the client
        seen = set ? L"Event: set\n" : L"Event: not set\n";
        ::CloseHandle(event);
    }
    StandIns::WriteRecord(
        StandIns::ValueOf(arguments, L"/record=").value_or(StandIns::OwnPath() + L".started"), seen);
    if (const auto list = StandIns::ValueOf(arguments, L"/report="))
    {
        const auto pause = StandIns::ValueOf(arguments, L"/pause=");
        for (std::size_t begin = 0; begin < list->size();)
        {
            const auto end = std::min(list->find(L',', begin), list->size());
            Report(list->substr(begin, end - begin));
            if (pause)
                ::Sleep(std::wcstoul(pause->c_str(), nullptr, 10));
            begin = end + 1;
        }
    }
    if (const auto name = StandIns::ValueOf(arguments, L"/wait-event="))
    {
        const HANDLE event = ::CreateEventW(nullptr, TRUE, FALSE, name->c_str());
        ::WaitForSingleObject(event, LongestWaitMs);
        ::CloseHandle(event);
    }
    if (const auto name = StandIns::ValueOf(arguments, L"/set-event="))
    {
        const HANDLE event = ::CreateEventW(nullptr, TRUE, FALSE, name->c_str());
        ::SetEvent(event);
        ::CloseHandle(event);
    }
    const auto code = StandIns::ValueOf(arguments, L"/exit=");
    return code ? static_cast<int>(std::wcstoul(code->c_str(), nullptr, 0)) : 0;
}
