#pragma once

#include "Ls/System/Win32/RegistryKey.h"

#include <optional>

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

    // Only when IsOn. They throw CException.
    void Write(float percent) const;
    void WriteDone() const;

private:
    std::optional<LS::System::Win32::CRegistryKey> m_Key;
};
