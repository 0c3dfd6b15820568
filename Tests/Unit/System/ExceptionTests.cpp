// The debug values are the real ones under HKEY_LOCAL_MACHINE and the message boxes are real; whoever answers
// them stands on another thread, as a developer would. Wine 8 loses the breakpoint exception of a 32-bit
// program and the thread with it, so breaks are shown in 64 bits only.
#include "Ls/System/Exception.h"
#include "Ls/System/String/SystemErrorText.h"
#include "Ls/System/ThrowException.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/WideText.h"

#include <windows.h>

#include <shlwapi.h>

#include <doctest/doctest.h>

#include <atomic>
#include <initializer_list>
#include <memory>
#include <thread>

using namespace LS::System;

namespace
{
/// The debug values for a scope; afterwards they are gone.
class CDebugValues
{
public:
    explicit CDebugValues(std::initializer_list<const wchar_t*> names)
    {
        const DWORD one = 1;
        for (const wchar_t* name : names)
            ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, Key, name, REG_DWORD, &one, sizeof(one));
    }
    CDebugValues(const CDebugValues&) = delete;
    ~CDebugValues()
    {
        for (const wchar_t* name : {L"ShowThrowContinueDialog", L"ForceBreak", L"ForceContinue"})
            ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, Key, name);
        ::SHDeleteEmptyKeyW(HKEY_LOCAL_MACHINE, Key);
        ::SHDeleteEmptyKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Larkspur");
    }

private:
    static constexpr wchar_t Key[] = L"SOFTWARE\\Larkspur\\Debugging";
};

CException Make(const std::wstring& message)
{
    ::SetLastError(0);
    return {message, "A::B", 7, "Source/X.cpp"};
}

/// Throws on a thread of its own.
class CThrower
{
public:
    /// A timer's procedure runs in the message loop of the thread's box.
    explicit CThrower(const std::wstring& message, TIMERPROC inside = nullptr) :
        m_Thread([this, message, inside] {
            m_Id = ::GetCurrentThreadId();
            if (inside)
                ::SetTimer(nullptr, 0, 1, inside);
            m_Returned = !Tests::Caught([&] { ThrowException(Make(message)); });
            m_Ended = true;
        })
    {
    }
    /// Waits for the end; true when the routine came back, false when it threw.
    bool Returned()
    {
        m_Thread.join();
        return m_Returned;
    }
    /// The thread's message box, once it is complete; null when the thread ends without one.
    HWND Box() const
    {
        for (HWND box = nullptr; !m_Ended; ::Sleep(box ? 0 : 5))
        {
            box = ::FindWindowExW(nullptr, box, L"#32770", L"Exception Thrown:");
            if (box && ::GetWindowThreadProcessId(box, nullptr) == m_Id && ::IsWindowVisible(box))
                return box;
        }
        return nullptr;
    }

private:
    std::atomic<DWORD> m_Id{0};
    std::atomic<bool> m_Returned{false}, m_Ended{false};
    std::thread m_Thread;
};

void Press(HWND box, int button)
{
    ::PostMessageW(box, WM_COMMAND, MAKEWPARAM(button, BN_CLICKED),
                   reinterpret_cast<LPARAM>(::GetDlgItem(box, button)));
}

#ifdef _WIN64
std::atomic<int> g_Breaks{0};

/// Counts debugger breaks and steps over them, as a debugger does for a developer who goes on.
LONG CALLBACK StepOverBreak(EXCEPTION_POINTERS* exception)
{
    if (exception->ExceptionRecord->ExceptionCode != EXCEPTION_BREAKPOINT)
        return EXCEPTION_CONTINUE_SEARCH;
    ++g_Breaks;
    if (*reinterpret_cast<const BYTE*>(exception->ContextRecord->Rip) == 0xCC)
        ++exception->ContextRecord->Rip;
    return EXCEPTION_CONTINUE_EXECUTION;
}
#endif

std::atomic<int> g_NestedThrows{0};

void CALLBACK ThrowInsideBox(HWND, UINT, UINT_PTR timer, DWORD)
{
    ::KillTimer(nullptr, timer);
    if (Tests::CaughtMessage([] { ThrowException(Make(L"nested")); }) == L"nested")
        ++g_NestedThrows;
}
} // namespace

