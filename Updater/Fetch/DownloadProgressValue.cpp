#include "Updater/Fetch/DownloadProgressValue.h"

#include "Ls/System/Exception.h"
#include "Ls/System/String/Printf.h"
#include "Ls/System/Util/Log.h"

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

void CDownloadProgressValue::Write(float percent)
{
    WriteText(LS::Printf(L"%f", static_cast<double>(percent)));
}

void CDownloadProgressValue::WriteDone()
{
    WriteText(L"100");
}

void CDownloadProgressValue::WriteText(const std::wstring& text)
{
    try
    {
        m_Key->SetString(ValueName, text);
    }
    catch (const LS::System::CException& exception) // the key was deleted, for example
    {
        LS_LOG_FAILURE(L"CDownloadProgressValue::WriteText() : %s", exception.ShortDescription().c_str());
        m_Key.reset();
    }
}
