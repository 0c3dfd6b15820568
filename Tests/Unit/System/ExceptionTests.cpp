// The debug values are the real ones under HKEY_LOCAL_MACHINE and the message boxes are real; whoever answers
// them stands on another thread, as a developer would. Wine 8 loses the breakpoint exception of a 32-bit
// program and the thread with it, so breaks are shown in 64 bits only.
#include "Ls/System/Exception.h"
#include "Ls/System/String/SystemErrorText.h"
#include "Ls/System/ThrowException.h"
#include "Ls/System/Win32/UniqueHandle.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/WideText.h"

#include <windows.h>

#include <doctest/doctest.h>

#include <atomic>
#include <initializer_list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace LS::System;

namespace
{
constexpr wchar_t DebugKey[] = L"SOFTWARE\\Larkspur\\Debugging";

/// The debug values for a scope; afterwards they are gone, and the keys with them when they were made here.
class CDebugValues
{
public:
    explicit CDebugValues(std::initializer_list<const wchar_t*> names)
    {
        Win32::CRegistryKeyHandle key;
        REQUIRE(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, DebugKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                  key.Receive(), nullptr) == ERROR_SUCCESS);
        const DWORD one = 1;
        for (const wchar_t* name : names)
            ::RegSetValueExW(key.Get(), name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&one), sizeof(one));
    }
    CDebugValues(const CDebugValues&) = delete;
    ~CDebugValues()
    {
        for (const wchar_t* name : {L"ShowThrowContinueDialog", L"ForceBreak", L"ForceContinue"})
            ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, DebugKey, name);
        ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, DebugKey); // refused while it holds keys; values go with it
        ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Larkspur");
    }
};

/// The message box that a thread shows, once it is there and complete; null when the thread ends without.
HWND WaitForBox(HANDLE thread)
{
    while (::WaitForSingleObject(thread, 5) == WAIT_TIMEOUT)
    {
        HWND box = nullptr;
        while ((box = ::FindWindowExW(nullptr, box, L"#32770", L"Exception Thrown:")) != nullptr)
        {
            if (::GetWindowThreadProcessId(box, nullptr) == ::GetThreadId(thread) && ::IsWindowVisible(box) &&
                ::GetDlgItem(box, IDCANCEL))
            {
                return box;
            }
        }
    }
    return nullptr;
}

void Press(HWND box, int button)
{
    ::PostMessageW(box, WM_COMMAND, MAKEWPARAM(button, BN_CLICKED),
                   reinterpret_cast<LPARAM>(::GetDlgItem(box, button)));
}

constexpr bool BreaksArrive = sizeof(void*) == 8;

/// Counts debugger breaks and steps over them, as a debugger does for a developer who goes on.
class CBreakCounter
{
public:
    CBreakCounter() : m_Handler(::AddVectoredExceptionHandler(1, Handle)) { ms_Breaks = 0; }
    CBreakCounter(const CBreakCounter&) = delete;
    ~CBreakCounter() { ::RemoveVectoredExceptionHandler(m_Handler); }
    static int Breaks() { return ms_Breaks; }

private:
    static LONG CALLBACK Handle(EXCEPTION_POINTERS* exception)
    {
        if (exception->ExceptionRecord->ExceptionCode != EXCEPTION_BREAKPOINT)
            return EXCEPTION_CONTINUE_SEARCH;
        ++ms_Breaks;
#ifdef _WIN64
        if (*reinterpret_cast<const BYTE*>(exception->ContextRecord->Rip) == 0xCC)
            ++exception->ContextRecord->Rip;
#endif
        return EXCEPTION_CONTINUE_EXECUTION;
    }

    static inline std::atomic<int> ms_Breaks{0};
    void* m_Handler;
};

CException Make(const std::wstring& message)
{
    ::SetLastError(0);
    return CException(message, "A::B", 7, "Source/X.cpp");
}

/// Throws on a thread of its own.
class CThrowingThread
{
public:
    explicit CThrowingThread(const std::wstring& message) :
        m_Message(message), m_Handle(::CreateThread(nullptr, 0, Run, this, 0, nullptr))
    {
    }
    HANDLE Handle() const { return m_Handle.Get(); }
    /// Waits for the end; true when the routine came back, false when it threw.
    bool Returned() const
    {
        ::WaitForSingleObject(m_Handle.Get(), INFINITE);
        return m_Returned;
    }

private:
    static DWORD WINAPI Run(void* argument)
    {
        auto& self = *static_cast<CThrowingThread*>(argument);
        self.m_Returned = !Tests::Caught([&] { ThrowException(Make(self.m_Message)); });
        return 0;
    }

