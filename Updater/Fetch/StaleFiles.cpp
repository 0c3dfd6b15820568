#include "Updater/Fetch/StaleFiles.h"

#include "Ls/System/Io/Link.h"
#include "Ls/System/Io/Path.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Win32/UniqueHandle.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <string_view>

using namespace LS::System;

namespace
{
/// Nobody comes back to a download or a patch after that, and no Park waits for so long.
constexpr std::uint64_t KeptDays = 30;
constexpr std::uint64_t TicksPerDay = 24ULL * 60 * 60 * 10'000'000;

std::uint64_t Ticks(const FILETIME& time) noexcept
{
    return (static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

bool IsProgramOrPackage(std::wstring_view name) noexcept
{
    return IO::HasEnding(name, L".exe") || IO::HasEnding(name, L".msi");
}

/// The patch that a file of a download stands beside; any other file's own name.
std::wstring_view PatchOf(std::wstring_view name) noexcept
{
    for (const std::wstring_view ending : {L".cache", L".downloadstate", L".0", L".1"})
    {
        if (IO::HasEnding(name, ending))
            return name.substr(0, name.size() - ending.size());
    }
    return name;
}

bool IsStale(const WIN32_FIND_DATAW& entry, std::wstring_view patchName, std::uint64_t now) noexcept
{
    if ((entry.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) != 0)
        return false;
    // A copy, such as that of Park, is as old as its original by the time of writing.
    const std::uint64_t newest = std::max(Ticks(entry.ftCreationTime), Ticks(entry.ftLastWriteTime));
    if (newest > now || now - newest <= KeptDays * TicksPerDay)
        return false;
    const std::wstring_view patch = PatchOf(entry.cFileName);
    return IsProgramOrPackage(patch) && !IO::IsSameName(patch, patchName);
}
} // namespace

void DeleteStaleFiles(const std::wstring& dataFolder, const std::wstring& patchName) noexcept
{
    try
    {
        FILETIME time = {};
        ::GetSystemTimeAsFileTime(&time);
        WIN32_FIND_DATAW entry = {};
        const Win32::CFindHandle find(::FindFirstFileW((dataFolder + L"*").c_str(), &entry));
        for (bool more = static_cast<bool>(find); more; more = ::FindNextFileW(find.Get(), &entry))
        {
            if (IsStale(entry, patchName, Ticks(time)) && IO::DeleteUserFile(dataFolder + entry.cFileName))
                LS_LOG_INFO(L"DeleteStaleFiles() : Deleted what nobody uses any more : %s", entry.cFileName);
        }
    }
    catch (const std::exception&) // no memory for a path: a later fetch does it
    {
    }
}
