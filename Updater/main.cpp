#include "Ls/System/Util/Log.h"
#include "Updater/Run/CrashEnd.h"
#include "Updater/Run/DllSearch.h"
#include "Updater/Run/UpdateRun.h"

#include <windows.h>

#include <cstdlib>

int WINAPI wWinMain(HINSTANCE /*instance*/, HINSTANCE /*previous*/, wchar_t* /*arguments*/, int /*show*/)
{
    ::HeapSetInformation(nullptr, HeapEnableTerminationOnCorruption, nullptr, 0);
    SearchSystemFolderOnly();
    EndCrashesWithOwnCode();
    CUpdateRun run;
    const int code = run.Run(::GetCommandLineW(), __argc, __wargv);
    LS::System::Util::CLog::DrainStandardOutput();
    // Not through the libraries' own ends: a sender or a request may have been left behind in one of them,
    // and a lock that its thread holds would end the process with another code, or not at all. The log is
    // written line by line, so nothing of it is lost.
    for (;;)
        ::TerminateProcess(::GetCurrentProcess(), static_cast<UINT>(code));
}
