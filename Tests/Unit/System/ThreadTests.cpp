// Threads and what they wait for.
#include "Ls/System/ExitCodeException.h"
#include "Ls/System/String/SystemErrorText.h"
#include "Ls/System/ThrowException.h"
#include "Ls/System/Win32/Event.h"
#include "Ls/System/Win32/Mutex.h"
#include "Ls/System/Win32/Thread.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/ProcessCounts.h"

#include <atomic>
#include <stdexcept>
#include <thread>

using namespace LS::System;
using namespace LS::System::Win32;

namespace
{
struct CFunction : CThreadFunction
{
    explicit CFunction(std::function<std::uint32_t(CThread&)> body) : Body(std::move(body)) {}
    std::uint32_t Execute(CThread& thread) override { return Body(thread); }
    std::function<std::uint32_t(CThread&)> Body;
};

CRefPtr<CThread> MakeThread(std::function<std::uint32_t(CThread&)> body)
{
    return MakeRef<CThread>(CRefPtr<CThreadFunction>(new CFunction(std::move(body))));
}

std::uint32_t RunUntilAsked(CThread& thread)
{
    while (!thread.ShouldFinish())
        ::Sleep(1);
    return 7;
}

std::wstring UniqueName(const wchar_t* what)
{
    return L"LsThreadTests-" + std::to_wstring(::GetCurrentProcessId()) + L"-" + what;
}

std::uint32_t WaitElsewhere(const CSynchronizationObject& object)
{
    std::uint32_t result = 0;
    std::thread([&] { result = object.Wait(0); }).join();
    return result;
}
} // namespace

TEST_CASE("a thread runs once, finishes when asked and hands over its result or what escaped it")
{
    const CRefPtr<CThread> thread = MakeThread(RunUntilAsked);
    CHECK(thread->Wait(0) == WAIT_OBJECT_0);
    thread->ThreadStart("worker");
    CHECK(thread->Id() == ::GetThreadId(thread->Handle()));
    Tests::CheckFailures(
        {{[&] { thread->ThreadStart("again"); }, L"Thread already started", "CThread::ThreadStart"}});
    CHECK((thread->Wait(0) == WAIT_TIMEOUT && thread->ExitCode() == 0)); // left alone
    thread->Stop();
    CHECK((thread->Wait(0) == WAIT_OBJECT_0 && thread->ExitCode() == 7 && !thread->CapturedException()));

    const std::pair<const wchar_t*, std::function<std::uint32_t(CThread&)>> table[] = {
        {L"ours", [](CThread&) { return ThrowException(CException(L"ours", LS_HERE)), 0u; }},
        {L"theirs", [](CThread&) -> std::uint32_t { throw std::runtime_error("theirs"); }},
        {L"Exit code 1280", [](CThread&) -> std::uint32_t { throw CExitCodeException(1280); }},
        {L"Unknown exception", [](CThread&) -> std::uint32_t { throw 5; }}};
    for (const auto& [inner, body] : table)
    {
        const CRefPtr<CThread> failing = MakeThread(body);
        failing->ThreadStart("");
        CHECK(failing->Wait(20000) == WAIT_OBJECT_0);
        const CRefPtr<const CException> exception = failing->CapturedException();
        REQUIRE((exception && exception->Inner()));
        CHECK(exception->ShortDescription() == L"Thread Execute Function.-" + std::wstring(inner) + L".");
        CHECK(exception->File() == "Source\\Ls\\System\\Win32\\Thread.cpp");
    }
}

TEST_CASE("200 threads leave no handle behind: stopped, ended, never started, or letting go of themselves")
{
    MakeThread(RunUntilAsked)->ThreadStart("first"); // what the runtime makes once
    const unsigned before = Tests::HandleCount();
    for (int i = 0; i < 200; ++i)
    {
        const CEvent given(true, false), asked(true, false);
        CRefPtr<CThread> owner;
        owner = MakeThread([&, dropsItself = i % 4 == 0](CThread& thread) {
            if (!dropsItself)
                return RunUntilAsked(thread);
            given.Wait(INFINITE);
            owner.Reset(); // the destructor asks to finish and must not wait
            if (thread.ShouldFinish() && thread.Id() == ::GetCurrentThreadId())
                asked.Set();
            throw std::runtime_error("nobody is left to read this");
        });
        if (i % 4 == 1)
            continue;
        owner->ThreadStart(i % 3 ? "named" : "");
        CKernelHandle handle;
        const HANDLE process = ::GetCurrentProcess();
        ::DuplicateHandle(process, owner->Handle(), process, handle.Receive(), 0, FALSE,
                          DUPLICATE_SAME_ACCESS);
        given.Set();
        if (i % 4 == 2)
            owner->Stop();
        if (i % 4 == 0)
            REQUIRE((::WaitForSingleObject(handle.Get(), 20000) == WAIT_OBJECT_0 && asked.Wait(0) == 0 &&
                     !owner));
    }
    CHECK(Tests::HandleCount() == before);
}

TEST_CASE("mutexes are shared by name and count as taken from a dead owner; events keep their kind; failures "
          "say what")
{
    const CMutex first(UniqueName(L"mutex"), true), second(UniqueName(L"mutex"), true);
    CHECK((!first.AlreadyExisted() && second.AlreadyExisted()));
    CHECK(WaitElsewhere(second) == WAIT_TIMEOUT);
    first.ReleaseMutex();
    CHECK(WaitElsewhere(second) == WAIT_OBJECT_0); // a thread that ends without releasing it
    CHECK(first.Wait(0) == WAIT_ABANDONED);
    first.ReleaseMutex();

    const CEvent manual(true, true), automatic(UniqueName(L"event"), false, false);
    CHECK((manual.Wait(0) == WAIT_OBJECT_0 && manual.Wait(0) == WAIT_OBJECT_0));
    manual.Reset();
    CHECK(manual.Wait(0) == WAIT_TIMEOUT);
    CEvent(UniqueName(L"event"), false, false).Set(); // the same event
    CHECK((automatic.Wait(0) == WAIT_OBJECT_0 && automatic.Wait(0) == WAIT_TIMEOUT));

    const auto text = [](const wchar_t* what, DWORD error) {
        return what + (L"  " + LS::SystemErrorTextWide(error));
    };
    const DWORD invalid = ERROR_INVALID_HANDLE, notOwner = ERROR_NOT_OWNER;
    Tests::CheckFailures(
        {{[] { CMutex(UniqueName(L"event"), false); }, text(L"Failed to create mutex:", invalid), "",
          invalid},
         {[] { CEvent(UniqueName(L"mutex"), true, false); }, text(L"Failed to create event:", invalid)},
         {[&] { first.ReleaseMutex(); }, text(L"Failed to release mutex:", notOwner), "", notOwner}});
}
