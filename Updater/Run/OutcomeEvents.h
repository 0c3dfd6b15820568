#pragma once

#include "Ls/System/ReferenceCounted.h"
#include "Ls/System/Win32/Event.h"
#include "Updater/Run/CrashEnd.h"

#include <string>

/// The named events through which the waiting client learns how the run ends. Each is auto-reset and is
/// opened when the client has made it first.
class COutcomeEvents
{
public:
    COutcomeEvents() = default;
    COutcomeEvents(const COutcomeEvents&) = delete;
    COutcomeEvents& operator=(const COutcomeEvents&) = delete;
    ~COutcomeEvents() { SetEventForCrash(nullptr); }

    /// Makes or opens the three events, and has a crash tell of itself by UpdateNo. Throws CException; those
    /// made before the failure stay.
    void Create(const std::wstring& productName);

    /// The client may be told that there is no update: the event exists.
    bool HasUpdateNo() const noexcept { return static_cast<bool>(m_UpdateNo); }

    // After Create. They throw CException.
    void SetUpdateNo() const { m_UpdateNo->Set(); }
    /// The installer is about to start.
    void SetUpdateYes() const { m_UpdateYes->Set(); }
    /// The user doesn't want the update.
    void SetUpdateDeny() const { m_UpdateDeny->Set(); }

private:
    LS::System::CRefPtr<LS::System::Win32::CEvent> m_UpdateNo;
    LS::System::CRefPtr<LS::System::Win32::CEvent> m_UpdateYes;
    LS::System::CRefPtr<LS::System::Win32::CEvent> m_UpdateDeny;
};
