// Exceptions, texts, threads and what threads wait for. The debug values are the real ones under
// HKEY_LOCAL_MACHINE and the message boxes are real; whoever answers them stands on another thread, as a
// developer would. Wine 8 loses the breakpoint exception of a 32-bit program and the thread with it, so
// breaks are shown in 64 bits only.
#include "Ls/System/ExitCodeException.h"
#include "Ls/System/String/Printf.h"
#include "Ls/System/String/Trim.h"
#include "Ls/System/Util/DateTime.h"
#include "Ls/System/Uuid.h"
#include "Ls/System/Win32/Event.h"
#include "Ls/System/Win32/Mutex.h"
#include "Ls/System/Win32/Thread.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/ExceptionWatch.h"
#include "Tests/Support/ProcessCounts.h"
#include "Tests/Support/WaitFor.h"

#include <future>

using namespace LS;
using namespace LS::System;
using namespace LS::System::Win32;
using namespace std::string_literals;
using Body = std::function<std::uint32_t(CThread&)>;
static std::atomic<int> g_Nested;

/// Runs in the message loop of a box, on its thread: shows no box of its own.
static void CALLBACK ThrowInside(HWND, UINT, UINT_PTR, DWORD)
{
    g_Nested += Tests::CaughtMessage([] { ThrowException(CException(L"nested", LS_HERE)); }) == L"nested";
}

// clang-format off
TEST_CASE("what the debug values and the developer want decides between throwing, continuing and breaking")
{
    std::atomic<int> breaks{0};
    const Tests::CExceptionWatch debugger(EXCEPTION_BREAKPOINT, [&](EXCEPTION_POINTERS& at) { // steps over it
#ifdef _WIN64
        at.ContextRecord->Rip += *reinterpret_cast<const BYTE*>(at.ContextRecord->Rip) == 0xCC;
#endif
        return at.ContextRecord && ++breaks;
    });
    const struct { std::wstring Values; int Button; bool Throws; int Breaks; } table[] = {
        {L"ShowThrowContinueDialog", IDCANCEL, true, 1},
        {L"ForceBreak ForceContinue", 0, false, 1},
        {L"ShowThrowContinueDialog ForceContinue", IDNO, false, 0},
        {L"ShowThrowContinueDialog", IDYES, false, 0},
        {L"ShowThrowContinueDialog", IDNO, true, 0}, // the same text again
        {L"", 0, true, 0}}; // last: leaves no value set
    for (const auto& row : table)
    {
        if (row.Breaks && sizeof(void*) == 4) continue;
        for (const std::wstring& name : {L"ShowThrowContinueDialog"s, L"ForceBreak"s, L"ForceContinue"s})
            ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Larkspur\\Debugging", name.c_str(), REG_DWORD,
                              row.Values.find(name) > 99 ? "\0\0\0" : "\1\0\0", 4);
        breaks = g_Nested = 0;
        const CException exception(L"asked " + row.Values, "A::B", 7, "Source/X.cpp");
        const RecentExceptions before = GetRecentExceptions();
        std::future<bool> thrown = std::async(std::launch::async, [&] {
            ::SetTimer(nullptr, 0, 1, ThrowInside);
            return Tests::Caught([&] { ThrowException(exception); }).has_value();
        });
        const auto find = [] { return ::FindWindowW(L"#32770", L"Exception Thrown:"); };
        CHECK(Tests::WaitFor([&] { return row.Button == 0 || (find() && g_Nested); }));
        const HWND box = row.Button ? find() : nullptr;
        wchar_t text[1000] = {};
        ::GetDlgItemTextW(box, 0xFFFF, text, 1000);
        CHECK(text == (row.Button ? L"\n" + exception.Format() +
              L"\n\n\n\n  Attempt to Continue? (Use Cancel to Debug.)" : L""));
        ::PostMessageW(box, WM_COMMAND, row.Button, reinterpret_cast<LPARAM>(::GetDlgItem(box, row.Button)));
        CHECK((thrown.get() == row.Throws && breaks == row.Breaks));
        const auto [latest, previous] = GetRecentExceptions();
        CHECK((latest == exception.Format() && (previous == before.Latest || before.Latest == latest)));
    }
}

