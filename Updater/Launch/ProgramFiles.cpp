#include "Updater/Launch/ProgramFiles.h"

#include "Ls/System/ExitCodeException.h"
#include "Ls/System/Util/Log.h"
#include "Updater/Run/ExitCodes.h"

#include <windows.h>

#include <shlobj.h>

using LS::System::CExitCodeException;

std::wstring GetProgramFilesX86Path()
{
    BOOL isWow64 = FALSE;
    if (!::IsWow64Process(::GetCurrentProcess(), &isWow64))
    {
        LS_LOG_INFO("GetProgramFilesX86Path() : !IsWow64Process( GetCurrentProcess(), &Wow64Process ) : "
                    "throwing out");
        LS_LOG_FAILURE("IsWow64Process failed");
        throw CExitCodeException(ExitCodes::Wow64Unknown);
    }

    wchar_t buffer[MAX_PATH + 1] = {};
    if (!::SHGetSpecialFolderPathW(nullptr, buffer, isWow64 ? CSIDL_PROGRAM_FILESX86 : CSIDL_PROGRAM_FILES,
                                   TRUE))
    {
        LS_LOG_INFO("GetProgramFilesX86Path() : !SHGetSpecialFolderPath( NULL, Buf, Wow64Process ? "
                    "CSIDL_PROGRAM_FILESX86 : CSIDL_PROGRAM_FILES, TRUE ) : throwing out");
        LS_LOG_FAILURE("SHGetSpecialFolderPath failed");
        throw CExitCodeException(ExitCodes::NoProgramFilesFolder);
    }
    std::wstring folder = buffer;
    if (!folder.empty() && folder.back() == L'\\') // redirected to the root of a drive
        folder.pop_back();
    LS_LOG_INFO(L"GetProgramFilesX86Path() : Returning : %s", folder.c_str());
    return folder;
}
