#include "Updater/Settings/DebugSettings.h"

#include "Ls/System/Win32/RegistryKey.h"
#include "Updater/Run/RunLog.h"

namespace DebugSettings
{
void Read() noexcept
{
    try
    {
        // Few machines have the key: without it this throws, and all keep their defaults.
        const LS::System::Win32::CRegistryKey key(L"HKEY_LOCAL_MACHINE\\Software\\Larkspur\\Debugging", true);
        const auto read = [&key](const wchar_t* name, std::uint32_t& value) {
            value = key.GetUint32(name, value);
        };
        read(L"UpdaterPauseBeforeDialogMs", UpdaterPauseBeforeDialogMs);
        read(L"UpdaterMinDialogShowTimeMs", UpdaterMinDialogShowTimeMs);
        read(L"UpdaterMinDownloadTimeMs", UpdaterMinDownloadTimeMs);
        read(L"UpdaterMinInstallTimeMs", UpdaterMinInstallTimeMs);
    }
    catch (...)
    {
        LS_LOG_RUN("_tWinMain() : reading debug reg values threw");
    }
}
} // namespace DebugSettings
