#include "Updater/Launch/PatchWait.h"

#include "Ls/System/ExitCodeException.h"
#include "Ls/System/Util/Log.h"
#include "Updater/Launch/InstallProgress.h"
#include "Updater/Run/ExitCodes.h"

#include <windows.h>

#include <optional>

using LS::System::CExitCodeException;
using LS::System::Win32::CKernelHandle;

namespace
{
/// Between two looks at the installation's progress.
constexpr DWORD PollMs = 200;
} // namespace

std::uint32_t WaitForPatch(const CKernelHandle& process, const ProgressSink& showProgress)
{
    DWORD waited = WAIT_FAILED;
    while ((waited = ::WaitForSingleObject(process.Get(), PollMs)) == WAIT_TIMEOUT)
    {
        LS_LOG_INFO("LaunchEXE() : Launched process : Waiting for it to terminate");
        const std::optional<int> progress = InstallBand(ReadInstallPercent());
        if (progress && showProgress)
            showProgress(*progress);
    }
    if (waited != WAIT_OBJECT_0)
    {
        // To the client, exit code 0 says that the patch has ended, and the exit code that could be read of a
        // running process (259) would pass for the patch's own.
        LS_LOG_FAILURE("LaunchEXE() : Can't wait for the launched process : LastError=%u", ::GetLastError());
        throw CExitCodeException(ExitCodes::PatchNotStarted);
    }

    LS_LOG_INFO("LaunchEXE() : Finished waiting for process to exit");
    DWORD exitCode = 1;
    ::GetExitCodeProcess(process.Get(), &exitCode);
    return exitCode;
}
