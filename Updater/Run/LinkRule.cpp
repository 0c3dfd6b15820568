#include "Updater/Run/LinkRule.h"

#include "Ls/System/Io/Link.h"
#include "Ls/System/Util/PerUserAppDataPath.h"
#include "Updater/Launch/ElevationTest.h"

#include <windows.h>

#include <shlobj.h>

using namespace LS::System;

void FollowNoLinksWhenElevated()
{
    if (!IsProcessElevated(::GetCurrentProcess()))
        return;
    const std::wstring folder = Util::GetPerUserAppDataPath();
    if (!folder.empty())
        IO::FollowNoLinksBelow(folder);
    // An older analytics queue may lie in the local one.
    wchar_t local[MAX_PATH] = {};
    if (::SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, local) == S_OK)
        IO::FollowNoLinksBelow(local);
}
