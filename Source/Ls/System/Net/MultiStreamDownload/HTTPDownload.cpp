#include "Ls/System/Net/MultiStreamDownload/HTTPDownload.h"

#include "Ls/System/HandledException.h"
#include "Ls/System/Io/File.h"
#include "Ls/System/Io/FilePatience.h"
#include "Ls/System/Io/Link.h"
#include "Ls/System/Net/MultiStreamDownload/DownloadThread.h"
#include "Ls/System/Net/MultiStreamDownload/LogText.h"
#include "Ls/System/Net/MultiStreamDownload/ProgressFile.h"
#include "Ls/System/Net/MultiStreamDownload/RangeSplit.h"
#include "Ls/System/Net/MultiStreamDownload/ResumeRules.h"
#include "Ls/System/Net/MultiStreamDownload/WatchdogThread.h"
#include "Ls/System/String/Convert.h"
#include "Ls/System/String/DecimalText.h"
#include "Ls/System/String/SystemErrorText.h"
#include "Ls/System/ThrowException.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Win32/ScopeExit.h"

#include <algorithm>

namespace LS::System::Net::MultiStreamDownload
{
namespace
{
/// A stream that waits for the state lock can't end before the one who stops it lets go of the lock.
constexpr std::uint32_t StopWaitMs = 1000;
/// A restart that waits for the streams looks this often whether the download is cancelled.
constexpr std::uint32_t CancelPollMs = 50;
/// What holds a state file then is left to the next run.
constexpr int DropTries = 5;
constexpr char ThreadError[] = "Download Thread Error";
constexpr wchar_t UnknownThreadError[] = L"Unknown Download Thread Error";
} // namespace

/// What the status callback is called under. It is shared, since the callback may let go of the download and
/// leave the thread that called it without one.
struct CHTTPDownload::NotifyGate : CReferenceCounted
{
    Win32::CCriticalSection Lock;
    /// The thread inside the callback, 0 for none.
    std::atomic<DWORD> Thread{0};
    /// The owner has let go: he isn't called any more. Guarded by Lock.
    bool OwnerGone = false;
    /// Guarded by Lock.
    bool FinishNotified = false;
};

CHTTPDownload::CHTTPDownload(const std::string& userAgent, const std::wstring& url,
                             const std::wstring& outputPath, StatusCallback statusCallback,
                             void* statusContext, std::uint32_t retries, const DownloadTimeOuts& timeOuts) :
    m_UnknownFailure(MakeRef<const CException>(UnknownThreadError, LS_HERE)),
    m_Gate(MakeRef<NotifyGate>()), m_StatusCallback(statusCallback), m_StatusContext(statusContext),
    m_UserAgent(userAgent), m_Url(WideToAnsi(url)), m_OutputPath(outputPath), m_Retries(retries),
    m_TimeOuts(timeOuts)
{
    if (IO::CFile::Exists(m_OutputPath))
    {
        LS_LOG_INFO(L"CHTTPDownload::CHTTPDownload() : %s is there already", m_OutputPath.c_str());
        m_Finished = true;
        m_TotalDone = m_FileSize;
        PassStatus();
        return;
    }

    LS_LOG_INFO(L"CHTTPDownload::CHTTPDownload() : %s to %s", url.c_str(), m_OutputPath.c_str());
    try
    {
        Start();
    }
    catch (...)
    {
        Shutdown();
        throw;
    }
}

void CHTTPDownload::Start()
{
    try
    {
        const Win32::CLock restarts(m_RestartLock);
        m_StartPending = true;
        m_Watchdog = MakeRef<CWatchdogThread>(*this);
        if (m_Watchdog->Wait(0) == WAIT_TIMEOUT && StartStreams())
            return;
    }
    catch (const CException& failure)
    {
        FailToStart(&failure);
        return;
    }
    FailToStart(nullptr); // the debug switch has let the failure pass, but nothing runs
}

CHTTPDownload::~CHTTPDownload()
{
    Shutdown();
}

/// Runs on one of the download's own threads when the owner lets go within the status callback. That thread
/// isn't joined; it finds itself asked to stop and touches nothing of this object any more.
void CHTTPDownload::Shutdown() noexcept
{
    // Given up before the streams are joined: one of them may be waiting for its turn to call the owner.
    if (m_Gate->Thread != ::GetCurrentThreadId())
        m_Gate->Lock.Enter();
    m_Gate->OwnerGone = true;
    m_Gate->Thread = 0;
    m_Gate->Lock.Leave();

    // Not through Cancel: here nobody holds the state lock while he waits, so no stream waits for it either.
    {
        const Win32::CLock lock(m_StateLock);
        m_Cancelled = true;
        RequestStreamStops();
    }
    if (m_Watchdog)
        m_Watchdog->StopAndWait();
    ClearStreams();
}

DownloadStatus CHTTPDownload::GetStatus() const
{
    const Win32::CLock lock(m_StateLock);
    DownloadStatus status;
    status.Finished = m_Finished;
    status.Error = m_Failed;
    status.StartPending = m_StartPending;
    status.AuthRefresh = m_LastAuthRefresh;
    status.ThreadsUsed = m_ThreadsUsed;
    if (m_Failed)
    {
        status.hException = m_Failure;
        return status;
    }
    status.BytesDone = m_TotalDone;
    status.BytesRun = m_TotalRun;
    status.FileSize = m_FileSize;
    status.PercentDone = PercentOf(m_TotalDone, m_FileSize);
    return status;
}

void CHTTPDownload::Cancel()
{
    {
        const Win32::CLock lock(m_StateLock);
        if (m_Cancelled || m_Finished)
            return;
    }
    // A callback in progress is waited for before the state lock is held, not under it: the callback may be
    // about to ask for the status, and would wait for the state lock for ever.
    const bool insideCallback = m_Gate->Thread == ::GetCurrentThreadId();
    if (!insideCallback)
        m_Gate->Lock.Enter();
    const Win32::CLock lock(m_StateLock);
    if (!insideCallback)
        m_Gate->Lock.Leave();

    if (m_Cancelled || m_Finished)
        return;
    m_Cancelled = true;
    LS_LOG_INFO("CHTTPDownload::Cancel() : stopping at %u of %u bytes", m_TotalDone, m_FileSize);
    StopStreams();
}

/// False when a thread is missing.
bool CHTTPDownload::StartStreams()
{
    ClearStreams();

    const Win32::CLock lock(m_StateLock);
    if (m_Cancelled || m_Finished)
        return true;
    // Looked at before any stream makes the cache file longer.
    const std::wstring cachePath = CacheFilePath(m_OutputPath);
    const bool resumes = AdoptProgress() && IO::CFile::Exists(cachePath);
    const std::uint64_t cacheSize = resumes ? IO::CFile::Size(cachePath) : 0;
    DownloadProgress(m_OutputPath, m_ThreadsUsed, m_FileSize).Write();
    m_StartPending = false;
    LS_LOG_INFO("CHTTPDownload::StartStreams() : %u stream(s), size %u%s", m_ThreadsUsed, m_FileSize,
                m_FileSize == 0 ? " (unknown)" : "");
    bool started = true;
    for (std::uint32_t index = 0; index < m_ThreadsUsed; ++index)
        started = StartStream(index, cacheSize) && started;
    return started;
}

/// False for a start from nothing. A record that can't be deleted then isn't used: see StreamTask.
bool CHTTPDownload::AdoptProgress()
{
    DownloadProgress progress(m_OutputPath);
    if (progress.Read() && IsAdoptable(progress.Values))
    {
        m_FileSize = progress.Values.DownloadSize;
        m_SizeKnown = m_FileSize != 0;
        m_ThreadsUsed = progress.Values.ThreadsUsed;
        LS_LOG_INFO("CHTTPDownload::AdoptProgress() : going on with an earlier download");
        return true;
    }
    DropStateFiles(m_OutputPath, DropTries);
    return false;
}

bool CHTTPDownload::StartStream(std::uint32_t index, std::uint64_t cacheSize)
{
    StreamTask task;
    task.UserAgent = m_UserAgent;
    task.Url = m_Url;
    task.OutputPath = m_OutputPath;
    task.Range = SplitRange(m_FileSize, m_ThreadsUsed, index);
    task.FileSize = m_FileSize;
    task.StreamIndex = index;
    task.ThreadsUsed = m_ThreadsUsed;
    task.Retries = m_Retries;
    task.TimeOuts = m_TimeOuts;
    task.CacheSize = cacheSize;
    task.Furthest = m_Furthest[index];
    m_Streams.push_back({MakeRef<CDownloadThread>(*this, std::move(task)), {}});
    CDownloadThread& thread = *m_Streams.back().Thread;
    thread.Start();
    return thread.Handle() != nullptr;
}

/// Under the restart lock, or at the end of this object.
void CHTTPDownload::ClearStreams()
{
    StopStreams();
    for (std::size_t i = 0; i < m_Streams.size(); ++i)
    {
        m_Streams[i].Thread->Stop();
        m_Furthest[i] = m_Streams[i].Thread->Furthest();
    }

    std::vector<Stream> ended;
    const Win32::CLock lock(m_StateLock);
    ended.swap(m_Streams);
}

/// For a restart. False when the download is cancelled: one of the streams may be inside the status callback,
/// in which the owner lets go of the download, and wait for the restart in its turn.
bool CHTTPDownload::AwaitStreamEnds() noexcept
{
    RequestStreamStops();
    for (const Stream& stream : m_Streams)
    {
        for (bool running = true; running && !m_Cancelled;)
            running = stream.Thread->Wait(CancelPollMs) == WAIT_TIMEOUT;
    }
    return !m_Cancelled;
}

void CHTTPDownload::RequestStreamStops() noexcept
{
    for (const Stream& stream : m_Streams)
        stream.Thread->RequestStop();
}

/// Each stream is given 1000 ms from the request on, but not the calling one: it would wait for itself.
void CHTTPDownload::StopStreams() noexcept
{
    RequestStreamStops();
    const DWORD begin = ::GetTickCount();
    for (const Stream& stream : m_Streams)
    {
        const DWORD passed = ::GetTickCount() - begin;
        if (stream.Thread->Id() != ::GetCurrentThreadId())
            stream.Thread->Wait(StopWaitMs - std::min<DWORD>(passed, StopWaitMs));
    }
}

void CHTTPDownload::RestartSingleStream()
{
    Restart(1);
}

void CHTTPDownload::RestartMultiStream()
{
    Restart(m_ThreadsUsed); // changed by restarts and starts only
}

void CHTTPDownload::Restart(std::uint32_t threads)
{
    try
    {
        if (RestartStreams(threads))
            return;
    }
    catch (...)
    {
        FailToStart(HandledException(LS_HERE).Get());
        return;
    }
    FailToStart(nullptr);
}

/// False when a thread is missing.
bool CHTTPDownload::RestartStreams(std::uint32_t threads)
{
    const Win32::CLock restarts(m_RestartLock);
    const auto ended = [this] {
        const Win32::CLock lock(m_StateLock);
        return m_Cancelled || m_Finished;
    };
    if (ended() || !AwaitStreamEnds())
        return true;
    ClearStreams();
    m_Watchdog->ForgetSignals();
    if (ended())
        return true; // while the streams were joined: what they leave is kept for a resume
    DeleteStateFiles(m_OutputPath, true);
    {
        const Win32::CLock lock(m_StateLock);
        m_TotalRun = 0;
        m_TotalDone = 0;
        m_ThreadsUsed = threads;
        if (threads == 1)
            m_ForcedSingle = true;
        ++m_RestartCount;
        LS_LOG_INFO("CHTTPDownload::Restart() : restart %u, from nothing", m_RestartCount);
    }
    return StartStreams();
}

void CHTTPDownload::SetFileSize(std::uint32_t size)
{
    const Win32::CLock lock(m_StateLock);
    m_FileSize = size;
    m_SizeKnown = true;
    LS_LOG_INFO("CHTTPDownload::SetFileSize() : %u bytes", size);
}

void CHTTPDownload::MarkStreamFinished(std::uint32_t streamIndex)
{
    const Win32::CLock lock(m_StateLock);
    if (streamIndex < m_Streams.size())
        m_Streams[streamIndex].State.AllReceived = true;
}

void CHTTPDownload::DownloadThreadCallback(std::uint32_t streamIndex, bool isError, bool isFinished,
                                           bool authRefresh, std::uint32_t bytesDone, std::uint32_t bytesRun,
                                           const CException* exception)
{
    bool allFinished = true;
    bool allReported = true;
    bool failed = false;
    bool sizeKnown = false;
    std::uint32_t fileSize = 0;
    {
        const Win32::CLock lock(m_StateLock);
        m_LastAuthRefresh = authRefresh;
        if (m_Cancelled || m_Finished || m_StartPending || streamIndex >= m_Streams.size())
            return;

        StreamState& state = m_Streams[streamIndex].State;
        state.BytesRun = bytesRun;
        state.BytesDone = bytesDone;
        state.Finished = isFinished;
        state.Reported = true;
        m_TotalRun = 0;
        m_TotalDone = 0;
        for (const Stream& stream : m_Streams)
        {
            m_TotalRun += stream.State.BytesRun;
            m_TotalDone += stream.State.BytesDone;
            allFinished = allFinished && stream.State.Finished;
            allReported = allReported && stream.State.Reported;
        }
        if (isError)
            failed = KeepFailure(exception);
        sizeKnown = m_SizeKnown;
        fileSize = m_FileSize;
    }

    if (allFinished)
    {
        FinalizeDownload(m_OutputPath, sizeKnown, fileSize);
        const Win32::CLock lock(m_StateLock);
        m_Finished = true;
    }
    if (allReported && !PassStatus())
        return;
    if (failed)
        EndInFailure();
}

/// cause may be null. False when an earlier failure is kept already: the first one ends the download.
bool CHTTPDownload::KeepFailure(const CException* cause) noexcept
{
    CRefPtr<const CException> failure = m_UnknownFailure;
    try
    {
        failure = cause ? MakeRef<const CException>(*cause, ThreadError, LS_HERE)
                        : MakeRef<const CException>(UnknownThreadError, LS_HERE);
    }
    catch (...)
    {
        // The owner learns that it failed, if not why.
    }
    const Win32::CLock lock(m_StateLock);
    if (m_Failure)
        return false;
    m_Failure = failure;
    LS_LOG_FAILURE(L"CHTTPDownload::KeepFailure() : %s", LogText(*failure).c_str());
    for (std::size_t i = 0; i < m_Streams.size(); ++i)
    {
        const StreamState& state = m_Streams[i].State;
        LS_LOG_FAILURE("CHTTPDownload::KeepFailure() : stream %u has %u bytes%s", static_cast<unsigned>(i),
                       state.BytesDone, state.AllReceived ? ", all of its range" : "");
    }
    return true;
}

/// The cache file and the records stay for a resume.
void CHTTPDownload::EndInFailure()
{
    IO::DeleteUserFile(m_OutputPath);
    {
        const Win32::CLock lock(m_StateLock);
        m_Failed = true;
    }
    Cancel();
    PassStatus();
}

/// A start or restart has failed. Nobody else would tell the owner: no stream is left. cause may be null.
void CHTTPDownload::FailToStart(const CException* cause)
{
    if (KeepFailure(cause))
        EndInFailure();
}

void CHTTPDownload::ReportEscape()
{
    {
        const Win32::CLock lock(m_StateLock);
        if (m_Finished || m_Failed)
            return;
    }
    // Also behind a kept failure: telling it may be what has failed.
    KeepFailure(HandledException(LS_HERE).Get());
    EndInFailure();
}

/// Only the file itself decides: a state file that somebody holds is tried again once the file is in place,
/// and else left to the next run, which overwrites or deletes it. It does no harm there, since the cache file
/// that its records tell of is gone.
void CHTTPDownload::FinalizeDownload(const std::wstring& outputPath, bool sizeKnown,
                                     std::uint32_t expectedSize)
{
    IO::DeleteUserFile(outputPath);
    DropStateFiles(outputPath, 1);

    const std::wstring cachePath = CacheFilePath(outputPath);
    // Whatever the error: it may be about either of two names.
    for (IO::CFilePatience patience(m_TimeOuts.MoveMs); !::MoveFileW(cachePath.c_str(), outputPath.c_str());)
    {
        const DWORD error = ::GetLastError();
        if (m_Cancelled || !patience.WaitAgain(cachePath, error))
        {
            ThrowException(
                CException(WithLastError(error, L"Failed to move cache file to " + outputPath), LS_HERE));
            return;
        }
    }
    if (!IO::CFile::Exists(outputPath))
    {
        ThrowException(CException(L"Failed to validate output file exists:" + outputPath, LS_HERE));
        return;
    }
    const std::uint64_t size = IO::CFile::Size(outputPath);
    if (sizeKnown && size != expectedSize)
    {
        ThrowException(CException(L"Output file is wrong size. " + outputPath + L" should be " +
                                      DecimalText(expectedSize) + L" but is " + DecimalText(size),
                                  LS_HERE));
        return;
    }
    DropStateFiles(outputPath, DropTries);
    LS_LOG_INFO(L"CHTTPDownload::FinalizeDownload() : %s is complete, %I64u bytes", outputPath.c_str(), size);
}

/// False when the owner has let go of this object in the callback: it must not be touched then.
bool CHTTPDownload::PassStatus()
{
    if (!m_StatusCallback)
        return true;
    const DownloadStatus status = GetStatus();
    const CRefPtr<NotifyGate> gate = m_Gate;
    gate->Lock.Enter();
    if (gate->OwnerGone || (status.Finished && gate->FinishNotified))
    {
        const bool gone = gate->OwnerGone;
        gate->Lock.Leave();
        return !gone;
    }
    if (status.Finished)
        gate->FinishNotified = true;
    gate->Thread = ::GetCurrentThreadId();
    // When the owner lets go within the callback, Shutdown has given the lock up.
    const Win32::CScopeExit leave([&gate] {
        if (gate->OwnerGone)
            return;
        gate->Thread = 0;
        gate->Lock.Leave();
    });
    m_StatusCallback(m_StatusContext, status);
    return !gate->OwnerGone;
}
} // namespace LS::System::Net::MultiStreamDownload
