#include "Updater/Run/DllSearch.h"
#include "Updater/Run/UpdateRun.h"

#include <windows.h>

#include <cstdlib>

int WINAPI wWinMain(HINSTANCE /*instance*/, HINSTANCE /*previous*/, wchar_t* /*arguments*/, int /*show*/)
{
    ::HeapSetInformation(nullptr, HeapEnableTerminationOnCorruption, nullptr, 0);
    SearchSystemFolderOnly();
    CUpdateRun run;
    return run.Run(::GetCommandLineW(), __argc, __wargv);
}