TEST_CASE("a chain is described with its indents, system texts and multi-line messages")
{
    ::SetLastError(0);
    const CException innermost(L"third", "C::c", 3, "Source/Ls/C.cpp");
    ::SetLastError(0x2FFFFFFF);
    const CException middle(innermost, "second\r\nmore\r\n", "B::b", 2, "Source/Ls/B.cpp");
    ::SetLastError(ERROR_ACCESS_DENIED);
    const CException outer(middle, "first\r\nline", "A::a", 1, "Source/Ls/A.cpp");
    const std::wstring expected = L"Exception:  first\r\nline\r\n"
                                  L"In Function: A::a\r\n"
                                  L"File Source\\Ls\\A.cpp Line 1\r\n"
                                  L"LastError=5; " +
                                  LS::SystemErrorTextWide(5) +
                                  L"Inner Exception:  second\r\n\tmore\r\n\t\r\n"
                                  L"\tIn Function: B::b\r\n"
                                  L"\tFile Source\\Ls\\B.cpp Line 2\r\n"
                                  L"\tLastError=805306367; (No Error Description)\r\n"
                                  L"\tInner Exception:  third\r\n"
                                  L"\t\tIn Function: C::c\r\n"
                                  L"\t\tFile Source\\Ls\\C.cpp Line 3\r\n";
    CHECK(outer.Format() == expected);
    CHECK(outer.ShortDescription() == L"first line.-second more.-third.");
    CHECK(CException(L" Failed:  It is so.\r\n", "f", 1, "g").ShortDescription() == L"Failed:  It is so.");
    // Longer than any formatter's limit.
    CHECK(Make(std::wstring(100000, L'x')).Format().size() > 100000);
}

TEST_CASE("an exception keeps a deep copy and the last error of its making")
{
    std::unique_ptr<CException> copy;
    {
        ::SetLastError(42);
        const CException inner("\xD0\x96", "f", 1, "g");
        ::SetLastError(0);
        const CException outer(inner, "outer", "f", 1, "g");
        copy = std::make_unique<CException>(outer);
        CHECK(copy->Inner() != outer.Inner());
    }
    CHECK(copy->LastError() == 0);
    REQUIRE(copy->Inner());
    CHECK(copy->Inner()->Message() == L"\u0416");
    CHECK(copy->Inner()->LastError() == 42);
}

TEST_CASE("without debug values every exception is thrown, and the two most recent texts are kept")
{
    const CException first = Make(L"first"), second = Make(L"second");
    for (const CException* exception : {&first, &second, &second})
    {
        const auto caught = Tests::Caught([&] { ThrowException(*exception); });
        REQUIRE(caught);
        CHECK(caught->Format() == exception->Format());
    }
    CHECK(GetRecentExceptions().Latest == second.Format());
    CHECK(GetRecentExceptions().Previous == first.Format());
}

TEST_CASE("ForceContinue makes every throw return, and the exception is recorded all the same")
{
    const CDebugValues values{L"ForceContinue"};
    CHECK(CThrower(L"continued").Returned());
    CHECK(GetRecentExceptions().Latest == Make(L"continued").Format());
}

TEST_CASE("a developer's yes continues, a no throws, and the next throw asks again")
{
    const CDebugValues values{L"ShowThrowContinueDialog"};
    for (const int button : {IDYES, IDNO})
    {
        CThrower thread(L"asked");
        const HWND box = thread.Box();
        REQUIRE(box);
        std::wstring text;
        for (HWND child = nullptr; (child = ::FindWindowExW(box, child, L"Static", nullptr)) != nullptr;)
        {
            wchar_t content[1000] = {};
            ::SendMessageW(child, WM_GETTEXT, 1000, reinterpret_cast<LPARAM>(content));
            text += content; // the icon's is empty
        }
        const std::wstring question = L"\n\n\n\n  Attempt to Continue? (Use Cancel to Debug.)";
        CHECK(text == L"\n" + Make(L"asked").Format() + question);
        Press(box, button);
        CHECK(thread.Returned() == (button == IDYES));
    }
}

#ifdef _WIN64
TEST_CASE("ForceBreak and a developer's cancel break first, and then throw unless told to continue")
{
    void* handler = ::AddVectoredExceptionHandler(1, StepOverBreak);
    g_Breaks = 0;
    {
        const CDebugValues values{L"ForceBreak"};
        CHECK_FALSE(CThrower(L"x").Returned());
        CHECK(g_Breaks == 1);
    }
    {
        const CDebugValues values{L"ForceBreak", L"ForceContinue"};
        CHECK(CThrower(L"x").Returned());
        CHECK(g_Breaks == 2);
    }
    {
        const CDebugValues values{L"ShowThrowContinueDialog"};
        CThrower thread(L"x");
        Press(thread.Box(), IDCANCEL);
        CHECK_FALSE(thread.Returned());
        CHECK(g_Breaks == 3);
    }
    ::RemoveVectoredExceptionHandler(handler);
}
#endif

TEST_CASE("while a box is up, other threads get their own and a throw inside it shows none")
{
    const CDebugValues values{L"ShowThrowContinueDialog"};
    g_NestedThrows = 0;
    CThrower first(L"first", ThrowInsideBox), second(L"second");
    const HWND firstBox = first.Box(), secondBox = second.Box();
    REQUIRE(firstBox);
    REQUIRE(secondBox);
    CHECK(GetRecentExceptions().Latest != Make(L"second").Format()); // the lock is free while both are up
    Press(secondBox, IDYES);
    CHECK(second.Returned());
    while (g_NestedThrows == 0)
        ::Sleep(1);
    Press(firstBox, IDNO);
    CHECK_FALSE(first.Returned());
    CHECK(g_NestedThrows == 1);
}
