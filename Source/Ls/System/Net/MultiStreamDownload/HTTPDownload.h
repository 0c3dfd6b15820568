#pragma once

#include "Ls/System/Net/MultiStreamDownload/DownloadStatus.h"
#include "Ls/System/Net/MultiStreamDownload/DownloadTimeOuts.h"
#include "Ls/System/Object.h"
#include "Ls/System/ReferenceCounted.h"
#include "Ls/System/Win32/CriticalSection.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace LS::System::Net::MultiStreamDownload
{
class CDownloadThread;
class CWatchdogThread;

/// Downloads one URL to one file with one or two HTTP range streams: begins when constructed, goes on where
/// an interrupted download of the same file stopped, and stops when the last reference goes. The file appears
/// at its place only when it is whole.
///
/// The owner polls GetStatus, from any thread, until Finished or Error is set. Dropping the last reference
/// stops and joins every thread; it may be done on any thread, within the status callback as well. What was
/// received stays on disk for a later resume, except that a download which starts over begins from nothing.
class CHTTPDownload : public CReferenceCounted, public CObject
{
public:
    /// A file that lies at outputPath already counts as the finished download. retries is the number of
    /// further attempts of a stream. Failures, those at the start included, are told by the status;
    /// exceptions other than CException (no memory) leave the constructor.
    CHTTPDownload(const std::string& userAgent, const std::wstring& url, const std::wstring& outputPath,
                  StatusCallback statusCallback, void* statusContext, std::uint32_t retries,
                  const DownloadTimeOuts& timeOuts = {});
    ~CHTTPDownload() override;

    DownloadStatus GetStatus() const;

    /// Stops the streams for good; the files stay for a resume. Waits for a status callback in progress,
    /// unless called within it, and up to 1000 ms for each stream. Nothing happens to a finished download.
    void Cancel();

    // For the streams.
    /// The stream's news. Throws CException when this was the last stream and the file couldn't be finalised.
    /// The owner may let go of the download within: afterwards a stream that is asked to stop must not touch
    /// it.
    void DownloadThreadCallback(std::uint32_t streamIndex, bool isError, bool isFinished, bool authRefresh,
                                std::uint32_t bytesDone, std::uint32_t bytesRun, const CException* exception);
    /// The server has named the file's size.
    void SetFileSize(std::uint32_t size);
    /// The network has delivered the stream's last byte. It isn't on disk yet: only the callback says that
    /// the stream is finished, or the file would be finalised under a writer.
    void MarkStreamFinished(std::uint32_t streamIndex);
    /// Within a catch block of a stream or the watchdog, unless it has been asked to stop: what is being
    /// handled ends the download, since the thread that ends by it reports nothing any more. Needs no memory.
    /// The owner may let go of the download within.
    void ReportEscape();
    CWatchdogThread& Watchdog() noexcept { return *m_Watchdog; }

    // For the watchdog. Both change only while no stream runs, so streams read them without a lock.
    std::uint32_t RestartCount() const noexcept { return m_RestartCount; }
    bool ForcedSingle() const noexcept { return m_ForcedSingle; }
    /// Start over from nothing; a failure ends the download. On the watchdog's thread.
    void RestartSingleStream();
    /// The same, with as many streams as now. The initial single stream so starts over as a single one, with
    /// the size known; two streams come only from the record of an earlier run.
    void RestartMultiStream();

private:
    struct StreamState
    {
        std::uint32_t BytesDone = 0;
        std::uint32_t BytesRun = 0;
        bool Finished = false;
        /// The stream has called back.
        bool Reported = false;
        /// See MarkStreamFinished.
        bool AllReceived = false;
    };
    struct Stream
    {
        CRefPtr<CDownloadThread> Thread;
        StreamState State;
    };
    struct NotifyGate;

    void Start();
    bool StartStreams();
    bool AdoptProgress();
    bool StartStream(std::uint32_t index, std::uint64_t cacheSize);
    void ClearStreams();
    bool AwaitStreamEnds() noexcept;
    void RequestStreamStops() noexcept;
    void StopStreams() noexcept;
    void Restart(std::uint32_t threads);
    bool RestartStreams(std::uint32_t threads);
    bool KeepFailure(const CException* cause) noexcept;
    void EndInFailure();
    void FailToStart(const CException* cause);
    void FinalizeDownload(const std::wstring& outputPath, bool sizeKnown, std::uint32_t expectedSize);
    bool PassStatus();
    void Shutdown() noexcept;

    // Locks, in the order in which they are taken. The lock of the status callback lies in m_Gate.
    /// Serialises starts and restarts.
    Win32::CCriticalSection m_RestartLock;
    /// Guards what follows, up to m_TotalDone.
    mutable Win32::CCriticalSection m_StateLock;

    /// In the order of their index. Changed by whoever holds m_RestartLock too, so that he may read it
    /// without m_StateLock.
    std::vector<Stream> m_Streams;
    /// How far each stream's record has ever come, over restarts too: bytes that come again after one give no
    /// new attempts. Changed by whoever holds m_RestartLock.
    std::array<std::uint32_t, 2> m_Furthest{};
    bool m_Failed = false;
    bool m_StartPending = false;
    bool m_Finished = false;
    /// Read without the lock by a finalisation and a restart, which must give up.
    std::atomic<bool> m_Cancelled{false};
    bool m_LastAuthRefresh = false;
    bool m_ForcedSingle = false;
    std::uint32_t m_RestartCount = 0;
    std::uint32_t m_ThreadsUsed = 1;
    CRefPtr<const CException> m_Failure;
    std::uint32_t m_FileSize = 0;
    bool m_SizeKnown = false;
    std::uint32_t m_TotalRun = 0;
    std::uint32_t m_TotalDone = 0;

    /// Kept as the failure when there is no memory for another.
    const CRefPtr<const CException> m_UnknownFailure;
    const CRefPtr<NotifyGate> m_Gate;
    const StatusCallback m_StatusCallback;
    void* const m_StatusContext;

    const std::string m_UserAgent;
    const std::string m_Url;
    const std::wstring m_OutputPath;
    const std::uint32_t m_Retries;
    const DownloadTimeOuts m_TimeOuts;
    CRefPtr<CWatchdogThread> m_Watchdog;
};
} // namespace LS::System::Net::MultiStreamDownload
