#include "Ls/System/ThrowException.h"

#include "Ls/System/Win32/CriticalSection.h"
#include "Ls/System/Win32/UniqueHandle.h"

#include <windows.h>

#include <set>

namespace LS::System
{
namespace
{
struct ProcessState
{
    Win32::CCriticalSection Lock;
    /// Threads inside ThrowException: one that comes in again (its own message box runs a message loop, in
    /// which any code of the program may fail) throws at once.
    std::set<DWORD> Throwing;
    RecentExceptions Recent;
};

ProcessState& State()
{
    // Never destroyed: threads may still fail while the process ends.
    static ProcessState& state = *new ProcessState;
    return state;
}

/// Membership of the calling thread in the set, for a scope.
class CThrowingThread
{
public:
    CThrowingThread() noexcept
    {
        try
        {
            const Win32::CLock lock(State().Lock);
            m_Entered = State().Throwing.insert(::GetCurrentThreadId()).second;
        }
        catch (...)
        {
            // No memory left for the debugging aids: the exception is simply thrown.
        }
    }
    CThrowingThread(const CThrowingThread&) = delete;
    CThrowingThread& operator=(const CThrowingThread&) = delete;
    ~CThrowingThread() { Leave({}); }

    /// False for a thread that is in the set already.
    bool Entered() const noexcept { return m_Entered; }

    /// The text, unless empty, becomes the most recent one.
    void Leave(std::wstring text) noexcept
    {
        if (!m_Entered)
            return;
        m_Entered = false;
        ProcessState& state = State();
        const Win32::CLock lock(state.Lock);
        state.Throwing.erase(::GetCurrentThreadId());
        if (text.empty() || text == state.Recent.Latest)
            return;
        state.Recent.Previous.swap(state.Recent.Latest);
        state.Recent.Latest.swap(text);
    }

private:
    bool m_Entered = false;
};

bool IsSet(HKEY key, const wchar_t* name) noexcept
{
    DWORD type = REG_NONE;
    DWORD value = 0;
    DWORD size = sizeof(value);
    const LSTATUS result =
        ::RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size);
    return result == ERROR_SUCCESS && type == REG_DWORD && size == sizeof(value) && value != 0;
}

struct Choice
{
    bool Continue = false;
    bool Break = false;
};

/// What the debug values and the developer want. The key is opened here directly: the registry class reports
/// its failures through ThrowException.
Choice Choose(const std::wstring& text) noexcept
{
    Choice choice;
    Win32::CRegistryKeyHandle key;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Larkspur\\Debugging", 0, KEY_READ, key.Receive()) !=
        ERROR_SUCCESS)
    {
        return choice;
    }

    if (IsSet(key.Get(), L"ShowThrowContinueDialog"))
    {
        try
        {
            const std::wstring question =
                L"\n" + text + L"\n\n\n\n  Attempt to Continue? (Use Cancel to Debug.)";
            const int answer = ::MessageBoxW(nullptr, question.c_str(), L"Exception Thrown:",
                                             MB_YESNOCANCEL | MB_ICONWARNING);
            choice.Continue = answer == IDYES;
            choice.Break = answer == IDCANCEL;
        }
        catch (...)
        {
            // Nobody could be asked.
        }
    }
    choice.Break = IsSet(key.Get(), L"ForceBreak") || choice.Break;
    choice.Continue = IsSet(key.Get(), L"ForceContinue") || choice.Continue;
    return choice;
}

std::wstring FormatOf(const CException& exception) noexcept
{
    try
    {
        return exception.Format();
    }
    catch (...)
    {
        return {};
    }
}
} // namespace

void ThrowException(const CException& exception)
{
    CThrowingThread thread;
    if (thread.Entered())
    {
        std::wstring text = FormatOf(exception);
        const Choice choice = Choose(text);
        if (choice.Break)
            ::DebugBreak();
        thread.Leave(std::move(text));
        if (choice.Continue)
            return;
    }
    throw CException(exception);
}

RecentExceptions GetRecentExceptions()
{
    const Win32::CLock lock(State().Lock);
    return State().Recent;
}
} // namespace LS::System
