#pragma once

#include "Ls/System/ReferenceCounted.h"
#include "Ls/System/Win32/CriticalSection.h"
#include "Ls/System/Win32/Event.h"
#include "Ls/System/Win32/Thread.h"
#include "Ls/System/Win32/UniqueHandle.h"

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <string>

struct IconTraits
{
    using Type = HICON;
    static Type None() noexcept { return nullptr; }
    static void Free(Type icon) noexcept { ::DestroyIcon(icon); }
};

/// The progress dialog as the rest of the program sees it; one at a time in a process. The window lives on a
/// thread of its own, so nothing that the caller does freezes it. It shows itself only after
/// DebugSettings::UpdaterPauseBeforeDialogMs, and then stays for its minimum show time.
///
/// Any thread may call the operations while the object lives. They return at once; what they ask for is seen
/// within about 50 ms.
class CUI
{
public:
    /// Makes the hidden window and returns when it is there. With visible false it is never shown. Throws
    /// CExitCodeException: SecondDialog while another CUI lives, DialogWaitFailed.
    /// Does not return when the window can't be made: only the window's being there is waited for.
    CUI(bool visible, const std::wstring& title, const std::wstring& messageText);
    CUI(const CUI&) = delete;
    CUI& operator=(const CUI&) = delete;
    /// Asks the dialog to finish and waits for that: up to its minimum show time.
    ~CUI();

    /// Of several texts in short order only the last may be seen.
    void SetText(const std::wstring& messageText);
    /// 0 to 100 of the whole run; more counts as 100, less is left to the bar. Does nothing while there is no
    /// window.
    void SetProgress(int progress);
    /// Closes the window: at once when it was never shown, else once its minimum show time has passed.
    void SetShouldFinish();
    /// A window that is about to close needs to stay for the quick exit's time only.
    void SetQuickExit();

    /// The window while it can be seen, else null.
    HWND VisibleWindow() const noexcept;

    /// The CUI that lives, or null.
    static inline std::atomic<CUI*> ms_pInstance = nullptr;

private:
    friend class CMsgDialogThreadFunction;

    // On the dialog's thread.
    static INT_PTR CALLBACK DialogProcedure(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam);
    void InitDialog(HWND dialog);
    void ApplyText(HWND dialog);

    const bool m_Visible;
    /// Guards the title, the message text and its flag.
    LS::System::Win32::CCriticalSection m_Lock;
    const std::wstring m_Title;
    bool m_TextChanged = false;
    std::wstring m_MessageText;
    /// Skips the pause before showing.
    bool m_ShowAtOnce = false;
    std::atomic<std::uint32_t> m_MinimumShowTimeMs;
    /// Null until the dialog has been made and after it has gone.
    std::atomic<HWND> m_Window = nullptr;
    /// The window's, freed after it.
    LS::System::Win32::CUniqueHandle<IconTraits> m_BigIcon;
    LS::System::Win32::CUniqueHandle<IconTraits> m_SmallIcon;
    LS::System::CRefPtr<LS::System::Win32::CThread> m_Thread;
    /// Set by the dialog when it is there; the constructor's only.
    LS::System::CRefPtr<LS::System::Win32::CEvent> m_ReadyEvent;
};
