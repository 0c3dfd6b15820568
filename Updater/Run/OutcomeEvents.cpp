#include "Updater/Run/OutcomeEvents.h"

using LS::System::MakeRef;
using LS::System::Win32::CEvent;

void COutcomeEvents::Create(const std::wstring& productName)
{
    m_UpdateNo =
        MakeRef<CEvent>(L"{FCBD3DBA-DB17-4EC5-999E-5CF45A722924}-UpdateNo-" + productName, false, false);
    SetEventForCrash(m_UpdateNo->Handle());
    m_UpdateYes =
        MakeRef<CEvent>(L"{FCBD3DBA-DB17-4EC5-999E-5CF45A722924}-UpdateYes-" + productName, false, false);
    m_UpdateDeny =
        MakeRef<CEvent>(L"{F7960AE2-D719-4F0D-9A10-B207F8DACB24}-UpdateDeny-" + productName, false, false);
}
