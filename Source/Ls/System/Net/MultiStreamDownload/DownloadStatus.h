#pragma once

#include "Ls/System/Exception.h"
#include "Ls/System/ReferenceCounted.h"

#include <cstdint>

namespace LS::System::Net::MultiStreamDownload
{
/// What a download has come to, taken in one moment.
struct DownloadStatus
{
    /// The file lies whole at its place.
    bool Finished = false;
    /// The download has failed for good; hException says why.
    bool Error = false;
    /// No stream has been started yet.
    bool StartPending = false;
    /// The server wants a renewed authentication (401 or 403).
    bool AuthRefresh = false;
    /// Bytes on hand, those of earlier runs included; 0 on Error.
    std::uint32_t BytesDone = 0;
    /// Bytes received by the streams' present attempts; 0 on Error.
    std::uint32_t BytesRun = 0;
    /// 0 while unknown and on Error.
    std::uint32_t FileSize = 0;
    /// 0 to 100; 0 while the size is unknown and on Error.
    float PercentDone = 0;
    /// Set exactly when Error is.
    CRefPtr<const CException> hException;
    std::uint32_t ThreadsUsed = 1;
};

/// Receives the status as it changes, on the download's own threads, one call at a time. It may ask for the
/// status, cancel the download or let go of it.
using StatusCallback = void (*)(void* context, const DownloadStatus& status);

/// bytesDone of fileSize in percent, at most 100; 0 for an unknown size.
inline float PercentOf(std::uint32_t bytesDone, std::uint32_t fileSize) noexcept
{
    if (fileSize == 0)
        return 0;
    const double percent = bytesDone * 100.0 / fileSize;
    return percent > 100.0 ? 100.0F : static_cast<float>(percent);
}
} // namespace LS::System::Net::MultiStreamDownload