TEST_CASE("a chain is described with its parts, text converts and is formatted, small forms are right")
{
    ::SetLastError(0);
    const CException innermost(L"third.", "C::c", 3, "Ls/C.cpp");
    ::SetLastError(0x2FFFFFFF);
    const CException middle(innermost, " second\r\nmore\r\n", "B::b", 2, "Ls/B.cpp");
    ::SetLastError(ERROR_ACCESS_DENIED);
    const CException outer(middle, "first:  it\r\nline", "A::a", 1, "Ls/A.cpp");
    CHECK(CException(outer).Format() ==
          L"Exception:  first:  it\r\nline\r\nIn Function: A::a\r\nFile Ls\\A.cpp Line 1\r\nLastError=5; " +
          SystemErrorTextWide(5) + L"Inner Exception:   second\r\n\tmore\r\n\t\r\n\tIn Function: B::b\r\n"
          L"\tFile Ls\\B.cpp Line 2\r\n\tLastError=805306367; (No Error Description)\r\n"
          L"\tInner Exception:  third.\r\n\t\tIn Function: C::c\r\n\t\tFile Ls\\C.cpp Line 3\r\n");
    CHECK(outer.ShortDescription() == L"first:  it line.-second more.-third.");
    const std::wstring wide = L"a\0\u00E9\u0416\uD55C\xD83D\xDE00"s, big(65535, L'x'),
        half = L"WideToAnsi(): Unable to convert one or more wide characters to ansi.",
        limit = L"Result exceeds 131071 characters.";
    CHECK(WideToAnsi(wide) == "a\0\xC3\xA9\xD0\x96\xED\x95\x9C\xF0\x9F\x98\x80"s);
    for (const std::string& bytes : {"a\xFFz"s, "a\xC3"s, "\xED\xA0\xBD"s, "\xF0\x9F\x98"s})
        CHECK(WideToAnsi(AnsiToWide(bytes)).find("\xEF\xBF\xBD") != std::string::npos); // replaced
    Tests::CheckFailures({{[] { WideToAnsi(L"x\xD83D"); }, half, "LS::WideToAnsi"},
                          {[] { WideToAnsi(L"\xDE00\xD83D"); }, half},
                          {[&] { Printf("%S%d", big.c_str(), 1); }, limit, "LS::PrintfVaListToString"},
                          {[&] { Printf(L"%s%d", big.c_str(), 1); }, limit, "LS::PrintfVaListToWString"}});
    for (const std::wstring& text : {wide.substr(2), big, big.substr(0, 127), big.substr(0, 128), L""s})
    {
        CHECK(Printf(L"%s", text.c_str()) == text);
        CHECK(AnsiToWide(Printf("%s", WideToAnsi(text).c_str())) == text);
    }
    // As the system's runtime means them; arguments survive the second try.
    CHECK(Printf(L"%s|%S|%hs|%ls %I64d", L"w", "n", "h", L"l", -5000000000LL) == L"w|n|h|l -5000000000");
    CHECK(Printf("%s|%S|%200d|%d", "n", L"w", 1, 3) == "n|w|" + std::string(199, ' ') + "1|3");
    CHECK(Trim(L"\r\n a \t b\n") + Trim(L" \t\r\n") + Trim(L"\va") == L"a \t b\va");
    CHECK(Util::TimeStamp({2026, 3, 0, 5, 7, 8, 9, 4}) == L"07:08:09.004 03/05/2026");
    CHECK(UUIDToString({0xBA271941, 1, 2, {3, 4, 5, 6, 7, 8, 9}}) == L"ba271941-0001-0002-0304-050607080900");
}

struct CFunction : CThreadFunction
{
    explicit CFunction(Body body) : Run(std::move(body)) {}
    std::uint32_t Execute(CThread& thread) override { return Run(thread); }
    const Body Run;
};

