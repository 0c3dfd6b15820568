#include "Tests/Support/UpdaterProcess.h"

#include "Tests/Support/StartProcess.h"

#include <algorithm>
#include <stdexcept>

namespace Tests
{
namespace
{
using LS::System::Win32::CKernelHandle;

/// How often the client looks for message boxes between events.
constexpr DWORD LookMs = 20;

/// The updater gets no more rights to it than it needs. A hostile product name may allow no event of that
/// name: then one that nobody sets.
CKernelHandle OutcomeEvent(const wchar_t* prefix, const std::wstring& product)
{
    const std::wstring name = prefix + product;
    CKernelHandle event(::CreateEventW(CGuarded(L"0x100002").Get(), FALSE, FALSE, name.c_str()));
    if (!event) // there already, of another run's client
        event.Reset(::OpenEventW(SYNCHRONIZE, FALSE, name.c_str()));
    return event ? std::move(event) : OpenToAll(L"", false);
}

/// The other half of this process's own rights: those without an administrator's or, when this process has
/// no such rights (as under Wine 10), those with them. None when these are the rights that are wanted.
/// Windows hands the other half to services only: there it is borrowed from the shell, if that has no more.
CKernelHandle OtherToken(bool elevated)
{
    CKernelHandle half, other;
    if (IsElevated() == elevated)
        return other;
    if (IsWine())
    {
        CKernelHandle own;
        TOKEN_LINKED_TOKEN link = {};
        DWORD size = 0;
        ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, own.Receive());
        ::GetTokenInformation(own.Get(), TokenLinkedToken, &link, sizeof(link), &size);
        half.Reset(link.LinkedToken);
    }
    else
    {
        DWORD shell = 0;
        ::GetWindowThreadProcessId(::GetShellWindow(), &shell);
        const CKernelHandle process(::OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, shell));
        ::OpenProcessToken(process.Get(), TOKEN_QUERY | TOKEN_DUPLICATE, half.Receive());
    }
    ::DuplicateTokenEx(half.Get(), MAXIMUM_ALLOWED, nullptr, SecurityImpersonation, TokenPrimary,
                       other.Receive());
    if (other && IsElevated(other.Get()) != elevated)
        other.Reset();
    return other;
}
} // namespace

CUpdaterProcess::CUpdaterProcess(const std::wstring& program, const std::wstring& product,
                                 const std::wstring& arguments, const std::wstring& workingFolder,
                                 bool elevated, HANDLE job, HANDLE output) :
    m_Deny(OutcomeEvent(L"{F7960AE2-D719-4F0D-9A10-B207F8DACB24}-UpdateDeny-", product)),
    m_No(OutcomeEvent(L"{FCBD3DBA-DB17-4EC5-999E-5CF45A722924}-UpdateNo-", product)),
    m_Yes(OutcomeEvent(L"{FCBD3DBA-DB17-4EC5-999E-5CF45A722924}-UpdateYes-", product)),
    m_Start(::GetTickCount64())
{
    const CKernelHandle token = OtherToken(elevated);
    m_Process =
        StartProcess(L"\"" + program + L"\" " + arguments,
                     {.Folder = workingFolder.c_str(), .Token = token.Get(), .Job = job, .Output = output});
    m_Seen.ProcessId = ::GetProcessId(m_Process.Get());
}

bool CUpdaterProcess::CanStart(bool elevated)
{
    return IsElevated() == elevated || OtherToken(elevated);
}

CUpdaterProcess::~CUpdaterProcess()
{
    End();
}

void CUpdaterProcess::End()
{
    if (HasEnded())
        return;
    ::TerminateProcess(m_Process.Get(), STILL_ACTIVE);
    ::WaitForSingleObject(m_Process.Get(), LongestRunMs);
}

bool CUpdaterProcess::WaitForEvent(const std::string& name, std::uint32_t timeOutMs)
{
    const ULONGLONG deadline = ::GetTickCount64() + timeOutMs;
    const auto seen = [&] { return m_Seen.Events.find(name) != std::string::npos; };
    while (!seen() && ::GetTickCount64() < deadline && Step(deadline))
    {
    }
    return seen();
}

CUpdaterProcess::Outcome CUpdaterProcess::Finish(std::uint32_t timeOutMs)
{
    const ULONGLONG deadline = ::GetTickCount64() + timeOutMs;
    bool running = true;
    while (running && ::GetTickCount64() < deadline)
        running = Step(deadline);
    End();
    DWORD code = STILL_ACTIVE;
    ::GetExitCodeProcess(m_Process.Get(), &code);
    m_Seen.ExitCode = code;
    m_Seen.Milliseconds = static_cast<std::uint32_t>(::GetTickCount64() - m_Start);
    return m_Seen;
}

bool CUpdaterProcess::Step(ULONGLONG deadline)
{
    // In the order in which a run can set them, so that it doesn't matter how soon they are looked at; the
    // process comes last.
    const HANDLE handles[] = {m_Yes.Get(), m_Deny.Get(), m_No.Get(), m_Process.Get()};
    const char* const names[] = {"Yes", "Deny", "No"};
    while (::GetTickCount64() < deadline)
    {
        const DWORD result = ::WaitForMultipleObjects(4, handles, FALSE, LookMs);
        if (result == WAIT_OBJECT_0 + 3)
            return false;
        if (result < 3)
        {
            m_Seen.Events += (m_Seen.Events.empty() ? "" : " ") + std::string(names[result]);
            return true;
        }
        if (result != WAIT_TIMEOUT)
            throw std::runtime_error("the client's wait failed, error " + std::to_string(::GetLastError()));
        AnswerBoxes();
    }
    return true;
}

void CUpdaterProcess::AnswerBoxes()
{
    if (Answer == 0)
        return;
    HWND box = nullptr;
    while ((box = ::FindWindowExW(nullptr, box, L"#32770", nullptr)) != nullptr)
    {
        DWORD owner = 0;
        ::GetWindowThreadProcessId(box, &owner);
        constexpr int TextId = 0xFFFF;
        const HWND textControl = ::GetDlgItem(box, TextId);
        const int button = ::GetDlgItem(box, Answer) ? Answer : IDOK;
        const HWND control = ::GetDlgItem(box, button);
        const bool answered = std::find(m_Answered.begin(), m_Answered.end(), box) != m_Answered.end();
        if (owner != m_Seen.ProcessId || answered || !textControl || !control)
            continue;
        wchar_t text[512] = {};
        DWORD_PTR length = 0;
        ::SendMessageTimeoutW(textControl, WM_GETTEXT, 512, reinterpret_cast<LPARAM>(text), SMTO_NORMAL, 5000,
                              &length);
        if (!text[0]) // not finished, or already on its way out
            continue;
        m_Answered.push_back(box);
        m_Seen.Boxes.push_back(text);
        if (Answer == IDCLOSE)
            ::PostMessageW(box, WM_CLOSE, 0, 0);
        else
            ::PostMessageW(box, WM_COMMAND, MAKEWPARAM(button, BN_CLICKED),
                           reinterpret_cast<LPARAM>(control));
    }
}
} // namespace Tests
