#pragma once

#include "Ls/System/Win32/RegistryKey.h"

#include <optional>
#include <string>

/// The registry value "Download" under "HKLM\Software\Larkspur\InstallerStatus" through which an outside
/// installer can watch the download. Only who wants to watch creates the value; it is never created here.
class CDownloadProgressValue
{
public:
    /// wanted is the run's "/emitdownloadprogress"; without it nothing is touched. Throws CException when
    /// the key can't be opened for writing.
    explicit CDownloadProgressValue(bool wanted);

    /// Someone watches: the value is to be written.
    bool IsOn() const noexcept { return m_Key.has_value(); }

    // Only when IsOn. A value that can't be written is no reason to give up a download: it is logged, and
    // nobody watches any more.
    void Write(float percent);
    void WriteDone();

private:
    void WriteText(const std::wstring& text);

    std::optional<LS::System::Win32::CRegistryKey> m_Key;
};
