#include "Updater/Launch/ElevationService.h"

#include "Ls/System/String/Printf.h"
#include "Ls/System/Util/Log.h"
#include "Updater/Analytics/RunAnalytics.h"
#include "Updater/Launch/COMInitializer.h"
#include "Updater/Launch/COMOwners.h"
#include "Updater/Launch/InstallDispatchers.h"
#include "Updater/Launch/LaunchCommands.h"
#include "Updater/Launch/ServerPath.h"

#include <windows.h>

#include <objbase.h>

#include <utility>

using LS::System::Win32::CKernelHandle;

namespace
{
/// What came of one call.
struct ServiceAnswer
{
    HRESULT Result = E_FAIL;
    CKernelHandle Process;

    bool IsSuccess() const noexcept { return SUCCEEDED(Result) && Process; }
};

CKernelHandle HandleFrom(LONG number) noexcept
{
    // Sign-extended, as handles are between processes of different bitness.
    return CKernelHandle(LongToHandle(number));
}

/// None for what isn't a process: a number that stands for this one or its thread (-1, -2, and others up to
/// -6), a handle of another kind, or of the updater itself, which would wait for its own end.
CKernelHandle ProcessFrom(LONG number)
{
    CKernelHandle process = HandleFrom(number);
    if (!process)
        return process;
    // A process that doesn't tell its id, access denied, is one all the same.
    const DWORD id = ::GetProcessId(process.Get());
    if (id == ::GetCurrentProcessId() || (id == 0 && ::GetLastError() == ERROR_INVALID_HANDLE))
    {
        LS_LOG_FAILURE("LaunchEXE() : What the elevation service handed over is no process : %d", number);
        process.Reset();
    }
    return process;
}

/// call(process, secondHandle) makes the call.
template <class Call>
ServiceAnswer Ask(Call call)
{
    LONG process = 0;
    LONG secondHandle = 0;
    ServiceAnswer answer;
    answer.Result = call(&process, &secondHandle);
    if (SUCCEEDED(answer.Result)) // what a failed call leaves behind are no handles
    {
        answer.Process = ProcessFrom(process);
        HandleFrom(secondHandle).Reset(); // not needed
    }
    return answer;
}

/// Either generation has this operation.
template <class Dispatcher>
ServiceAnswer AskForProcess(Dispatcher& dispatcher, const PatchCommand& command)
{
    const CBStr file = MakeBStr(Quoted(command.Path));
    const CBStr parameters = MakeBStr(command.Parameters);
    const CBStr folder = MakeBStr(command.Folder);
    return Ask([&](LONG* process, LONG* secondHandle) {
        return dispatcher.ExecuteElevatedProcessAsync(static_cast<LONG>(::GetCurrentProcessId()), file.Get(),
                                                      parameters.Get(), folder.Get(), 0, 0, process,
                                                      secondHandle);
    });
}

ServiceAnswer AskForMsiexec(IInstallDispatcher6& dispatcher, const PatchCommand& command)
{
    const CBStr package = MakeBStr(Quoted(command.Path));
    const CBStr folder = MakeBStr(command.Folder);
    return Ask([&](LONG* process, LONG* secondHandle) {
        return dispatcher.ExecuteElevatedMsiexecAsync(static_cast<LONG>(::GetCurrentProcessId()),
                                                      package.Get(), 1, 1, folder.Get(), 0, 0, process,
                                                      secondHandle);
    });
}

void MarkFailure(const wchar_t* name, HRESULT result)
{
    CRunAnalytics::ErrorEvent(name, LS::Printf(L"hResult=0x%08lX", result));
}

template <class Dispatcher>
HRESULT Create(const CLSID& classId, const IID& interfaceId, CInterfacePointer<Dispatcher>& dispatcher)
{
    return ::CoCreateInstance(classId, nullptr, CLSCTX_ALL, interfaceId,
                              reinterpret_cast<void**>(dispatcher.Receive()));
}

/// None when the service isn't there or can't be created.
CInterfacePointer<IInstallDispatcher6> FindDispatcher6()
{
    CInterfacePointer<IInstallDispatcher6> dispatcher;
    std::wstring serverFolder;
    if (!GetServerPath(CLSID_InstallDispatcher6, serverFolder))
    {
        LS_LOG_INFO("LaunchEXE() : Failed GetServerPath( CLSID_InstallDispatcher6 ) : throw out");
        CRunAnalytics::ErrorEvent(L"ServiceMissing_6", L"NA");
        return dispatcher;
    }
    const HRESULT result = Create(CLSID_InstallDispatcher6, IID_InstallDispatcher6, dispatcher);
    if (FAILED(result))
    {
        LS_LOG_INFO("LaunchEXE() : CoCreateInstance(CLSID_InstallDispatcher6) : hr = 0x%08lx : throw out",
                    result);
        MarkFailure(L"ServiceExists_6", result);
    }
    return dispatcher;
}

CInterfacePointer<IInstallDispatcher5> FindDispatcher5()
{
    CInterfacePointer<IInstallDispatcher5> dispatcher;
    std::wstring serverFolder;
    if (!GetServerPath(CLSID_InstallDispatcher5, serverFolder))
    {
        LS_LOG_INFO("LaunchEXE() : Dispatcher5 not found");
        CRunAnalytics::ErrorEvent(L"ServiceMissing_5", L"NA");
        return dispatcher;
    }
    const HRESULT result = Create(CLSID_InstallDispatcher5, IID_InstallDispatcher5, dispatcher);
    if (FAILED(result))
    {
        LS_LOG_INFO("LaunchEXE() : Got ServerPath Dispatcher5, failed to CoCreate : hr=0x%08lx", result);
        MarkFailure(L"ServiceExists_5", result);
    }
    return dispatcher;
}

CKernelHandle StartThroughDispatcher6(const PatchCommand& command)
{
    const auto dispatcher = FindDispatcher6();
    if (!dispatcher)
        return {};
    LS_LOG_INFO("LaunchEXE() : Service Instance created successfully");
    ServiceAnswer answer;
    if (command.IsPackage)
    {
        answer = AskForMsiexec(*dispatcher.Get(), command);
        LS_LOG_INFO("LaunchEXE() : ExecuteElevatedMsiexecAsync() returned : hr=0x%08lx", answer.Result);
    }
    else
    {
        answer = AskForProcess(*dispatcher.Get(), command);
        LS_LOG_INFO("LaunchEXE() : ExecuteElevatedProcessAsync() returned : hr=0x%08lx", answer.Result);
    }
    if (answer.IsSuccess())
    {
        LS_LOG_INFO("LaunchEXE() : Elevation Service Invoke returned success");
        return std::move(answer.Process);
    }
    LS_LOG_INFO("LaunchEXE() : Elevation Service Invoke returned failure : hr=0x%08lx", answer.Result);
    MarkFailure(L"ServiceInvoke", answer.Result);
    return {};
}

CKernelHandle StartThroughDispatcher5(const PatchCommand& command)
{
    LS_LOG_INFO("LaunchEXE() : Failed to find install dispatcher6, looking for dispatcher5");
    const auto dispatcher = FindDispatcher5();
    if (!dispatcher)
        return {};
    LS_LOG_INFO("LaunchEXE() : Dispatcher5 CoCreated");
    ServiceAnswer answer = AskForProcess(*dispatcher.Get(), command);
    if (answer.IsSuccess())
    {
        LS_LOG_INFO("LaunchEXE() : ExecuteElevatedProcessAsync succeeded");
        return std::move(answer.Process);
    }
    LS_LOG_INFO("LaunchEXE() : ExecuteElevatedProcessAsync failed : hr=0x%08lx", answer.Result);
    MarkFailure(L"ServiceInvoke", answer.Result);
    return {};
}
} // namespace

CKernelHandle StartThroughElevationService(const PatchCommand& command)
{
    const CCOMInitializer com;
    CKernelHandle process = StartThroughDispatcher6(command);
    if (!process && !command.IsPackage)
        process = StartThroughDispatcher5(command);
    return process;
}
