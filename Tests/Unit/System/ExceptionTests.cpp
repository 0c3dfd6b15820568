// The debug values are the real ones under HKEY_LOCAL_MACHINE and the message boxes are real; whoever answers
// them stands on another thread, as a developer would. Wine 8 loses the breakpoint exception of a 32-bit
// program and the thread with it, so breaks are shown in 64 bits only.
#include "Ls/System/String/SystemErrorText.h"
#include "Ls/System/ThrowException.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/WaitFor.h"

#include <windows.h>

#include <atomic>
#include <future>
#include <vector>

using namespace LS::System;

namespace
{
/// Sets these debug values and takes the others away, also those of an interrupted run.
void SetDebugValues(const std::vector<const wchar_t*>& names)
{
    const wchar_t* const key = L"SOFTWARE\\Larkspur\\Debugging";
    const DWORD one = 1;
    for (const wchar_t* name : {L"ShowThrowContinueDialog", L"ForceBreak", L"ForceContinue"})
        ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key, name);
    for (const wchar_t* name : names)
        ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, name, REG_DWORD, &one, sizeof(one));
}

CException Make(const std::wstring& message)
{
    ::SetLastError(0);
    return {message, "A::B", 7, "Source/X.cpp"};
}

std::atomic<int> g_Breaks{0}, g_Nested{0};

/// Runs in the message loop of a box.
void CALLBACK ThrowInside(HWND, UINT, UINT_PTR timer, DWORD)
{
    ::KillTimer(nullptr, timer);
    g_Nested += Tests::CaughtMessage([] { ThrowException(Make(L"nested")); }) == L"nested";
}

#ifdef _WIN64
/// Steps over a break, as a debugger does for a developer who goes on.
const auto g_Handler = ::AddVectoredExceptionHandler(1, [](EXCEPTION_POINTERS* exception) -> LONG {
    if (exception->ExceptionRecord->ExceptionCode != EXCEPTION_BREAKPOINT)
        return EXCEPTION_CONTINUE_SEARCH;
    ++g_Breaks;
    exception->ContextRecord->Rip += *reinterpret_cast<const BYTE*>(exception->ContextRecord->Rip) == 0xCC;
    return EXCEPTION_CONTINUE_EXECUTION;
});
#endif
} // namespace

TEST_CASE("a chain keeps its parts and is described with indents, system texts and multi-line messages")
{
    ::SetLastError(0);
    const CException innermost(L"third", "C::c", 3, "Source/Ls/C.cpp");
    ::SetLastError(0x2FFFFFFF);
    const CException middle(innermost, "second\r\nmore\r\n", "B::b", 2, "Source/Ls/B.cpp");
    ::SetLastError(ERROR_ACCESS_DENIED);
    const CException outer(middle, "first\r\nline", "A::a", 1, "Source/Ls/A.cpp");
    CHECK(
        CException(outer).Format() ==
        L"Exception:  first\r\nline\r\nIn Function: A::a\r\nFile Source\\Ls\\A.cpp Line 1\r\nLastError=5; " +
            LS::SystemErrorTextWide(5) +
            L"Inner Exception:  second\r\n\tmore\r\n\t\r\n\tIn Function: B::b\r\n"
            L"\tFile Source\\Ls\\B.cpp Line 2\r\n\tLastError=805306367; (No Error Description)\r\n"
            L"\tInner Exception:  third\r\n\t\tIn Function: C::c\r\n\t\tFile Source\\Ls\\C.cpp Line 3\r\n");
    CHECK(outer.ShortDescription() == L"first line.-second more.-third.");
    CHECK(CException(L" Failed:  It is so.\r\n", "f", 1, "g").ShortDescription() == L"Failed:  It is so.");
}

TEST_CASE("what the debug values and the developer want decides between throwing, continuing and breaking")
{
    const wchar_t *const show = L"ShowThrowContinueDialog", *const goOn = L"ForceContinue";
    const std::tuple<std::vector<const wchar_t*>, int, bool, int> table[] = {
#ifdef _WIN64
        {{show}, IDCANCEL, false, 1},
        {{L"ForceBreak"}, 0, false, 1},
        {{L"ForceBreak", goOn}, 0, true, 1},
#endif
        {{show, goOn}, IDNO, true, 0},
        {{show}, IDYES, true, 0},
        {{show}, IDNO, false, 0},
        {{goOn}, 0, true, 0},
        {{}, 0, false, 0}};
    for (const auto& [values, button, returns, breaks] : table)
    {
        SetDebugValues(values);
        g_Breaks = 0;
        const CException exception = Make(L"asked " + std::to_wstring(button) + (returns ? L"?" : L"!"));
        const std::wstring before = GetRecentExceptions().Latest;
        std::future<bool> continued = std::async(std::launch::async, [&] {
            ::SetTimer(nullptr, 0, 1, ThrowInside); // the same thread: shows no box of its own
            return !Tests::Caught([&] { ThrowException(exception); });
        });
        HWND box = nullptr;
        CHECK(Tests::WaitFor([&, wanted = g_Nested + 1, button = button] {
            box = ::FindWindowW(L"#32770", L"Exception Thrown:");
            return button ? box && g_Nested == wanted
                          : continued.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
        }));
        wchar_t text[1000] = {};
        ::GetDlgItemTextW(box, 0xFFFF, text, 1000);
        const std::wstring question = L"\n\n\n\n  Attempt to Continue? (Use Cancel to Debug.)";
        CHECK(text == (button ? L"\n" + exception.Format() + question : L""));
        ::PostMessageW(box, WM_COMMAND, button, reinterpret_cast<LPARAM>(::GetDlgItem(box, button)));
        CHECK(continued.get() == returns);
        CHECK(g_Breaks == breaks);
        CHECK(GetRecentExceptions().Latest == exception.Format());
        CHECK(GetRecentExceptions().Previous == before);
    }
    SetDebugValues({});
}
