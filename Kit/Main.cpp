// Runs every test case of the test programs beside it, each in a process of its own, and writes report.txt
// into the folder above. What it changes of the machine is put back at the end, also after Ctrl+C.
//   KitRunner [/restore] [PROGRAM...]
// With PROGRAM ("NetTests") only these; with /restore only what an earlier run left behind is put back.
#include "Kit/Cases.h"
#include "Kit/Machine.h"
#include "Ls/System/String/Convert.h"
#include "Ls/System/String/Printf.h"
#include "Tests/Support/Kit.h"
#include "Tests/Support/Platform.h"
#include "Tests/Support/TempFolder.h"

#include <algorithm>
#include <cstdio>

namespace fs = std::filesystem;
using LS::System::Win32::CFileHandle;
using LS::System::Win32::CKernelHandle;

namespace
{
/// Set by Ctrl+C and by the window's end; and when all has been put back.
HANDLE g_Stop = nullptr, g_Done = nullptr;

BOOL WINAPI OnControl(DWORD)
{
    ::SetEvent(g_Stop);
    ::WaitForSingleObject(g_Done, INFINITE); // closing the window ends the process when this returns
    return TRUE;
}

class CReport
{
public:
    explicit CReport(const fs::path& path) :
        m_File(
            ::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr))
    {
        if (!m_File)
            throw std::runtime_error("can't write report.txt");
    }
    /// With lines that end with a line feed, with or without carriage return; shown as well. Zeros, of which
    /// a log's first line has many, are left out.
    void Write(const std::string& text, bool show = true) const
    {
        std::string lines;
        for (const char c : text)
            lines += c == '\r' || c == '\0' ? "" : c == '\n' ? "\r\n" : std::string(1, c);
        DWORD written = 0;
        ::WriteFile(m_File.Get(), lines.data(), static_cast<DWORD>(lines.size()), &written, nullptr);
        if (show)
            std::printf("%s", text.c_str()), std::fflush(stdout);
    }

private:
    CFileHandle m_File;
};

struct Counts
{
    unsigned Passed = 0, Failed = 0, LeftOut = 0;
};

/// Lines that say which part of a case was left out.
std::string Notes(const std::string& output)
{
    std::string notes, last;
    for (std::size_t at = 0; (at = output.find("left out: ", at)) != std::string::npos; ++at)
        if (const std::string line = output.substr(at, output.find_first_of("\r\n", at) - at); line != last)
            notes += "                    " + (last = line) + "\n";
    return notes;
}

void RunProgram(const fs::path& program, const std::wstring& scratch, const CReport& report, Counts& counts)
{
    report.Write("\n" + program.stem().string() + "\n");
    std::vector<Case> cases;
    try
    {
        cases = ListCases(program.wstring(), scratch, g_Stop);
    }
    catch (const std::exception& failure)
    {
        ++counts.Failed;
        return report.Write(std::string("  FAILED: ") + failure.what() + "\n");
    }
    for (const Case& one : cases)
    {
        if (::WaitForSingleObject(g_Stop, 0) == WAIT_OBJECT_0)
            return;
        if (!one.LeftOut.empty())
        {
            ++counts.LeftOut;
            report.Write("  left out          " + one.Name + ": " + one.LeftOut + "\n");
            continue;
        }
        const Result result = RunCase(program.wstring(), one, scratch, g_Stop);
        ++(result.Passed ? counts.Passed : counts.Failed);
        report.Write(
            LS::Printf("  %s %7.1f s  ", result.Passed ? "passed" : "FAILED", result.Milliseconds / 1000.0) +
            one.Name + "\n" + Notes(result.Output));
        if (!result.Passed)
            report.Write("\n" + result.Output + "\n", false);
    }
}

/// The report's last line says whether all passed.
void RunAll(const std::vector<std::wstring>& wanted, const std::wstring& temp, const CReport& report)
{
    SYSTEMTIME now = {};
    ::GetSystemTime(&now);
    report.Write(LS::Printf("Updater test kit %s\n%04d-%02d-%02d %02d:%02d:%02d UTC\n", LS_KIT_NAME,
                            now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond) +
                 Machine::Describe());
    const ULONGLONG begin = ::GetTickCount64();
    Counts counts;
    std::vector<fs::path> programs;
    for (const auto& entry : fs::directory_iterator(Tests::InKit(L"")))
    {
        const std::wstring name = entry.path().stem().wstring();
        if (entry.path().extension() == L".exe" && name.ends_with(L"Tests") &&
            (wanted.empty() || std::find(wanted.begin(), wanted.end(), name) != wanted.end()))
            programs.push_back(entry.path());
    }
    std::sort(programs.begin(), programs.end());
    for (const fs::path& program : programs)
        RunProgram(program, temp + L"\\output.txt", report, counts);

    const bool stopped = ::WaitForSingleObject(g_Stop, 0) == WAIT_OBJECT_0;
    const bool good = counts.Failed == 0 && counts.Passed > 0 && !stopped;
    report.Write(LS::Printf("\n%u passed, %u failed, %u left out, %u seconds\n", counts.Passed, counts.Failed,
                            counts.LeftOut, static_cast<unsigned>((::GetTickCount64() - begin) / 1000)));
    if (!Tests::IsElevated())
        report.Write(
            "For those that need an administrator: right-click run-tests.cmd, \"Run as administrator\".\n");
    const std::string but = counts.LeftOut > 0 ? ", " + std::to_string(counts.LeftOut) + " LEFT OUT" : "";
    report.Write(stopped ? "BROKEN OFF\n" : good ? "ALL PASSED" + but + "\n" : "NOT ALL PASSED\n");
    if (!good)
        throw std::runtime_error("see report.txt");
}

void Main(const std::vector<std::wstring>& arguments)
{
    const CKernelHandle alone(::CreateMutexW(nullptr, FALSE, L"LsTestKit"));
    if (::GetLastError() == ERROR_ALREADY_EXISTS)
        throw std::runtime_error("the tests are running already");
    Machine::PutBack(); // what a run that was killed has left
    if (!arguments.empty() && arguments[0] == L"/restore")
        return;
    const CReport report(Tests::InKit(L"..\\report.txt"));
    // Short, since paths have an end; the tests' own folders come into it.
    const Tests::CTempFolder temp(L"LsKit");
    for (const wchar_t* name : {L"TMP", L"TEMP"})
        ::SetEnvironmentVariableW(name, temp.Path().c_str());
    ::SetEnvironmentVariableW(L"LS_KIT", L"1");
    Machine::SetAside(temp.Path());
    try
    {
        RunAll(arguments, temp.Path(), report);
    }
    catch (...)
    {
        Machine::PutBack();
        throw;
    }
    Machine::PutBack();
}
} // namespace

int wmain(int count, wchar_t** arguments)
{
    int code = 0;
    const CKernelHandle stop(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const CKernelHandle done(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    g_Stop = stop.Get(), g_Done = done.Get();
    ::SetConsoleCtrlHandler(OnControl, TRUE);
    ::SetConsoleOutputCP(CP_UTF8);
    try
    {
        Main({arguments + 1, arguments + count});
    }
    catch (const std::exception& failure)
    {
        std::printf("%s\n", failure.what());
        code = 1;
    }
    ::SetEvent(g_Done);
    return code;
}
