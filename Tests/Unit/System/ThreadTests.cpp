// Texts, threads and the system's objects.
#include "Ls/System/String/Printf.h"
#include "Ls/System/Win32/Event.h"
#include "Ls/System/Win32/MutexOwner.h"
#include "Ls/System/Win32/SystemLibrary.h"
#include "Ls/System/Win32/Thread.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/ProcessCounts.h"
#include "Tests/Support/TemporaryValue.h"
#include "Tests/Support/WaitFor.h"

#include <future>

using namespace LS;
using namespace LS::System;
using namespace LS::System::Win32;
using namespace std::string_literals;

namespace
{
using Body = std::function<std::uint32_t(CThread&)>;

struct CFunction : CThreadFunction
{
    explicit CFunction(Body body) : Run(std::move(body)) {}
    std::uint32_t Execute(CThread& thread) override { return Run(thread); }
    const Body Run;
};

CRefPtr<CThread> MakeThread(Body body)
{
    return MakeRef<CThread>(MakeRef<CFunction>(std::move(body)));
}
} // namespace

TEST_CASE("text converts to UTF-8 and back, whatever it holds, and formatting has a limit")
{
    const std::wstring wide = L"a\0\u00E9\u0416\uD55C\xD83D\xDE00"s, big(65535, L'x');
    CHECK(WideToAnsi(wide) == "a\0\xC3\xA9\xD0\x96\xED\x95\x9C\xF0\x9F\x98\x80"s);
    CHECK(AnsiToWide(WideToAnsi(wide)) == wide);
    for (const char* bytes : {"a\xFFz", "a\xC3", "\xED\xA0\xBD", "\xF0\x9F\x98"})
        CHECK(WideToAnsi(AnsiToWide(bytes)).find("\xEF\xBF\xBD") != std::string::npos); // replaced
    const std::wstring half = L"WideToAnsi(): Unable to convert one or more wide characters to ansi.";
    const std::wstring limit = L"Result exceeds 131071 characters.";
    Tests::CheckFailures({{[] { WideToAnsi(L"x\xD83D"); }, half, "LS::WideToAnsi"},
                          {[&] { Printf("%S%d", big.c_str(), 1); }, limit, "LS::PrintfVaListToString"}});
}

TEST_CASE("a failure is told in short with the one behind it, and passed over where a developer wants that")
{
    const CException inner(L"inner ", LS_HERE);
    CHECK(CException(inner, " a\r\nb. ", LS_HERE).ShortDescription() == L"a b.-inner.");
    const Tests::CTemporaryValue on(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Larkspur\\Debugging", L"ForceContinue",
                                    1U);
    CHECK_NOTHROW(ThrowException(inner));
}

TEST_CASE("an object of one name is one, a mutex passes on from a dead owner too, a library is the system's")
{
    const CEvent event(L"LsTests-Event", false, true), same(L"LsTests-Event", true, false), stop(true, false);
    CHECK(same.Wait(0) == WAIT_OBJECT_0);
    CHECK(event.Wait(0) == WAIT_TIMEOUT);
    const CMutex mutex("LsTests-Mutex", false);
    CHECK_FALSE(CMutex::CreateNew(L"LsTests-Mutex"));
    CHECK(static_cast<bool>(CMutex::CreateNew(L"LsTests-Another")));
    const auto takes = [&](HANDLE orStop) {
        return std::async(std::launch::async, [&, orStop] { return CMutexOwner(mutex, orStop, 0).Owns(); })
            .get();
    };
    for (const HANDLE orStop : {HANDLE(), stop.Handle()})
    {
        std::thread([&] { mutex.Wait(0); }).join(); // ends with it
        CHECK(takes(orStop));
        const CMutexOwner owner(mutex, orStop, 0);
        CHECK_FALSE(takes(orStop));
    }
    CHECK(takes(nullptr));
    stop.Set();
    CHECK_FALSE(takes(stop.Handle()));
    CHECK(static_cast<bool>(CSystemLibrary(L"shlwapi.dll").GetFunction<FARPROC>("PathFileExistsW")));
}

TEST_CASE("threads run once, hand over what they end with, and leave no handle behind")
{
    const std::pair<Body, std::wstring> table[] = {
        {[](CThread& it) { return Tests::WaitFor([&] { return it.ShouldFinish(); }) + 6; }, L"7"},
        {[](CThread&) { return ThrowException(CException(L"ours", LS_HERE)), 0u; }, L"ours"},
        {[](CThread&) -> std::uint32_t { throw std::runtime_error("theirs"); }, L"theirs"},
        {[](CThread&) -> std::uint32_t { throw 5; }, L"Unknown exception"}};
    unsigned before = 0;
    for (unsigned i = 0; i < 204; ++i)
    {
        if (i == 4)
            before = Tests::HandleCount(); // behind what the runtime makes once
        const auto& [body, end] = table[i % 4];
        const auto thread = MakeThread(body);
        thread->ThreadStart("worker"); // the name, for debuggers, does no harm without one
        CHECK(Tests::CaughtMessage([&] { thread->ThreadStart(""); }) == L"Thread already started");
        thread->Stop();
        const auto told = thread->CapturedException();
        CHECK((told ? told->Inner()->Message() : std::to_wstring(thread->ExitCode())) == end);
    }
    CHECK(Tests::HandleCount() < before + 20); // the system keeps one now and then
}

TEST_CASE("a thread that lets go of itself is asked to finish and not waited for")
{
    const CEvent given(true, false), asked(true, false);
    CRefPtr<CThread> owner = MakeThread([&](CThread& self) -> std::uint32_t {
        given.Wait(INFINITE);
        owner.Reset();
        if (self.ShouldFinish())
            asked.Set();
        throw 5; // nobody is left to read this
    });
    owner->ThreadStart("");
    const CKernelHandle handle(::OpenThread(SYNCHRONIZE, FALSE, owner->Id()));
    given.Set();
    REQUIRE(::WaitForSingleObject(handle.Get(), 60000) == WAIT_OBJECT_0);
    CHECK(asked.Wait(0) == WAIT_OBJECT_0);
}
