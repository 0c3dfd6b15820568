#pragma once

#include "Ls/System/Io/Path.h"
#include "Tests/Support/StartProcess.h"

#include <windows.h>

#include <string>

namespace Tests
{
/// Another process, without standard streams; ended with this object.
class CChildProcess
{
public:
    explicit CChildProcess(const std::wstring& commandLine) : m_Process(StartProcess(commandLine)) {}
    /// This program with one of its cases that are skipped otherwise, which finds the input in LS_TEST_INPUT.
    CChildProcess(const std::wstring& testCase, const std::wstring& input) :
        CChildProcess(
            (::SetEnvironmentVariableW(L"LS_TEST_INPUT", input.c_str()),
             L"\"" + LS::System::IO::ProgramPath() + L"\" --no-skip --out=nul \"-tc=" + testCase + L"\""))
    {
    }
    CChildProcess(const CChildProcess&) = delete;
    ~CChildProcess()
    {
        ::TerminateProcess(m_Process.Get(), 99);
        ::WaitForSingleObject(m_Process.Get(), INFINITE);
    }
    /// STILL_ACTIVE when it doesn't end in that time, which only a hang takes. 0: every check of its case
    /// held.
    DWORD ExitCode(DWORD milliseconds = 300000) const
    {
        DWORD code = STILL_ACTIVE;
        ::WaitForSingleObject(m_Process.Get(), milliseconds);
        ::GetExitCodeProcess(m_Process.Get(), &code);
        return code;
    }

private:
    LS::System::Win32::CKernelHandle m_Process;
};
} // namespace Tests
