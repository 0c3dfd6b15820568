#include "Updater/Dialog/MsgDialogThreadFunction.h"

#include "Ls/System/ExitCodeException.h"
#include "Ls/System/Util/Log.h"
#include "Updater/Dialog/Prompts.h"
#include "Updater/Dialog/RAIIDialog.h"
#include "Updater/Dialog/UI.h"
#include "Updater/Run/ExitCodes.h"
#include "Updater/Settings/DebugSettings.h"

#include <windows.h>

using namespace LS::System;

namespace
{
/// How late a new text, the time to show or a request to finish may be noticed.
constexpr DWORD PollMs = 50;
} // namespace

std::uint32_t CMsgDialogThreadFunction::Execute(Win32::CThread& thread)
{
    LS_LOG_INFO("CMsgDialogThreadFunction::Execute() : Begin");
    std::int32_t result = 0;
    try
    {
        RunDialog(thread);
    }
    catch (const CExitCodeException& exception)
    {
        result = exception.ExitCode();
        LS_LOG_INFO("CMsgDialogThreadFunction::Execute() : caught CExitCodeException : Error code is: %d",
                    result);
    }
    catch (...)
    {
        result = ExitCodes::UnknownException;
        LS_LOG_INFO("CMsgDialogThreadFunction::Execute() : caught (...)");
    }
    m_UI.m_Window = nullptr;
    LS_LOG_INFO("CMsgDialogThreadFunction::Execute() : End : Return: %d", result);
    return static_cast<std::uint32_t>(result);
}

void CMsgDialogThreadFunction::RunDialog(const Win32::CThread& thread)
{
    const CRAIIDialog dialog(&CUI::DialogProcedure);
    const HWND window = dialog.Window();
    bool shown = false;
    DWORD referenceTicks = ::GetTickCount(); // of the making, later of the showing

    for (;;)
    {
        const DWORD passedMs = ::GetTickCount() - referenceTicks;
        if (thread.ShouldFinish())
        {
            if (!shown || !m_UI.m_Visible || passedMs >= m_UI.m_MinimumShowTimeMs)
                return;
        }
        else if (!shown && (m_UI.m_ShowAtOnce || passedMs >= DebugSettings::UpdaterPauseBeforeDialogMs))
        {
            if (m_UI.m_Visible)
            {
                // Not by ShowWindow, whose first call takes what the client's start-up information says
                // instead: hidden or minimised. A question that waits for its answer stays above and keeps
                // the keyboard.
                const UINT behind = Prompts::IsOpen() ? SWP_NOACTIVATE | SWP_NOZORDER : 0;
                ::SetWindowPos(window, HWND_TOP, 0, 0, 0, 0,
                               SWP_SHOWWINDOW | SWP_NOMOVE | SWP_NOSIZE | behind);
                ::UpdateWindow(window);
            }
            shown = true;
            referenceTicks = ::GetTickCount();
        }

        ::MsgWaitForMultipleObjectsEx(0, nullptr, PollMs, QS_ALLINPUT, MWMO_ALERTABLE | MWMO_INPUTAVAILABLE);
        MSG message;
        if (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) && !::IsDialogMessageW(window, &message))
        {
            ::TranslateMessage(&message);
            ::DispatchMessageW(&message);
        }
        m_UI.ApplyText(window);
    }
}
