#include "Ls/System/ExitCodeException.h"
#include "Ls/System/ThrowException.h"
#include "Ls/System/Win32/Thread.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/ProcessCounts.h"
#include "Tests/Support/WideText.h"

#include <windows.h>

#include <doctest/doctest.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <utility>

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

/// What debuggers are told: the record of the last thread-name exception.
std::string g_ThreadName;
DWORD g_NamedThread = 0;

LONG CALLBACK SeeThreadName(EXCEPTION_POINTERS* exception)
{
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (record.ExceptionCode == 0x406D1388 && static_cast<DWORD>(record.ExceptionInformation[0]) == 0x1000)
    {
        struct
        {
            DWORD Type;
            const char* Name;
            DWORD Thread, Flags;
        } name;
        CopyMemory(&name, record.ExceptionInformation, sizeof(name));
        g_ThreadName = name.Name;
        g_NamedThread = name.Thread;
    }
    return EXCEPTION_CONTINUE_SEARCH;
}
} // namespace

TEST_CASE("a thread runs once, finishes when asked and hands its result over")
{
    const CRefPtr<CThread> thread = MakeThread(RunUntilAsked);
    CHECK(thread->Wait(0) == WAIT_OBJECT_0);
    thread->ThreadStart("worker");
    CHECK(thread->Id() == ::GetThreadId(thread->Handle()));
    CHECK(thread->Wait(0) == WAIT_TIMEOUT);

    const auto exception = Tests::Caught([&] { thread->ThreadStart("again"); });
    REQUIRE(exception);
    CHECK(exception->Message() == L"Thread already started");
    CHECK(exception->Function() == "LS::System::Win32::CThread::ThreadStart");
    CHECK(thread->Wait(0) == WAIT_TIMEOUT); // left alone

    CHECK(thread->ExitCode() == 0);
    thread->Stop();
    CHECK(thread->Wait(0) == WAIT_OBJECT_0);
    CHECK(thread->ExitCode() == 7);
    CHECK_FALSE(thread->CapturedException());
    CHECK(Tests::CaughtMessage([&] { thread->ThreadStart(""); }) == L"Thread already started");
}

TEST_CASE("200 threads leave no handle behind: stopped, ended, never started, or letting go of themselves")
{
    MakeThread(RunUntilAsked)->ThreadStart("first"); // what the runtime makes once
    const unsigned before = Tests::HandleCount();
    for (int i = 0; i < 200; ++i)
    {
        const CEvent given(true, false);
        CRefPtr<CThread> owner;
        std::atomic<bool> asked{false};
        owner = MakeThread([&, dropsItself = i % 4 == 0](CThread& thread) {
            if (!dropsItself)
                return RunUntilAsked(thread);
            given.Wait(INFINITE);
            owner.Reset(); // the destructor asks to finish and must not wait
            asked = thread.ShouldFinish() && thread.Id() == ::GetCurrentThreadId();
            throw std::runtime_error("nobody is left to read this");
        });
        if (i % 4 == 1)
            continue;
        owner->ThreadStart(i % 3 ? "named" : "");
        if (i % 4 == 2)
            owner->Stop();
        if (i % 4 != 0)
            continue;
        CKernelHandle handle;
        ::DuplicateHandle(::GetCurrentProcess(), owner->Handle(), ::GetCurrentProcess(), handle.Receive(), 0,
                          FALSE, DUPLICATE_SAME_ACCESS);
        given.Set();
        REQUIRE(::WaitForSingleObject(handle.Get(), 20000) == WAIT_OBJECT_0);
        REQUIRE(asked);
        REQUIRE_FALSE(owner);
    }
    CHECK(Tests::HandleCount() == before);
}

TEST_CASE("what escapes the thread function is kept for the owner")
{
    const std::pair<const wchar_t*, std::function<std::uint32_t(CThread&)>> table[] = {
        {L"ours", [](CThread&) { return ThrowException(CException(L"ours", LS_HERE)), 0u; }},
        {L"theirs", [](CThread&) -> std::uint32_t { throw std::runtime_error("theirs"); }},
        {L"Exit code 1280", [](CThread&) -> std::uint32_t { throw CExitCodeException(1280); }},
        {L"Unknown exception", [](CThread&) -> std::uint32_t { throw 5; }},
    };
    for (const auto& [inner, body] : table)
    {
        const CRefPtr<CThread> thread = MakeThread(body);
        thread->ThreadStart("");
        CHECK(thread->Wait(20000) == WAIT_OBJECT_0);
        const CRefPtr<const CException> exception = thread->CapturedException();
        REQUIRE(exception);
        CHECK(exception->Message() == L"Thread Execute Function");
        CHECK(exception->Function() == "LS::System::Win32::CThread::StaticThreadProc");
        CHECK(exception->File() == "Source\\Ls\\System\\Win32\\Thread.cpp");
        REQUIRE(exception->Inner());
        CHECK(exception->Inner()->Message() == inner);
    }
}

TEST_CASE("debuggers are told a thread's name, and nobody minds without one")
{
    void* handler = ::AddVectoredExceptionHandler(1, SeeThreadName);
    const CRefPtr<CThread> thread = MakeThread(RunUntilAsked);
    thread->ThreadStart("download 0");
    CHECK(g_ThreadName == "download 0");
    CHECK(g_NamedThread == thread->Id());
    g_ThreadName = "none";
    MakeThread(RunUntilAsked)->ThreadStart("");
    CHECK(g_ThreadName == "none");
    ::RemoveVectoredExceptionHandler(handler);
}

TEST_CASE("a thread that can't begin within 5 seconds is reported, and still joined when it runs at last")
{
    // While the loader is busy no new thread reaches its function.
    const HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
    const auto function = [&](const char* name) { return ::GetProcAddress(ntdll, name); };
    const auto lock =
        reinterpret_cast<LONG(NTAPI*)(ULONG, ULONG*, ULONG_PTR*)>(function("LdrLockLoaderLock"));
    const auto unlock = reinterpret_cast<LONG(NTAPI*)(ULONG, ULONG_PTR)>(function("LdrUnlockLoaderLock"));
    REQUIRE((lock && unlock));

    std::atomic<bool> ran{false};
    {
        const CRefPtr<CThread> thread = MakeThread([&](CThread& self) {
            ran = true;
            return RunUntilAsked(self);
        });
        ULONG_PTR cookie = 0;
        REQUIRE(lock(0, nullptr, &cookie) == 0);
        const std::wstring message = Tests::CaughtMessage([&] { thread->ThreadStart("late"); });
        const bool early = ran;
        unlock(0, cookie);
        CHECK(message == L"ThreadStart timeout waiting for m_StartedEvent");
        CHECK_FALSE(early);
    }
    CHECK(ran);
}
