#pragma once

#include <windows.h>

#include <functional>

namespace Tests
{
/// For a scope: sees each exception of one code before anyone else, on the thread that raises it, and takes
/// it for handled when the action says so. One at a time.
class CExceptionWatch
{
public:
    CExceptionWatch(DWORD code, std::function<bool(EXCEPTION_POINTERS&)> action)
    {
        ms_Code = code;
        ms_Action = std::move(action);
    }
    CExceptionWatch(const CExceptionWatch&) = delete;
    ~CExceptionWatch() { ::RemoveVectoredExceptionHandler(m_Handler); }

private:
    static LONG CALLBACK See(EXCEPTION_POINTERS* exception)
    {
        const bool handled = exception->ExceptionRecord->ExceptionCode == ms_Code && ms_Action(*exception);
        return handled ? EXCEPTION_CONTINUE_EXECUTION : EXCEPTION_CONTINUE_SEARCH;
    }

    inline static DWORD ms_Code = 0;
    inline static std::function<bool(EXCEPTION_POINTERS&)> ms_Action;
    void* const m_Handler = ::AddVectoredExceptionHandler(1, &See);
};
} // namespace Tests
