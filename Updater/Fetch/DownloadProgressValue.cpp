#include "Updater/Fetch/DownloadProgressValue.h"

#include "Ls/System/String/Printf.h"

namespace
{
constexpr const wchar_t* ValueName = L"Download";
}

CDownloadProgressValue::CDownloadProgressValue(bool wanted)
{
    if (!wanted)
        return;
    m_Key.emplace(L"HKLM\\Software\\Larkspur\\InstallerStatus", false);
    if (!m_Key->ValueExists(ValueName))
        m_Key.reset();
}

void CDownloadProgressValue::Write(float percent) const
{
    m_Key->SetString(ValueName, LS::Printf(L"%f", static_cast<double>(percent)));
}

void CDownloadProgressValue::WriteDone() const
{
    m_Key->SetString(ValueName, L"100");
}
