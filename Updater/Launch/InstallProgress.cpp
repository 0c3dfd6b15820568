#include "Updater/Launch/InstallProgress.h"

#include "Ls/System/Util/Log.h"
#include "Ls/System/Win32/RegistryKey.h"

#include <cstdlib>

float ReadInstallPercent() noexcept
{
    try
    {
        const LS::System::Win32::CRegistryKey key(L"HKEY_LOCAL_MACHINE\\Software\\Larkspur\\InstallerStatus",
                                                  true);
        // The leading number; 0 when there is none.
        return static_cast<float>(_wtof(key.GetString(L"Install", L"100.0").c_str()));
    }
    catch (...)
    {
        LS_LOG_INFO("LaunchEXE() : Exception (...) caught waiting for ShellExecd process to terminate");
        return 0.0F;
    }
}
