#include "Ls/System/Net/MultiStreamDownload/DownloadThread.h"

#include "Ls/System/HandledException.h"
#include "Ls/System/Io/File.h"
#include "Ls/System/Net/MultiStreamDownload/HTTPDownload.h"
#include "Ls/System/Net/MultiStreamDownload/LogText.h"
#include "Ls/System/Net/MultiStreamDownload/ProgressFile.h"
#include "Ls/System/Net/MultiStreamDownload/ResumeRules.h"
#include "Ls/System/Net/MultiStreamDownload/RetryRules.h"
#include "Ls/System/Net/MultiStreamDownload/ThreadBody.h"
#include "Ls/System/Net/MultiStreamDownload/WatchdogThread.h"
#include "Ls/System/Net/MultiStreamDownload/WriteOutputThread.h"
#include "Ls/System/Net/Url.h"
#include "Ls/System/String/Convert.h"
#include "Ls/System/ThrowException.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Win32/ScopeExit.h"

#include <algorithm>
#include <atomic>
#include <optional>

namespace LS::System::Net::MultiStreamDownload
{
namespace
{
/// One buffer is written while the other is filled.
constexpr std::uint32_t BufferCount = 2;
constexpr std::uint32_t BlockBytes = 65536;
/// Above this size a download that has just learnt its size starts over in multi-stream mode.
constexpr std::uint32_t MultiStreamBytes = 20 * 1024 * 1024;
constexpr std::uint32_t PauseStepMs = 100;

constexpr DWORD RequestFlags =
    INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_KEEP_CONNECTION;
static_assert(RequestFlags == 0x84400000);

/// Most heads fit at once; a server that sends more than the most is not worth an answer.
constexpr DWORD FirstHeaderBytes = 2048;
constexpr DWORD MostHeaderBytes = 16 * 1024 * 1024;

/// GetTickCount at which any stream of the process last received data behind its furthest offset.
std::atomic<std::uint32_t> g_LastDataTick{0};

/// False, with the last error set, when the header isn't there or can't be had.
bool QueryInfo(HINTERNET request, DWORD infoLevel, std::string& text)
{
    for (DWORD size = FirstHeaderBytes; size <= MostHeaderBytes;)
    {
        text.resize(size);
        DWORD length = size;
        if (::HttpQueryInfoA(request, infoLevel, text.data(), &length, nullptr))
        {
            text.resize(std::min(length, size));
            return true;
        }
        if (::GetLastError() != ERROR_INSUFFICIENT_BUFFER)
            break;
        size = std::max(length, size * 2);
    }
    text.clear();
    return false;
}

std::optional<std::string> QueryHeader(HINTERNET request, DWORD infoLevel)
{
    std::string text;
    if (!QueryInfo(request, infoLevel, text))
        return std::nullopt;
    return text;
}

std::string LastResponseInfo()
{
    DWORD error = 0;
    char text[1024] = {};
    DWORD length = sizeof(text);
    if (!::InternetGetLastResponseInfoA(&error, text, &length))
        return {};
    return {text, std::min<std::size_t>(length, sizeof(text))};
}

void SetTimeOut(HINTERNET request, DWORD option, std::uint32_t milliseconds) noexcept
{
    ::InternetSetOptionW(request, option, &milliseconds, sizeof(milliseconds));
}

std::uint64_t SizeOf(const std::wstring& path)
{
    return IO::CFile::Exists(path) ? IO::CFile::Size(path) : 0;
}
} // namespace

CDownloadThread::CDownloadThread(CHTTPDownload& coordinator, StreamTask task) :
    CThread(MakeRef<CThreadBody<CDownloadThread>>(*this)), m_Coordinator(coordinator),
    m_Task(std::move(task)), m_SizeKnown(m_Task.FileSize > 0), m_SingleStream(m_Task.ThreadsUsed == 1),
    m_Furthest(m_Task.Furthest)
{
}

void CDownloadThread::Start()
{
    try
    {
        ThreadStart("");
    }
    catch (...)
    {
        RequestStop();
        Stop(); // it may still come up
        throw;
    }
}

void CDownloadThread::RequestStop() noexcept
{
    SetShouldFinish(true);
    const Win32::CLock lock(m_ConnectionLock);
    if (m_Handles)
        m_Handles->Break();
}

std::uint32_t CDownloadThread::Execute(Win32::CThread&)
{
    // The owner may let go of the download, and so of this object, while the stream reports to him.
    const CRefPtr<CDownloadThread> self(this);
    try
    {
        RunAttempts();
    }
    catch (...)
    {
        // Telling the owner of a failure has failed.
        if (!ShouldFinish())
            m_Coordinator.ReportEscape();
    }
    CloseConnection(false);
    return ShouldFinish() ? 1 : 0;
}

void CDownloadThread::RunAttempts()
{
    const std::uint64_t budget = FullBudget(m_Task.Retries);
    std::uint64_t attemptsLeft = budget;
    while (attemptsLeft > 0 && !ShouldFinish())
    {
        Attempt attempt;
        CRefPtr<const CException> failure;
        if (TryOnce(attempt, failure) || ShouldFinish())
            break;

        if (RenewsBudget(
                {attempt.GotAhead, attempt.TimedOut, attempt.TooSlow, ::GetTickCount() - g_LastDataTick}))
            attemptsLeft = budget;
        if (!attempt.Retryable || attemptsLeft <= 1)
        {
            m_Coordinator.DownloadThreadCallback(m_Task.StreamIndex, true, false, attempt.AuthRefresh,
                                                 m_Progress.Done, m_Progress.Run, failure.Get());
            break;
        }
        const std::uint64_t pauseMs = PauseMs(m_Task.Retries, attemptsLeft);
        LS_LOG_INFO(L"CDownloadThread::Execute() : stream %u tries again in %I64u ms : %s",
                    m_Task.StreamIndex, pauseMs, failure ? LogText(*failure).c_str() : L"");
        Pause(pauseMs);
        CloseConnection(false);
        --attemptsLeft;
    }
}

/// True when the stream has nothing more to do; else the attempt has failed, mostly with an exception. There
/// may be no memory to keep it.
bool CDownloadThread::TryOnce(Attempt& attempt, CRefPtr<const CException>& failure)
{
    try
    {
        return RunAttempt(attempt);
    }
    catch (...)
    {
        failure = HandledException(LS_HERE);
    }
    return false;
}

void CDownloadThread::Pause(std::uint64_t milliseconds) const noexcept
{
    for (std::uint64_t waited = 0; waited < milliseconds && !ShouldFinish(); waited += PauseStepMs)
        ::Sleep(PauseStepMs);
}

bool CDownloadThread::RunAttempt(Attempt& attempt)
{
    m_Progress = {};
    StreamProgress progress(m_Task.OutputPath, m_Task.StreamIndex);
    const StreamRange& range = m_Task.Range;
    const bool resumed = ReadRecord(progress);
    attempt.Retryable = true; // who holds the record may let go of it
    if (!resumed && !progress.Forget(*this))
        return false;
    attempt.Retryable = false;
    m_RecordHolds = true;
    std::uint32_t resumeOffset = resumed ? progress.Values.Offset : range.Start;
    m_Progress.Done = resumeOffset - range.Start;
    m_Furthest = std::max(m_Furthest, resumeOffset);
    if (resumed)
        LS_LOG_INFO("CDownloadThread::RunAttempt() : stream %u goes on at %u", m_Task.StreamIndex,
                    resumeOffset);

    if (m_SizeKnown && resumed && resumeOffset == std::uint64_t{range.End} + 1)
    {
        if (ShouldFinish())
            return true;
        m_Coordinator.MarkStreamFinished(m_Task.StreamIndex);
        m_Coordinator.DownloadThreadCallback(m_Task.StreamIndex, false, true, false, m_Progress.Done, 0,
                                             nullptr);
        return true;
    }

    const std::uint32_t oldSize = m_Task.FileSize;
    if (!EstablishConnection(resumeOffset, attempt))
        return false;
    if (ShouldFinish())
        return true;
    const bool sizeLearnt = LearnSize(resumeOffset);
    if (ShouldFinish())
        return true;
    if (resumed)
    {
        const std::string change = FileChangeMessage(progress.Values, m_LastModified, m_Task.FileSize);
        if (!change.empty())
        {
            m_Coordinator.Watchdog().SignalRestartDownloadSingleStream(*this, change);
            // No restart any more: what is on disk and what the server has don't fit together.
            ThrowException(CException(change, LS_HERE));
            return false;
        }
    }
    // The answer whose body is stored decides on the size, not an earlier one: over a restart the coordinator
    // keeps the size that it knew, also when the restart came from a change of the file.
    if (!sizeLearnt && m_Task.FileSize != oldSize)
        m_Coordinator.SetFileSize(m_Task.FileSize);
    return DownloadBits(resumeOffset, attempt);
}

/// True when the stream goes on where its progress file says.
bool CDownloadThread::ReadRecord(StreamProgress& progress) const
{
    const StreamRange& range = m_Task.Range;
    const std::uint64_t cacheSize =
        m_RecordHolds ? SizeOf(CacheFilePath(m_Task.OutputPath)) : m_Task.CacheSize;
    return progress.Read(*this) &&
           IsUsable(progress.Values, {range.Start, range.End, m_SizeKnown, m_Task.ThreadsUsed, cacheSize});
}

/// True when the answer is the first that tells the size: then the watchdog may want more streams.
bool CDownloadThread::LearnSize(std::uint32_t resumeOffset)
{
    const bool learnt = !m_SizeKnown && m_Task.FileSize > 0;
    m_SizeKnown = m_Task.FileSize > 0;
    if (!learnt)
        return false;
    m_Coordinator.SetFileSize(m_Task.FileSize);
    if (m_SingleStream && m_Task.FileSize > MultiStreamBytes && resumeOffset == 0)
        m_Coordinator.Watchdog().SignalRestartDownloadMultiStream(
            *this,
            "Single stream download (at start)- was able to determine file size:  Restarting multi-stream.");
    return true;
}

bool CDownloadThread::EstablishConnection(std::uint32_t& resumeOffset, Attempt& attempt)
{
    attempt.Retryable = true; // of the failures that say nothing else
    if (!OpenRequest(resumeOffset, attempt) || !Send(attempt) || ShouldFinish())
        return false;

    const HINTERNET request = m_Handles->Request.Get();
    Response response;
    response.ResumeOffset = resumeOffset;
    if (!ReadResponse(request, response))
        return false;
    const Verdict verdict = JudgeResponse(response);
    attempt.Retryable = verdict.Retryable;
    attempt.AuthRefresh = verdict.AuthRefresh;
    if (!verdict.RestartMessage.empty())
        m_Coordinator.Watchdog().SignalRestartDownloadSingleStream(*this, verdict.RestartMessage);
    if (!verdict.FailureMessage.empty())
    {
        ThrowException(CException(verdict.FailureMessage, LS_HERE));
        return false;
    }
    resumeOffset = verdict.ResumeOffset;
    m_Task.FileSize = verdict.FileSize;
    m_Task.Range.End = verdict.End;
    m_LastModified = QueryHeader(request, HTTP_QUERY_LAST_MODIFIED).value_or(std::string(UnknownDate));
    return true;
}

/// False when a stop was requested.
bool CDownloadThread::OpenRequest(std::uint32_t resumeOffset, Attempt& attempt)
{
    const std::optional<Url> url = Url::Parse(m_Task.Url);
    if (!url)
    {
        attempt.Retryable = false; // it won't become better
        ThrowException(CException("InternetConnect failed.  URL=" + m_Task.Url, LS_HERE));
        return false;
    }

    const Win32::CLock lock(m_ConnectionLock);
    if (ShouldFinish())
        return false;
    m_Handles = MakeRef<CRequestHandles>();
    m_Handles->SetLeastPace(m_Task.TimeOuts.Pace);
    m_PaceTimer.emplace(*m_Handles, m_Task.TimeOuts.Pace);
    m_Handles->Session.Reset(
        ::InternetOpenA(m_Task.UserAgent.c_str(), INTERNET_OPEN_TYPE_PRECONFIG, "", "", 0));
    if (!m_Handles->Session)
    {
        ThrowException(CException(L"InternetOpen failed.", LS_HERE));
        return false;
    }

    m_Handles->Connection.Reset(::InternetConnectW(m_Handles->Session.Get(), AnsiToWide(url->Host).c_str(),
                                                   url->Port, L"", nullptr, INTERNET_SERVICE_HTTP, 0, 0));
    if (!m_Handles->Connection)
    {
        ThrowException(CException("InternetConnect failed.  URL=" + m_Task.Url, LS_HERE));
        return false;
    }

    const wchar_t* acceptTypes[] = {L"*/*", nullptr};
    m_Handles->Request.Reset(::HttpOpenRequestW(
        m_Handles->Connection.Get(), L"GET", AnsiToWide(url->WirePath()).c_str(), L"HTTP/1.1", L"",
        acceptTypes, RequestFlags | (url->Secure ? INTERNET_FLAG_SECURE : 0), 0));
    if (!m_Handles->Request)
    {
        ThrowException(CException(
            "HttpOpenRequest failed.  URL=" + m_Task.Url + "\r\nPath=" + url->PathAndQuery, LS_HERE));
        return false;
    }

    SetTimeOut(m_Handles->Request.Get(), INTERNET_OPTION_CONNECT_TIMEOUT, m_Task.TimeOuts.ConnectMs);
    SetTimeOut(m_Handles->Request.Get(), INTERNET_OPTION_SEND_TIMEOUT, m_Task.TimeOuts.SendMs);
    SetTimeOut(m_Handles->Request.Get(), INTERNET_OPTION_RECEIVE_TIMEOUT, m_Task.TimeOuts.ReceiveMs);

    const std::string headers = RequestHeaders(m_SingleStream, resumeOffset, m_Task.Range.End);
    if (!::HttpAddRequestHeadersA(m_Handles->Request.Get(), headers.c_str(), static_cast<DWORD>(-1),
                                  HTTP_ADDREQ_FLAG_ADD))
    {
        ThrowException(CException(
            "HttpAddRequestHeaders failed.  URL=" + m_Task.Url + "\r\nHeader=" + headers, LS_HERE));
        return false;
    }
    return true;
}

bool CDownloadThread::Send(Attempt& attempt)
{
    if (m_Handles->Send())
        return true;
    attempt.TimedOut = ::GetLastError() == ERROR_INTERNET_TIMEOUT;
    attempt.TooSlow = m_Handles->IsTooSlow();
    if (attempt.TimedOut)
        ThrowException(CException("HttpSendRequest failed: timed out.  URL=" + m_Task.Url, LS_HERE));
    else
        ThrowException(CException(L"HttpSendRequest failed.", LS_HERE));
    return false;
}

bool CDownloadThread::ReadResponse(HINTERNET request, Response& response) const
{
    response.Url = m_Task.Url;
    response.SingleStream = m_SingleStream;
    response.End = m_Task.Range.End;
    response.FileSize = m_Task.FileSize;
    response.RawHeader = QueryHeaders(request, HTTP_QUERY_RAW_HEADERS_CRLF);
    // Of a server that closed without an answer the system may give an empty line instead of an error.
    if (response.RawHeader.find_first_not_of("\r\n") == std::string::npos)
    {
        ThrowException(CException("Server Header is empty.  URL=" + m_Task.Url, LS_HERE));
        return false;
    }
    DWORD status = 0;
    DWORD size = sizeof(status);
    if (!::HttpQueryInfoA(request, HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status, &size, nullptr))
    {
        ThrowException(CException("HTTP status is not in header, URL=" + m_Task.Url +
                                      HeaderForMessage(response.RawHeader),
                                  LS_HERE));
        return false;
    }
    response.Status = status;
    response.ContentLength = QueryHeader(request, HTTP_QUERY_CONTENT_LENGTH);
    response.ContentRange = QueryHeader(request, HTTP_QUERY_CONTENT_RANGE);
    response.AcceptRanges = QueryHeader(request, HTTP_QUERY_ACCEPT_RANGES);
    return true;
}

std::string CDownloadThread::QueryHeaders(HINTERNET request, std::uint32_t infoLevel)
{
    std::string text;
    if (!QueryInfo(request, infoLevel, text))
        ThrowException(CException(L"HttpQueryInfo returned failure", LS_HERE));
    return text;
}

void CDownloadThread::CloseConnection(bool answerRead) noexcept
{
    m_PaceTimer.reset();
    CRefPtr<CRequestHandles> handles;
    {
        const Win32::CLock lock(m_ConnectionLock);
        std::swap(handles, m_Handles);
    }
    if (!answerRead)
        CRequestHandles::ReleaseLater(std::move(handles));
}

bool CDownloadThread::DownloadBits(std::uint32_t resumeOffset, Attempt& attempt)
{
    attempt.Retryable = false;
    StreamRecord values;
    values.StreamIndex = m_Task.StreamIndex;
    values.Offset = resumeOffset;
    values.DownloadSize = m_Task.FileSize;
    values.ThreadsUsed = m_Task.ThreadsUsed;
    values.SetLastModified(m_LastModified);

    // Of an unknown size nothing is known to remain.
    Body body;
    body.Remaining = m_SizeKnown ? std::uint64_t{m_Task.Range.End} + 1 - resumeOffset : 0;
    CWriteOutputThread writer(m_Task.OutputPath, resumeOffset, BufferCount, BlockBytes, values);
    {
        // What was received reaches the disk however the reading ends. The stream at the file's end cuts off
        // what an older download may have left behind it.
        const Win32::CScopeExit finish([&]() noexcept {
            writer.Finish(EndsFile() && body.Ended && body.Remaining == 0);
            attempt.GotAhead = writer.Recorded() > m_Furthest;
            m_Furthest = std::max(m_Furthest, writer.Recorded());
        });
        ReadBody(writer, resumeOffset, body, attempt);
    }
    CloseConnection(body.Ended);
    if (ShouldFinish())
        return true;
    if (!writer.WroteAll())
    {
        // Like a lost connection: a scanner may hold the file, a full disk may get room.
        attempt.Retryable = true;
        if (const CRefPtr<const CException> failure = writer.Failure())
            ThrowException(CException(*failure, "DownloadThread", LS_HERE));
        else
            ThrowException(CException(L"DownloadThread", LS_HERE));
        return false;
    }
    if (!body.Ended)
        return false;
    return ReportComplete(body);
}

/// Leaves by an exception, by a stop, or with body.Ended.
void CDownloadThread::ReadBody(CWriteOutputThread& writer, std::uint32_t resumeOffset, Body& body,
                               Attempt& attempt)
{
    const std::uint32_t doneBefore = resumeOffset - m_Task.Range.Start;
    m_Progress = {doneBefore, 0};
    while (!m_SizeKnown || body.Remaining > 0)
    {
        attempt.Retryable = true; // a writer that failed, a read that fails
        const std::uint32_t buffer = writer.GetBuffer();
        if (buffer == CWriteOutputThread::NoBuffer)
            return;
        const bool lastBlock = m_SizeKnown && body.Remaining <= BlockBytes;
        const DWORD wanted = lastBlock ? static_cast<DWORD>(body.Remaining) : BlockBytes;
        DWORD read = 0;
        const BOOL ok = m_Handles->Read(writer.Bytes(buffer), wanted, read);
        const DWORD error = ::GetLastError();
        if (ShouldFinish())
            return;
        if (ok)
            attempt.Retryable = false;
        if (std::uint64_t{resumeOffset} + body.Received + read > UINT32_MAX)
        {
            attempt.Retryable = false;
            ThrowException(CException(
                "File is too large:  4 GiB or more can't be downloaded.  URL=" + m_Task.Url, LS_HERE));
            return;
        }
        if (read == 0)
            writer.GiveBack(buffer);
        else if (!HandOver(writer, buffer, read, doneBefore, body))
            return;
        if (!ok && (!lastBlock || body.Remaining > 0))
        {
            attempt.TooSlow = m_Handles->IsTooSlow();
            const std::string message = "InternetReadFile Error.  Status=" + std::to_string(error) +
                                        " BytesRead=" + std::to_string(read) +
                                        " InternetGetLastResponseInfo: " + LastResponseInfo();
            ::SetLastError(error);
            ThrowException(CException(message, LS_HERE));
            return;
        }
        if (read == 0)
            break;
    }
    body.Ended = true;
}

/// A block of the body on its way to the disk. False when a stop was requested.
bool CDownloadThread::HandOver(CWriteOutputThread& writer, std::uint32_t buffer, std::uint32_t size,
                               std::uint32_t doneBefore, Body& body)
{
    body.Received += size;
    if (m_SizeKnown)
        body.Remaining -= size;
    m_Progress = {doneBefore + body.Received, body.Received};
    if (m_Task.Range.Start + m_Progress.Done > m_Furthest)
        g_LastDataTick = ::GetTickCount();
    const bool isLast = m_SizeKnown && body.Remaining == 0;
    if (isLast)
        m_Coordinator.MarkStreamFinished(m_Task.StreamIndex);
    writer.QueueBuffer(buffer, size, isLast && EndsFile());
    m_Coordinator.DownloadThreadCallback(m_Task.StreamIndex, false, false, false, m_Progress.Done,
                                         m_Progress.Run, nullptr);
    return !ShouldFinish();
}

/// The stream's range goes to the file's end, as far as that is known.
bool CDownloadThread::EndsFile() const noexcept
{
    return !m_SizeKnown || m_Task.Range.End + 1 == m_Task.FileSize;
}

bool CDownloadThread::ReportComplete(const Body& body)
{
    if (body.Remaining == 0)
    {
        m_Coordinator.DownloadThreadCallback(m_Task.StreamIndex, false, true, false, m_Progress.Done,
                                             body.Received, nullptr);
        return true;
    }
    const std::string message = "File size error - no more bytes to read, but expected " +
                                std::to_string(body.Remaining) + " more bytes";
    if (m_Task.ThreadsUsed == 1)
        m_Coordinator.Watchdog().SignalRestartDownloadSingleStream(*this, message);
    else
        m_Coordinator.Watchdog().SignalRestartDownloadMultiStream(*this, message);
    ThrowException(CException(message, LS_HERE));
    return false;
}
} // namespace LS::System::Net::MultiStreamDownload
