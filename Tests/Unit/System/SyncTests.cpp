#include "Ls/System/String/SystemErrorText.h"
#include "Ls/System/Win32/Event.h"
#include "Ls/System/Win32/Mutex.h"
#include "Ls/System/Win32/SystemLibrary.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/WideText.h"

#include <doctest/doctest.h>

#include <functional>
#include <thread>

using namespace LS::System;
using namespace LS::System::Win32;

namespace
{
std::wstring UniqueName(const wchar_t* what)
{
    return L"LsSyncTests-" + std::to_wstring(::GetCurrentProcessId()) + L"-" + what;
}

/// A synchronisation object whose handle lacks the rights for what is asked of it.
template <class Base>
struct CWeak : Base
{
    template <class... Arguments>
    explicit CWeak(DWORD rights, Arguments... arguments) : Base(arguments...)
    {
        HANDLE weak = nullptr;
        ::DuplicateHandle(::GetCurrentProcess(), this->Handle(), ::GetCurrentProcess(), &weak, rights, FALSE,
                          0);
        this->m_Handle.Reset(weak);
    }
};

std::uint32_t WaitElsewhere(const CSynchronizationObject& object)
{
    std::uint32_t result = 0;
    std::thread([&] { result = object.Wait(0); }).join();
    return result;
}
} // namespace

TEST_CASE("each failure names its operation and carries the system's error")
{
    const CEvent event(UniqueName(L"event"), true, false);
    const CMutex mutex(UniqueName(L"mutex"), false);
    const CWeak<CEvent> waitOnly(SYNCHRONIZE, false, false), setOnly(EVENT_MODIFY_STATE, false, false);
    const CWeak<CMutex> noWait(READ_CONTROL, std::string(), false);
    struct
    {
        const char* Function;
        const wchar_t* Message;
        DWORD Error;
        std::function<void()> Action;
    } const table[] = {
        {"CMutex::CMutex", L"Failed to create mutex:", ERROR_INVALID_HANDLE,
         [] { CMutex(UniqueName(L"event"), false); }},
        {"CMutex::CMutex", L"Failed to create mutex:", ERROR_INVALID_HANDLE,
         [] { CMutex(LS::WideToAnsi(UniqueName(L"event")), false); }},
        {"CMutex::ReleaseMutex", L"Failed to release mutex:", ERROR_NOT_OWNER, [&] { mutex.ReleaseMutex(); }},
        {"CMutex::Wait", L"Wait Failed:", ERROR_ACCESS_DENIED, [&] { noWait.Wait(0); }},
        {"CSynchronizationObject::Wait", L"Wait Failed:", ERROR_ACCESS_DENIED, [&] { setOnly.Wait(0); }},
        {"CEvent::CEvent", L"Failed to create event:", ERROR_INVALID_HANDLE,
         [] { CEvent(UniqueName(L"mutex"), true, false); }},
        {"CEvent::Set", L"Failed to Set event:", ERROR_ACCESS_DENIED, [&] { waitOnly.Set(); }},
        {"CEvent::Reset", L"Failed to Reset event:", ERROR_ACCESS_DENIED, [&] { waitOnly.Reset(); }},
    };
    for (const auto& row : table)
    {
        CAPTURE(row.Function);
        const auto exception = Tests::Caught(row.Action);
        REQUIRE(exception);
        CHECK(exception->Function() == std::string("LS::System::Win32::") + row.Function);
        CHECK(exception->LastError() == row.Error);
        CHECK(exception->Message() == row.Message + (L"  " + LS::SystemErrorTextWide(row.Error)));
    }
}

TEST_CASE("a mutex is shared by its name, and one whose owner died counts as taken")
{
    const CMutex first(UniqueName(L"shared"), true);
    CHECK_FALSE(first.AlreadyExisted());
    const CMutex second(UniqueName(L"shared"), true);
    CHECK(second.AlreadyExisted());
    CHECK(WaitElsewhere(second) == WAIT_TIMEOUT);
    first.ReleaseMutex();
    CHECK(WaitElsewhere(second) == WAIT_OBJECT_0); // a thread that ends without releasing it
    CHECK(first.Wait(0) == WAIT_ABANDONED);

    const CMutex unnamed(std::wstring(), false), another(std::string(), false);
    CHECK_FALSE(another.AlreadyExisted());
    {
        const CMutexLock lock(unnamed);
        CHECK(WaitElsewhere(unnamed) == WAIT_TIMEOUT);
    }
    CHECK(WaitElsewhere(unnamed) == WAIT_OBJECT_0);
}

TEST_CASE("events keep their kind: manual ones stay set, automatic ones let one wait through")
{
    const CEvent manual(true, true), automatic(UniqueName(L"automatic"), false, false);
    CHECK(manual.Wait(0) == WAIT_OBJECT_0);
    CHECK(manual.Wait(0) == WAIT_OBJECT_0);
    manual.Reset();
    CHECK(manual.Wait(0) == WAIT_TIMEOUT);
    CEvent(UniqueName(L"automatic"), false, false).Set(); // the same event
    CHECK(automatic.Wait(0) == WAIT_OBJECT_0);
    CHECK(automatic.Wait(0) == WAIT_TIMEOUT);
}

TEST_CASE("a system library's functions are found, and what is missing is null")
{
    const auto found = [](const std::wstring& file, const char* function) {
        return CSystemLibrary(file).GetFunction<FARPROC>(function) != nullptr;
    };
    CHECK(found(L"version.dll", "GetFileVersionInfoSizeW"));
    CHECK_FALSE(found(L"version.dll", "NoSuchFunction"));
    CHECK_FALSE(found(L"no-such-library.dll", "GetFileVersionInfoSizeW"));
    CHECK_FALSE(found(std::wstring(1000, L'x'), "GetFileVersionInfoSizeW"));
}
