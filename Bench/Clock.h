#pragma once

#include <windows.h>

/// Seconds since some moment, the same for all processes of the machine.
inline double Now()
{
    LARGE_INTEGER count, frequency;
    ::QueryPerformanceCounter(&count);
    ::QueryPerformanceFrequency(&frequency);
    return static_cast<double>(count.QuadPart) / static_cast<double>(frequency.QuadPart);
}
