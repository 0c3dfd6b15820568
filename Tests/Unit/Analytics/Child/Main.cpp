// A process that shares the analytics queue with others, for the tests to watch and to end at any point.
//
//     AnalyticsChild append|both|send BASEFOLDER ENDPOINT TAG COUNT SHARED SIGNALAT
//     AnalyticsChild run PARTNER SESSION COUNT
//
// append: COUNT records with the labels TAG-0, TAG-1, ...; both: the same, sending meanwhile; send: only
// sends. SHARED names a section that holds ChildProgress and, with "-reached", an event that is set before
// record SIGNALAT is appended. run: a run's analytics from beginning to end, with COUNT events.
#include "Ls/System/String/Convert.h"
#include "Ls/System/Win32/UniqueHandle.h"
#include "Tests/Unit/Analytics/ChildProgress.h"
#include "Tests/Unit/Analytics/TestQuery.h"
#include "Updater/Analytics/AnalyticsSender.h"
#include "Updater/Analytics/RunAnalytics.h"

#include <windows.h>

#include <stdlib.h>

#include <string>

using namespace LS::System;

namespace
{
int ShareQueue(wchar_t** arguments)
{
    const std::wstring mode = arguments[1];
    const std::string tag = LS::WideToAnsi(arguments[4]);
    const long count = ::_wtol(arguments[5]);
    const std::wstring shared = arguments[6];
    const long signalAt = ::_wtol(arguments[7]);

    const Win32::CKernelHandle section(::OpenFileMappingW(FILE_MAP_WRITE, FALSE, shared.c_str()));
    auto* const progress =
        static_cast<volatile ChildProgress*>(::MapViewOfFile(section.Get(), FILE_MAP_WRITE, 0, 0, 0));
    const Win32::CKernelHandle reached(
        ::OpenEventW(EVENT_MODIFY_STATE, FALSE, (shared + L"-reached").c_str()));
    if (!progress || !reached)
        return 3;

    const auto queue = MakeRef<CAnalyticsQueue>(arguments[2], L"", L"LSAnalytics.dat");
    const auto sender = MakeRef<CAnalyticsSender>(queue, LS::WideToAnsi(arguments[3]));
    for (long i = 0; i < count && mode != L"send"; ++i)
    {
        const std::string query = QueryOf(tag + "-" + std::to_string(i));
        if (i == signalAt)
            ::SetEvent(reached.Get());
        progress->Begun = i + 1;
        if (!queue->Append(query))
            return 4;
        progress->Done = i + 1;
        if (mode == L"both")
            sender->EnsureRunning(SenderSettings());
    }
    if (mode != L"append")
        sender->FlushAndStop(600000);
    return 0;
}
} // namespace

int wmain(int count, wchar_t** arguments)
{
    if (count == 8)
        return ShareQueue(arguments);
    if (count != 5)
        return 2;
    CRunAnalytics::Begin(arguments[2], L"", arguments[3]);
    for (long i = 0; i < ::_wtol(arguments[4]); ++i)
        CRunAnalytics::UpdateEvent(L"Update", i);
    CRunAnalytics::End();
    return 7;
}