TEST_CASE("threads run once under their names, hand over what they end with, and leave no handle behind")
{
    const auto make = [](Body body) { return MakeRef<CThread>(MakeRef<CFunction>(std::move(body))); };
    std::string name;
    const Tests::CExceptionWatch debugger(0x406D1388, [&](EXCEPTION_POINTERS& exception) {
        const auto& values = exception.ExceptionRecord->ExceptionInformation; // type, name, thread id
        name = reinterpret_cast<const char*>(values[1]) + std::to_string(static_cast<DWORD>(values[2]));
        return (values[0] & 0xFFFF) != 0x1000;
    });
    const std::pair<Body, std::wstring> table[] = {
        {[](CThread& it) { return Tests::WaitFor([&] { return it.ShouldFinish(); }) + 6; }, L"7"},
        {[](CThread&) { return ThrowException(CException(L"ours", LS_HERE)), 0u; }, L"ours"},
        {[](CThread&) -> std::uint32_t { throw std::runtime_error("theirs"); }, L"theirs"},
        {[](CThread&) -> std::uint32_t { throw CExitCodeException(1280); }, L"Exit code 1280"},
        {[](CThread&) -> std::uint32_t { throw 5; }, L"Unknown exception"}};
    unsigned before = 0;
    for (unsigned i = 0; i < 205; ++i)
    {
        if (i == 5) before = Tests::HandleCount(); // behind what the runtime makes once
        const auto thread = make(table[i % 5].first);
        CHECK(thread->Wait(0) == WAIT_OBJECT_0);
        thread->ThreadStart("worker");
        CHECK(name == "worker" + std::to_string(::GetThreadId(thread->Handle())));
        Tests::CheckFailures({{[&] { thread->ThreadStart(""); }, L"Thread already started", "ThreadStart"}});
        thread->Stop();
        const auto told = thread->CapturedException();
        CHECK((told ? told->Inner()->Message() : std::to_wstring(thread->ExitCode())) == table[i % 5].second);
        CHECK((!told || told->Function() == "LS::System::Win32::CThread::StaticThreadProc"));
        CHECK((!told || told->File() == "Source\\Ls\\System\\Win32\\Thread.cpp"));
        // The last reference goes inside: the destructor asks to finish and must not wait.
        const CEvent given(true, false), asked(true, false);
        CRefPtr<CThread> owner = make([&](CThread& self) -> std::uint32_t {
            given.Wait(INFINITE);
            owner.Reset();
            if (self.ShouldFinish() && self.Id() == ::GetCurrentThreadId()) asked.Set();
            throw 5; // nobody is left to read this
        });
        owner->ThreadStart("");
        const CKernelHandle handle(::OpenThread(SYNCHRONIZE, FALSE, owner->Id()));
        given.Set();
        REQUIRE((::WaitForSingleObject(handle.Get(), 20000) == 0 && asked.Wait(0) == 0 && !owner));
    }
    CHECK(Tests::HandleCount() < before + 20); // the system keeps one now and then
}

TEST_CASE("alone-mutex: the other process" * doctest::skip())
{
    const CMutex held(L"LsTests-held", true), left(L"LsTests-left", false);
    CHECK((held.AlreadyExisted() && held.Wait(0) == WAIT_TIMEOUT && left.Wait(0) == WAIT_OBJECT_0));
    CEvent(L"LsTests-event", true, true).Set(); // the same, whatever is asked for
}

TEST_CASE("mutexes and events are shared by name between processes, keep their kind, and failures say what")
{
    const CMutex held(L"LsTests-held", true), left(std::string("LsTests-left"), false);
    const CEvent event(L"LsTests-event", false, false), manual(true, true);
    CHECK((!held.AlreadyExisted() && event.Wait(0) == WAIT_TIMEOUT && !Tests::CChildProcess(L"alone-mutex*", L"").ExitCode()));
    CHECK((event.Wait(0) == 0 && event.Wait(0) == WAIT_TIMEOUT && left.Wait(0) == WAIT_ABANDONED));
    CHECK((manual.Wait(0) == WAIT_OBJECT_0 && manual.Wait(0) == WAIT_OBJECT_0));
    manual.Reset();
    held.ReleaseMutex();
    CHECK(manual.Wait(0) == WAIT_TIMEOUT);
    const auto text = [](const wchar_t* what, DWORD error) { return what + SystemErrorTextWide(error); };
    Tests::CheckFailures(
        {{[] { CMutex(L"LsTests-event", false); }, text(L"Failed to create mutex:  ", 6), "CMutex", 6},
         {[] { CEvent(L"LsTests-held", true, false); }, text(L"Failed to create event:  ", 6), "::CEvent", 6},
         {[&] { held.ReleaseMutex(); }, text(L"Failed to release mutex:  ", 288), "::ReleaseMutex", 288}});
}
// clang-format on
