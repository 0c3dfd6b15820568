#include "Updater/Dialog/UI.h"

#include "Ls/System/ExitCodeException.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Win32/ScopeExit.h"
#include "Updater/Dialog/MsgDialogThreadFunction.h"
#include "Updater/Resources/Resource.h"
#include "Updater/Run/ExitCodes.h"
#include "Updater/Settings/DebugSettings.h"

#include <commctrl.h>

#include <algorithm>

using namespace LS::System;
using namespace LS::System::Win32;

namespace
{
constexpr int HighestProgress = 100;

/// The program's icon at one of the system's sizes, which has an image of its own in the file.
HICON LoadProgramIcon(int width, int height)
{
    return static_cast<HICON>(::LoadImageW(::GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDI_UPDATER),
                                           IMAGE_ICON, width, height, LR_DEFAULTCOLOR));
}
} // namespace

CUI::CUI(bool visible, const std::wstring& title, const std::wstring& messageText) :
    m_Visible(visible), m_Title(title), m_MessageText(messageText),
    m_MinimumShowTimeMs(DebugSettings::UpdaterMinDialogShowTimeMs)
{
    LS_LOG_INFO("CUI::CUI() : Begin");
    CUI* none = nullptr;
    if (!ms_pInstance.compare_exchange_strong(none, this))
    {
        LS_LOG_INFO("CUI::CUI() : Error ms_pInstance != NULL, throw out");
        LS_LOG_FAILURE("Only one instance allowed");
        throw CExitCodeException(ExitCodes::SecondDialog);
    }
    CScopeExit undo([this] {
        m_Thread.Reset();
        ms_pInstance = nullptr;
    });

    m_ReadyEvent = MakeRef<CEvent>(true, false);
    m_Thread = MakeRef<CThread>(MakeRef<CMsgDialogThreadFunction>(*this));
    m_Thread->ThreadStart("Progress dialog");

    // The thread's handle stands ready, but the count of one leaves it out: a dialog that can't be made keeps
    // the run here, as it always has.
    const HANDLE handles[] = {m_ReadyEvent->Handle(), m_Thread->Handle()};
    const DWORD dwResult = ::WaitForMultipleObjects(1, handles, FALSE, INFINITE);
    if (dwResult != WAIT_OBJECT_0)
    {
        LS_LOG_INFO("CUI::CUI() :dwResult != WAIT_OBJECT_0, throw out");
        LS_LOG_FAILURE("Thread terminated unexpectedly");
        throw CExitCodeException(ExitCodes::DialogWaitFailed);
    }
    m_ReadyEvent.Reset();
    undo.Release();
    LS_LOG_INFO("CUI::CUI()");
}

CUI::~CUI()
{
    LS_LOG_INFO("CUI::~CUI()");
    ms_pInstance = nullptr;
    m_Thread.Reset(); // waits for it: it uses this object to its end
}

void CUI::SetText(const std::wstring& messageText)
{
    LS_LOG_INFO(L"CUI::SetText() : MessageText=%s", messageText.c_str());
    {
        const CLock lock(m_Lock);
        m_MessageText = messageText;
        m_TextChanged = true;
    }
    LS_LOG_INFO("CUI::SetText() : End");
}

void CUI::SetProgress(int progress)
{
    LS_LOG_INFO("CUI::SetProgress() : Progress=%d", progress);
    // The dialog passes it on to its bar. With no window this goes to the calling thread, which ignores it.
    ::PostMessageW(m_Window, PBM_SETPOS, static_cast<WPARAM>(std::min(progress, HighestProgress)), 0);
}

void CUI::SetShouldFinish()
{
    LS_LOG_INFO("CUI::SetShouldFinish()");
    m_Thread->SetShouldFinish(true);
}

void CUI::SetQuickExit()
{
    LS_LOG_INFO("CUI::SetQuickExit()");
    // The quick exit has no debug value of its own; it follows that of every dialog.
    m_MinimumShowTimeMs = DebugSettings::UpdaterMinDialogShowTimeMs;
}

HWND CUI::VisibleWindow() const noexcept
{
    const HWND window = m_Window;
    return window && ::IsWindowVisible(window) ? window : nullptr;
}

// Nothing may be thrown through the system's frames, so nothing here does.
INT_PTR CALLBACK CUI::DialogProcedure(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message)
    {
    case WM_INITDIALOG:
        // By this pointer and not by lParam, which any program of the desktop could forge, and only once:
        // a forged message finds the window made and the ready event given up.
        if (CUI* const ui = ms_pInstance; ui && !ui->m_Window)
            ui->InitDialog(dialog);
        return TRUE;
    case PBM_SETPOS: // of the same number as DM_REPOSITION, so it must not reach the default handling
        ::PostMessageW(::GetDlgItem(dialog, IDC_PROGRESS_BAR), PBM_SETPOS, wParam, lParam);
        return TRUE;
    default:
        return FALSE;
    }
}

void CUI::InitDialog(HWND dialog)
{
    {
        const CLock lock(m_Lock);
        ::SetWindowTextW(dialog, m_Title.c_str());
        ::SetDlgItemTextW(dialog, IDC_MESSAGE_TEXT, m_MessageText.c_str());
        m_BigIcon.Reset(LoadProgramIcon(::GetSystemMetrics(SM_CXICON), ::GetSystemMetrics(SM_CYICON)));
        m_SmallIcon.Reset(LoadProgramIcon(::GetSystemMetrics(SM_CXSMICON), ::GetSystemMetrics(SM_CYSMICON)));
        ::SendMessageW(dialog, WM_SETICON, ICON_BIG, reinterpret_cast<LPARAM>(m_BigIcon.Get()));
        ::SendMessageW(dialog, WM_SETICON, ICON_SMALL, reinterpret_cast<LPARAM>(m_SmallIcon.Get()));
    }
    ::PostMessageW(::GetDlgItem(dialog, IDC_PROGRESS_BAR), PBM_SETPOS, 0, 0);
    m_Window = dialog;
    ::SetEvent(m_ReadyEvent->Handle());
}

void CUI::ApplyText(HWND dialog)
{
    const CLock lock(m_Lock);
    if (!m_TextChanged)
        return;
    ::SetDlgItemTextW(dialog, IDC_MESSAGE_TEXT, m_MessageText.c_str());
    m_TextChanged = false;
}
