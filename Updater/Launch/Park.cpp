#include "Updater/Launch/Park.h"

#include "Ls/System/ExitCodeException.h"
#include "Ls/System/Io/File.h"
#include "Ls/System/Io/Link.h"
#include "Ls/System/Io/Path.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Uuid.h"
#include "Updater/Analytics/RunAnalytics.h"
#include "Updater/Fetch/PatchPath.h"
#include "Updater/Launch/LaunchCommands.h"
#include "Updater/Launch/ShellStart.h"
#include "Updater/Run/ExitCodes.h"

#include <windows.h>

using namespace LS::System;

namespace
{
/// A Park that has just been started needs a moment before it hears the signal to give up.
constexpr DWORD ParkStartMs = 1000;

std::wstring FindPark(const std::wstring& parkPath)
{
    if (!parkPath.empty())
    {
        if (IO::CFile::Exists(parkPath))
            return parkPath;
        CRunAnalytics::ErrorEvent(L"ParkMissing1", parkPath);
        LS_LOG_INFO("LaunchEXE() : CFile::Exists failed for Park.exe : throw out");
    }
    else
    {
        const std::wstring ownFolder = std::wstring(IO::FolderOf(IO::ProgramPath())) + L"\\";
        std::wstring found = ownFolder + L"Park.exe";
        if (IO::CFile::Exists(found))
            return found;
        found = ownFolder + L"PatchTools\\Park.exe";
        if (IO::CFile::Exists(found))
            return found;
        CRunAnalytics::ErrorEvent(L"ParkMissing2", found);
        LS_LOG_INFO(L"LaunchEXE() : CFile::Exists failed for ParkSourceExe( %s ) : throw out", found.c_str());
    }
    LS_LOG_FAILURE("CFile::Exists failed for Park.exe");
    throw CExitCodeException(ExitCodes::ParkNotFound);
}
} // namespace

CPark::CPark(const std::wstring& parkPath, const std::wstring& productName)
{
    const std::wstring source = FindPark(parkPath);
    m_DataDir = GetDataDir(productName);
    m_CopyPath = ParkCopyPath(m_DataDir, UUIDToString(CreateUUID()));
    // The folder has just been judged; one that was exchanged before the copy shows now.
    if (!::CopyFileW(source.c_str(), m_CopyPath.c_str(), FALSE) || IO::LinkInWay(m_CopyPath))
    {
        LS_LOG_INFO("LaunchEXE() : CopyFile failed for Park.exe : throw out");
        IO::DeleteUserFile(m_CopyPath);
        LS_LOG_FAILURE("CopyFile failed for Park.exe");
        throw CExitCodeException(ExitCodes::ParkNotCopied);
    }
}

CPark::~CPark()
{
    if (!m_IsWaiting)
        return;
    LS_LOG_INFO("LaunchEXE() : The patch wasn't started, telling park to Terminate");
    Terminate();
}

void CPark::Start(const std::wstring& commandLine, HWND owner)
{
    const ShellStart start = StartThroughShell(m_CopyPath, commandLine, m_DataDir, false, owner);
    if (!start.Started)
    {
        ::SetLastError(start.LastError); // the mark reports it
        CRunAnalytics::ErrorEvent(L"ShellExec_Park", m_CopyPath);
        LS_LOG_INFO("LaunchEXE() : ShellExecuteEx() failed for Park : hInstApp(error code) = %d : throw out",
                    start.InstanceCode);
        LS_LOG_FAILURE("ShellExecuteEx failed for Park.exe");
        throw CExitCodeException(ExitCodes::ParkNotStarted);
    }
    m_IsWaiting = true;
}

void CPark::Terminate() noexcept
{
    m_IsWaiting = false;
    ::Sleep(ParkStartMs);
    try
    {
        StartThroughShell(m_CopyPath, ParkTerminateCommandLine(), m_DataDir, false, nullptr);
    }
    catch (...) // out of memory: the run ends with what went wrong first
    {
    }
}
