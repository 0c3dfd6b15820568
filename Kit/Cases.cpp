#include "Kit/Cases.h"

#include "Ls/System/String/Convert.h"
#include "Tests/Support/StartProcess.h"
#include "Tests/Support/TempFolder.h"

#include <versionhelpers.h>

#include <cstring>

using LS::System::Win32::CFileHandle;
using LS::System::Win32::CKernelHandle;

namespace
{
/// Only a hang takes this long.
constexpr DWORD LongestMs = 1200000;

CKernelHandle MakeJob()
{
    CKernelHandle job(::CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (!::IsWindows8OrGreater()) // a process has one job there, and the tests put theirs into their own
        limits.BasicLimitInformation.LimitFlags |= JOB_OBJECT_LIMIT_SILENT_BREAKAWAY_OK;
    ::SetInformationJobObject(job.Get(), JobObjectExtendedLimitInformation, &limits, sizeof(limits));
    return job;
}

/// Output of the program; the exit code goes to code, STILL_ACTIVE when it had to be ended.
std::string Run(const std::wstring& commandLine, const std::wstring& scratch, HANDLE stop, DWORD& code)
{
    {
        SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
        const CFileHandle output(::CreateFileW(scratch.c_str(), GENERIC_WRITE,
                                               FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, CREATE_ALWAYS,
                                               0, nullptr));
        const CKernelHandle job = MakeJob();
        const auto process = Tests::StartProcess(commandLine, {.Job = job.Get(), .Output = output.Get()});
        const HANDLE handles[] = {process.Get(), stop};
        code = STILL_ACTIVE;
        if (::WaitForMultipleObjects(2, handles, FALSE, LongestMs) == WAIT_OBJECT_0)
            ::GetExitCodeProcess(process.Get(), &code);
        ::TerminateJobObject(job.Get(), 1);
        ::WaitForSingleObject(process.Get(), 10000);
    }
    return Tests::ReadBytes(scratch);
}

/// Of an XML element; empty when it has no such attribute.
std::string Attribute(const std::string& element, const std::string& name)
{
    const std::string begin = " " + name + "=\"";
    const auto at = element.find(begin);
    if (at == std::string::npos)
        return {};
    const auto from = at + begin.size();
    std::string text = element.substr(from, element.find('"', from) - from);
    for (const auto& [escaped, plain] :
         {std::pair{"&quot;", "\""}, {"&lt;", "<"}, {"&gt;", ">"}, {"&amp;", "&"}})
        for (std::size_t found; (found = text.find(escaped)) != std::string::npos;)
            text.replace(found, std::strlen(escaped), plain);
    return text;
}
} // namespace

std::vector<Case> ListCases(const std::wstring& program, const std::wstring& scratch, HANDLE stop)
{
    DWORD code = 0;
    const std::string list = Run(L"\"" + program + L"\" --no-skip -ltc -r=xml", scratch, stop, code);
    std::vector<Case> cases;
    for (std::size_t at = 0; (at = list.find("<TestCase ", at)) != std::string::npos; ++at)
    {
        const std::string element = list.substr(at, list.find("/>", at) - at);
        Case one = {Attribute(element, "name"), ""};
        if (Attribute(element, "skipped") == "true")
            one.LeftOut = Attribute(element, "testsuite");
        // What is skipped without a reason, or by this name, is for other cases to start.
        if (one.Name.rfind("child:", 0) != 0 &&
            (Attribute(element, "skipped") != "true" || !one.LeftOut.empty()))
            cases.push_back(std::move(one));
    }
    if (cases.empty())
        throw std::runtime_error("it doesn't tell its test cases, code " + std::to_string(code));
    return cases;
}

Result RunCase(const std::wstring& program, const Case& one, const std::wstring& scratch, HANDLE stop)
{
    std::string filter = one.Name; // '?' is any character
    for (char& c : filter)
        if (std::string(",\\\"*").find(c) != std::string::npos || static_cast<unsigned char>(c) > 126)
            c = '?';
    const ULONGLONG begin = ::GetTickCount64();
    DWORD code = 0;
    Result result;
    result.Output =
        Run(L"\"" + program + L"\" --no-colors \"-tc=" + LS::AnsiToWide(filter) + L"\"", scratch, stop, code);
    result.Milliseconds = static_cast<unsigned>(::GetTickCount64() - begin);
    // Under Wine a crash may end with 0.
    result.Passed = code == 0 && result.Output.find("Status: SUCCESS!") != std::string::npos &&
                    result.Output.find(" 1 passed | 0 failed |") != std::string::npos;
    if (!result.Passed)
        result.Output +=
            "(exit code " + (code == STILL_ACTIVE ? "none: it was ended" : std::to_string(code)) + ")\n";
    return result;
}
