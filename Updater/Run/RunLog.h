#pragma once

#include "Ls/System/Util/Log.h"

#include <string>

/// Moves the process's log to the product's own file, "<product>_Update.log" in the folder
/// "<application data>\Larkspur\Larkspur Games\App\Update", in place of the one that an earlier run left, and
/// writes its first lines.
/// Throws CException when the folder can't be made or the file's path is too long to be opened.
void OpenRunLog(const std::wstring& productName, const wchar_t* commandLine);

// The run's own lines name the program's entry as their place, as their texts do, whichever of the driver's
// functions writes them.
#define LS_LOG_RUN_AT(level, ...)                                                                            \
    ::LS::System::Util::CLog::Write(                                                                         \
        ::LS::System::Util::LogLocation{"main.cpp", __LINE__, "wWinMain", (level)}, __VA_ARGS__)
#define LS_LOG_RUN(...) LS_LOG_RUN_AT(::LS::System::Util::LogLevelInformation, __VA_ARGS__)
#define LS_LOG_RUN_FAILURE(...) LS_LOG_RUN_AT(::LS::System::Util::LogLevelFailure, __VA_ARGS__)
