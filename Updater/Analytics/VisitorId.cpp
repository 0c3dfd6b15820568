#include "Updater/Analytics/VisitorId.h"

#include "Ls/System/Exception.h"
#include "Ls/System/Io/Directory.h"
#include "Ls/System/Io/File.h"
#include "Ls/System/Io/Link.h"
#include "Ls/System/Io/Path.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Uuid.h"
#include "Ls/System/Win32/MutexOwner.h"
#include "Updater/Settings/IniFile.h"

#include <windows.h>

using namespace LS::System;

namespace
{
constexpr wchar_t Section[] = L"Analytics";
constexpr wchar_t Key[] = L"VisitorID";
constexpr char MutexName[] = "_LSAnalytics{98CA00B7-D428-47a8-8EBE-66ADA4179BB9}_vid";
/// An id is made within milliseconds; behind a process that hangs the run goes on with one of its own.
constexpr std::uint32_t MutexWaitMs = 5000;

/// Empty when the file holds none.
std::wstring ReadVisitorId(const std::wstring& iniPath)
{
    if (!IO::CFile::Exists(iniPath))
        return {};
    CIniFile ini;
    try
    {
        ini.LoadFile(iniPath);
        if (ini.ContainsSectionName(Section))
            return ini.GetValue(Section, Key);
    }
    catch (const CException&) // the key is missing; the file has told the log
    {
    }
    return {};
}

bool SaveVisitorId(const std::wstring& iniPath, const std::wstring& id)
{
    try
    {
        IO::CDirectory::CreateDirectory(std::wstring(IO::FolderOf(iniPath)));
    }
    catch (const CException&) // the write fails for the same reason
    {
    }
    // The system opens the file by its path, so a link that comes up in between would be followed: that
    // one function has no other form. What it writes is of no use to whoever made the link.
    if (IO::LinkInWay(iniPath))
        ::SetLastError(ERROR_CANT_RESOLVE_FILENAME);
    else if (::WritePrivateProfileStringW(Section, Key, id.c_str(), iniPath.c_str()))
        return true;
    LS_LOG_FAILURE(L"GetVisitorID() : Not saved in %s : LastError=%u", iniPath.c_str(), ::GetLastError());
    return false;
}

/// Called by one process at a time, so that two first runs don't each make an id; the second one finds that
/// of the first.
std::wstring MakeVisitorId(const std::wstring& userIniPath)
{
    std::wstring id = ReadVisitorId(userIniPath);
    if (!id.empty())
        return id;
    LS_LOG_INFO("GetVisitorID() : Creating new value");
    id = UUIDToString(CreateUUID());
    if (SaveVisitorId(userIniPath, id))
        LS_LOG_INFO("GetVisitorID() : Saved value");
    return id;
}
} // namespace

std::wstring FindOrMakeVisitorId(const std::wstring& userIniPath, const std::wstring& machineIniPath)
{
    std::wstring id = ReadVisitorId(userIniPath);
    if (!id.empty())
        return id;
    id = ReadVisitorId(machineIniPath);
    if (!id.empty())
    {
        SaveVisitorId(userIniPath, id);
        return id;
    }

    const Win32::CMutex mutex = Win32::CMutex::Shared(MutexName);
    const Win32::CMutexOwner owner(mutex, nullptr, MutexWaitMs);
    return MakeVisitorId(userIniPath);
}
