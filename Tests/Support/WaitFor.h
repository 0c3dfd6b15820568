#pragma once

#include <windows.h>

#include <cstdint>

namespace Tests
{
/// Looks every 2 ms until the condition holds; false when it still doesn't after timeOutMs (a limit for what
/// is broken, never a measure).
template <class Condition>
bool WaitFor(Condition condition, std::uint32_t timeOutMs = 120000)
{
    const DWORD begin = ::GetTickCount();
    while (!condition())
    {
        if (::GetTickCount() - begin >= timeOutMs)
            return false;
        ::Sleep(2);
    }
    return true;
}
} // namespace Tests
