#pragma once

#include "Tests/Support/Platform.h"

#include <windows.h>

#include <stdexcept>
#include <string>

namespace Tests
{
/// Where nothing is given, the program has what this process has.
struct StartOptions
{
    const wchar_t* Folder = nullptr;
    /// Whose rights the program gets.
    HANDLE Token = nullptr;
    /// What the program and all that it starts belong to from their first moment.
    HANDLE Job = nullptr;
    /// Where its output goes; must be inheritable, and nothing else should be.
    HANDLE Output = nullptr;
};

/// Starts a program without a console and further standard streams; throws std::runtime_error when that
/// fails. Wine now and then can't on a busy machine and says that the error is its own: only then it is tried
/// again.
inline LS::System::Win32::CKernelHandle StartProcess(std::wstring commandLine,
                                                     const StartOptions& options = {})
{
    constexpr unsigned MostAttempts = 5;
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    // As a client may do it that shows no console of its own; the updater's dialog is seen all the same. (On
    // Windows the first ShowWindow of a process takes this value; Wine's doesn't.)
    startup.dwFlags = STARTF_USESTDHANDLES | STARTF_USESHOWWINDOW;
    startup.wShowWindow = SW_HIDE;
    startup.hStdOutput = startup.hStdError = options.Output;
    PROCESS_INFORMATION process = {};
    constexpr DWORD Flags = DETACHED_PROCESS | CREATE_SUSPENDED;
    const auto create = [&](auto function, auto... token) {
        return function(token..., nullptr, commandLine.data(), nullptr, nullptr, options.Output != nullptr,
                        Flags, nullptr, options.Folder, &startup, &process);
    };
    const auto start = [&]() -> BOOL {
        if (!options.Token)
            return create(::CreateProcessW);
        if (IsWine())
            return create(::CreateProcessAsUserW, options.Token);
        // The other one is for services there, and this one for administrators; Wine has only the other.
        return ::CreateProcessWithTokenW(options.Token, 0, nullptr, commandLine.data(), Flags, nullptr,
                                         options.Folder, &startup, &process);
    };
    for (unsigned attempt = 1;; ++attempt)
    {
        if (start())
            break;
        const DWORD error = ::GetLastError();
        if (error != ERROR_INTERNAL_ERROR || attempt == MostAttempts)
            throw std::runtime_error("can't start a program, error " + std::to_string(error));
    }
    const LS::System::Win32::CKernelHandle thread(process.hThread);
    LS::System::Win32::CKernelHandle started(process.hProcess);
    if (options.Job)
        ::AssignProcessToJobObject(options.Job, started.Get());
    ::ResumeThread(thread.Get());
    return started;
}
} // namespace Tests
