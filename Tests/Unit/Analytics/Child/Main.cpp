// A process that shares the analytics queue with others, for the tests to watch and to end at any point.
//
//     AnalyticsChild append|both|send BASEFOLDER ENDPOINT TAG COUNT
//     AnalyticsChild run PARTNER SESSION COUNT
//
// append: COUNT records with the labels TAG-0, TAG-1, ...; both: the same, sending meanwhile; send: only
// sends. For each record that is in the queue the file BASEFOLDER\TAG grows by a byte. run: a run's analytics
// from beginning to end, with COUNT events.
#include "Ls/System/Win32/UniqueHandle.h"
#include "Tests/Unit/Analytics/Queues.h"
#include "Updater/Analytics/AnalyticsSender.h"
#include "Updater/Analytics/RunAnalytics.h"

int wmain(int count, wchar_t** arguments)
{
    const std::wstring mode = arguments[1];
    const long number = ::_wtol(arguments[count - 1]);
    if (mode == L"run")
    {
        CRunAnalytics::Begin(arguments[2], L"", arguments[3]);
        for (long i = 0; i < number; ++i)
            CRunAnalytics::UpdateEvent(L"Update", i);
        CRunAnalytics::End();
        return 7;
    }
    const LS::System::Win32::CFileHandle progress(
        ::CreateFileW((std::wstring(arguments[2]) + L"\\" + arguments[4]).c_str(), GENERIC_WRITE,
                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, CREATE_ALWAYS, 0, nullptr));
    const auto queue = OpenQueue(arguments[2]);
    const auto sender = LS::System::MakeRef<CAnalyticsSender>(queue, LS::WideToAnsi(arguments[3]));
    for (long i = 0; i < number && mode != L"send"; ++i)
    {
        DWORD written = 0;
        if (!queue->Append(QueryOf(LS::WideToAnsi(arguments[4]) + "-" + std::to_string(i))) ||
            !::WriteFile(progress.Get(), "x", 1, &written, nullptr))
            return 4;
        if (mode == L"both")
            sender->EnsureRunning(SenderSettings());
    }
    if (mode != L"append")
        sender->FlushAndStop(600000);
    return 0;
}
