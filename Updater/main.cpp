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
    return code;
}
