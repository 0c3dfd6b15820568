#pragma once

#include "Ls/System/Win32/Thread.h"

#include <cstdint>

class CUI;

/// The progress dialog's thread: makes the window, shows it when its time has come, and closes it when the
/// thread is asked to finish and the window has been seen long enough.
class CMsgDialogThreadFunction : public LS::System::Win32::CThreadFunction
{
public:
    /// ui outlives the thread: it waits for its end.
    explicit CMsgDialogThreadFunction(CUI& ui) noexcept : m_UI(ui) {}

    /// 0, or the exit code of what went wrong; nothing escapes.
    std::uint32_t Execute(LS::System::Win32::CThread& thread) override;

private:
    void RunDialog(const LS::System::Win32::CThread& thread);

    CUI& m_UI;
};
