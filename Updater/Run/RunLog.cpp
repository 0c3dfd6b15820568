#include "Updater/Run/RunLog.h"

#include "Ls/System/Io/ValidatePath.h"
#include "Ls/System/ThrowException.h"
#include "Ls/System/Util/DateTime.h"
#include "Ls/System/Util/PerUserAppDataPath.h"

using namespace LS::System;

void OpenRunLog(const std::wstring& productName, const wchar_t* commandLine)
{
    const std::wstring base = Util::GetPerUserAppDataPath();
    if (!base.empty()) // but for a developer's "continue": no file, rather than one in the root of the drive
    {
        const std::wstring folder = base + L"\\Larkspur\\Larkspur Games\\App\\Update";
        const std::wstring path = folder + L"\\" + productName + L"_Update.log";
        // A run whose log could not be opened would go on in silence. The longest valid path is one character
        // longer than what can be opened on every machine.
        IO::ValidatePath(path);
        if (path.size() >= MAX_PATH)
            ThrowException(CException(L"Path was too long:" + path, LS_HERE));
        // The log writes its header over the start of an existing file: only a deleted one gives a clean log.
        Util::CLog::Instance()._SetOutputFile(path, true);
    }

    LS_LOG_RUN("%s", std::string(77, '=').c_str());
    const SYSTEMTIME now = Util::LocalTime();
    LS_LOG_RUN("Update date time stamp is: %d/%d/%d %d:%d:%d", now.wMonth, now.wDay, now.wYear, now.wHour,
               now.wMinute, now.wSecond);
    LS_LOG_RUN(L"_tWinMain() : Command line is: %s", commandLine);
}