    std::wstring m_Message;
    std::atomic<bool> m_Returned{false};
    Win32::CKernelHandle m_Handle;
};

/// Set by the message loop of a box under way: what a throw from inside it came to.
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

TEST_CASE("debug values make the routine continue, break, or both")
{
    const CBreakCounter breaks;
    {
        const CDebugValues values{L"ForceContinue"};
        CHECK(CThrowingThread(L"continued").Returned());
        CHECK(breaks.Breaks() == 0);
        CHECK(GetRecentExceptions().Latest == Make(L"continued").Format());
    }
    if (BreaksArrive)
    {
        const CDebugValues values{L"ForceBreak"};
        CHECK_FALSE(CThrowingThread(L"x").Returned());
        CHECK(breaks.Breaks() == 1);
    }
    if (BreaksArrive)
    {
        const CDebugValues values{L"ForceBreak", L"ForceContinue"};
        CHECK(CThrowingThread(L"x").Returned());
        CHECK(breaks.Breaks() == 2);
    }
    const CDebugValues noValues{};
    CHECK_FALSE(CThrowingThread(L"x").Returned());
}

TEST_CASE("a developer's answer decides: yes continues, no throws, cancel breaks and throws")
{
    const CDebugValues values{L"ShowThrowContinueDialog"};
    const CBreakCounter breaks;
    struct
    {
        int Button;
        bool Returns;
        int Breaks;
    } const table[] = {{IDYES, true, 0}, {IDNO, false, 0}, {IDCANCEL, false, 1}};
    for (const auto& row : table)
    {
        if (row.Breaks != 0 && !BreaksArrive)
            continue;
        const CThrowingThread thread(L"asked");
        const HWND box = WaitForBox(thread.Handle());
        REQUIRE(box);
        wchar_t text[1000] = {};
        // The text is the one static control that isn't the icon.
        for (HWND child = ::GetWindow(box, GW_CHILD); child; child = ::GetWindow(child, GW_HWNDNEXT))
        {
            wchar_t name[16] = {};
            ::GetClassNameW(child, name, 16);
            wchar_t content[1000] = {};
            ::SendMessageW(child, WM_GETTEXT, 1000, reinterpret_cast<LPARAM>(content));
            if (std::wstring(name) == L"Static" && content[0] == L'\n')
                std::copy(content, content + 1000, text);
        }
        CHECK(text ==
              L"\n" + Make(L"asked").Format() + L"\n\n\n\n  Attempt to Continue? (Use Cancel to Debug.)");
        const int before = breaks.Breaks();
        Press(box, row.Button);
        CHECK(thread.Returned() == row.Returns);
        CHECK(breaks.Breaks() - before == row.Breaks);
    }
}

TEST_CASE("while a box is up, other threads get their own and a throw inside it shows none")
{
    const CDebugValues values{L"ShowThrowContinueDialog"};
    const CThrowingThread first(L"first");
    const HWND firstBox = WaitForBox(first.Handle());
    REQUIRE(firstBox);
    const CThrowingThread second(L"second");
    const HWND secondBox = WaitForBox(second.Handle());
    REQUIRE(secondBox);
    CHECK(GetRecentExceptions().Latest != Make(L"second").Format()); // the lock is free while both are up

    g_NestedThrows = 0;
    ::PostThreadMessageW(::GetThreadId(first.Handle()), WM_TIMER, 0,
                         reinterpret_cast<LPARAM>(ThrowInsideBox));
    Press(secondBox, IDYES);
    CHECK(second.Returned());
    while (g_NestedThrows == 0 && ::WaitForSingleObject(first.Handle(), 5) == WAIT_TIMEOUT)
    {
    }
    CHECK(g_NestedThrows == 1);
    Press(firstBox, IDNO);
    CHECK_FALSE(first.Returned());
}

TEST_CASE("many threads throw at once and each catches its own")
{
    std::vector<std::thread> threads;
    std::atomic<int> caught{0};
    for (int t = 0; t < 8; ++t)
    {
        threads.emplace_back([&caught, t] {
            for (int i = 0; i < 250; ++i)
            {
                const std::wstring message = std::to_wstring(t) + L"-" + std::to_wstring(i);
                if (Tests::CaughtMessage([&] { ThrowException(Make(message)); }) == message)
                    ++caught;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    CHECK(caught == 2000);
}
