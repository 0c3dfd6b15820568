#include "Updater/Launch/ElevationTest.h"

#include "Ls/System/Win32/UniqueHandle.h"

using namespace LS::System::Win32;

bool IsProcessElevated(HANDLE process) noexcept
{
    CKernelHandle token;
    TOKEN_ELEVATION elevation = {};
    DWORD size = 0;
    if (::OpenProcessToken(process, TOKEN_QUERY, token.Receive()) &&
        ::GetTokenInformation(token.Get(), TokenElevation, &elevation, sizeof(elevation), &size))
        return elevation.TokenIsElevated != 0;

    CRegistryKeyHandle key;
    return ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE", 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE,
                             nullptr, key.Receive(), nullptr) == ERROR_SUCCESS;
}
