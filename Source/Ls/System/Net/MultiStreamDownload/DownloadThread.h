#pragma once

#include "Ls/System/Net/MultiStreamDownload/DownloadTimeOuts.h"
#include "Ls/System/Net/MultiStreamDownload/RangeSplit.h"
#include "Ls/System/Net/MultiStreamDownload/ResponseRules.h"
#include "Ls/System/Net/PaceTimer.h"
#include "Ls/System/Net/RequestHandles.h"
#include "Ls/System/Win32/CriticalSection.h"
#include "Ls/System/Win32/Thread.h"

#include <cstdint>
#include <optional>
#include <string>

namespace LS::System::Net::MultiStreamDownload
{
class CHTTPDownload;
class CWriteOutputThread;
class StreamProgress;

/// What one stream is to fetch, and as which of how many.
struct StreamTask
{
    std::string UserAgent;
    std::string Url;
    std::wstring OutputPath;
    StreamRange Range;
    /// 0 = unknown.
    std::uint32_t FileSize = 0;
    std::uint32_t StreamIndex = 0;
    std::uint32_t ThreadsUsed = 1;
    std::uint32_t Retries = 0;
    DownloadTimeOuts TimeOuts;
    /// Of the cache file, before any stream of this start wrote to it; 0 for a start from nothing. A record
    /// of more isn't used, though the other stream may soon have made the file long enough: it would have a
    /// hole.
    std::uint64_t CacheSize = 0;
    /// How far this stream's record has come in this download before.
    std::uint32_t Furthest = 0;
};

/// One HTTP stream of a download: fetches its range, hands the bytes to a writer of its own and reports to
/// the coordinator. It goes on where its progress file says, retries failures that may pass, and asks the
/// watchdog for a restart of the whole download when it can't go on in the present mode.
///
/// The coordinator makes it, starts it, and joins it before letting go of it. Failures never leave Execute:
/// they are retried, or reported once.
class CDownloadThread : public Win32::CThread
{
public:
    CDownloadThread(CHTTPDownload& coordinator, StreamTask task);

    /// Once. Throws like ThreadStart; then the thread doesn't run.
    void Start();
    /// Asks the stream to stop and breaks off its connection, which frees a call that blocks on the network.
    /// Any thread; returns at once.
    void RequestStop() noexcept;

    /// How far the stream's record has ever come. Once the thread has ended.
    std::uint32_t Furthest() const noexcept { return m_Furthest; }

    /// The thread's body.
    std::uint32_t Execute(Win32::CThread& thread);

private:
    /// What one attempt leaves for the decision on the next.
    struct Attempt
    {
        bool Retryable = false;
        bool TimedOut = false;
        bool TooSlow = false;
        bool AuthRefresh = false;
        bool GotAhead = false;
    };
    /// Bytes on hand from the range's start, and those of them that this attempt has received.
    struct Progress
    {
        std::uint32_t Done = 0;
        std::uint32_t Run = 0;
    };

    /// How far an attempt has come with its range.
    struct Body
    {
        /// 0 while the size is unknown.
        std::uint64_t Remaining = 0;
        std::uint32_t Received = 0;
        /// There is no more to read.
        bool Ended = false;
    };

    void RunAttempts();
    bool TryOnce(Attempt& attempt, CRefPtr<const CException>& failure);
    bool RunAttempt(Attempt& attempt);
    bool ReadRecord(StreamProgress& progress) const;
    bool LearnSize(std::uint32_t resumeOffset);
    bool EndsFile() const noexcept;
    void Pause(std::uint64_t milliseconds) const noexcept;

    bool EstablishConnection(std::uint32_t& resumeOffset, Attempt& attempt);
    bool OpenRequest(std::uint32_t resumeOffset, Attempt& attempt);
    bool Send(Attempt& attempt);
    bool ReadResponse(HINTERNET request, Response& response) const;
    static std::string QueryHeaders(HINTERNET request, std::uint32_t infoLevel);
    /// answerRead: there is nothing more to come.
    void CloseConnection(bool answerRead) noexcept;

    bool DownloadBits(std::uint32_t resumeOffset, Attempt& attempt);
    void ReadBody(CWriteOutputThread& writer, std::uint32_t resumeOffset, Body& body, Attempt& attempt);
    bool HandOver(CWriteOutputThread& writer, std::uint32_t buffer, std::uint32_t size,
                  std::uint32_t doneBefore, Body& body);
    bool ReportComplete(const Body& body);

    CHTTPDownload& m_Coordinator;
    StreamTask m_Task;
    bool m_SizeKnown;
    const bool m_SingleStream;
    /// The record on disk is this stream's own or has been found usable.
    bool m_RecordHolds = false;
    std::uint32_t m_Furthest;
    Progress m_Progress;
    /// Of the present attempt's answer, or UnknownDate.
    std::string m_LastModified;

    /// Guards the pointer, which the stream's thread alone changes. Held while the handles are opened, but
    /// not while the request is sent: a stop must be able to break off a sending that blocks.
    Win32::CCriticalSection m_ConnectionLock;
    CRefPtr<CRequestHandles> m_Handles;
    std::optional<CPaceTimer> m_PaceTimer;
};
} // namespace LS::System::Net::MultiStreamDownload
