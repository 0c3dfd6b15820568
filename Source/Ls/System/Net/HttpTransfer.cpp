#include "Ls/System/Net/HttpTransfer.h"

#include "Ls/System/Exception.h"
#include "Ls/System/Net/FileDestination.h"
#include "Ls/System/Net/HeaderText.h"
#include "Ls/System/Net/StreamDestination.h"
#include "Ls/System/Util/Log.h"

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

namespace LS::System::Net
{
namespace
{
using Win32::CLock;

constexpr std::uint32_t StatusOk = 200;
constexpr std::uint32_t StatusPartialContent = 206;
constexpr std::uint32_t StatusNotModified = 304;
constexpr std::uint32_t StatusRangeNotSatisfiable = 416;

constexpr int MostRedirects = 10;
/// A block is filled before it is stored: a large one would hold back what a slow line brings.
constexpr std::size_t BlockBytes = 16 * 1024;
constexpr DWORD PauseStepMs = 100;
constexpr std::uint32_t ProgressStepMs = 50;
constexpr float AllDone = 100.0F;
/// What a transfer shows at most before its result is there.
constexpr float NearlyDone = 99.99F;

bool IsRedirect(std::uint32_t status)
{
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

/// Only these carry the thing that was asked for: the pages that come with 400 to 505 and the notes that
/// come with the rest must not take its place.
bool HasEntity(std::uint32_t status)
{
    return status >= 200 && status <= 299;
}
} // namespace

void CHttpTransfer::Start(TransferSettings settings) noexcept
{
    if (m_Started.exchange(true))
        return;
    bool running = false;
    bool shared = false;
    try
    {
        m_Settings = std::move(settings);
        const auto thread = MakeRef<Win32::CThread>(CRefPtr<Win32::CThreadFunction>(this));
        {
            const CLock lock(m_Lock);
            m_Thread = thread;
            shared = true;
        }
        thread->ThreadStart("HttpTransfer");
        running = thread->Handle() != nullptr;
    }
    catch (const CException& exception)
    {
        LS_LOG_FAILURE(L"CHttpTransfer::Start() : %s", exception.Message().c_str());
    }
    catch (const std::bad_alloc&)
    {
        LS_LOG_FAILURE(L"CHttpTransfer::Start() : out of memory");
    }
    if (running)
        return;
    // A thread that comes up late after all either finds its reference taken and leaves, or has taken it.
    CRefPtr<Win32::CThread> late;
    {
        const CLock lock(m_Lock);
        std::swap(late, m_Thread);
    }
    if (late || !shared)
        Publish(HttpError::Start);
}

void CHttpTransfer::Stop() noexcept
{
    m_Stopped = true;
    {
        const CLock lock(m_Lock);
        m_Destination.reset();
    }
    m_Exchange.Break();
}

void CHttpTransfer::Pause()
{
    const CLock lock(m_PauseLock);
    m_PauseState = PauseState::PauseRequested;
}

void CHttpTransfer::Resume()
{
    const CLock lock(m_PauseLock);
    m_PauseState = PauseState::ResumeRequested;
}

const TransferResult& CHttpTransfer::Result() const
{
    static const TransferResult& blank = *new TransferResult; // a worker may outlive the end of main
    return PercentDone() == AllDone ? m_Result : blank;
}

void CHttpTransfer::Publish(HttpError error) noexcept
{
    m_Result.Error = error;
    m_PercentDone.store(AllDone, std::memory_order_release);
}

std::uint32_t CHttpTransfer::Execute(Win32::CThread&)
{
    // Held to the end: when the owner has let go, the last reference goes here, on the thread itself, and
    // nobody waits for anybody.
    CRefPtr<Win32::CThread> self;
    {
        const CLock lock(m_Lock);
        std::swap(self, m_Thread);
    }
    if (!self)
        return 1;

    HttpError error = HttpError::None;
    try
    {
        error = Transfer();
    }
    catch (const CException& exception)
    {
        LS_LOG_FAILURE(L"CHttpTransfer::Execute() : %s", exception.Message().c_str());
        error = HttpError::Internal;
    }
    catch (...)
    {
        error = HttpError::Internal;
    }
    {
        const CLock lock(m_Lock);
        m_Destination.reset();
    }
    if (error != HttpError::None)
        m_Result.Stored = false;
    if (!m_Result.Stored && error != HttpError::Stopped)
        LS_LOG_FAILURE(
            "CHttpTransfer::Execute() : failed : Error=%u Status=%u SystemError=%u Received=%I64u URL=%s",
            static_cast<unsigned>(error), m_Result.StatusCode, m_Exchange.SystemError(), m_Received,
            m_Settings.UrlText.c_str());
    Publish(error);
    m_Exchange.Close();
    return 0;
}

HttpError CHttpTransfer::Transfer()
{
    m_Result.Range = m_Settings.Range;
    m_Result.Cookies = m_Settings.Cookies;
    if (m_Settings.Cached && !m_Settings.Destination.empty())
        ApplyCache();
    if (!IsHeaderText(m_Settings.ConditionalDate))
        m_Settings.SendIfModifiedSince = m_Settings.SendIfRange = false;

    ResponseHeaders headers;
    HttpError error = RequestAnswer(headers);
    if (error == HttpError::None)
        error = CheckAnswer(headers);
    if (IsStopped())
        return HttpError::Stopped;
    if (error != HttpError::None || !HasEntity(headers.StatusCode))
        return error;
    if (ExpectedBytes() != UnknownLength && IsTooLarge(ExpectedBytes()))
        return HttpError::TooLarge;

    error = OpenDestination();
    // What can't be opened is as it was, and so stays what is known of it.
    return error == HttpError::None ? FinishBody(ReceiveBody()) : error;
}

void CHttpTransfer::ApplyCache()
{
    m_Cache.emplace(m_Settings.Destination, m_Settings.UrlText);
    m_Known = m_Cache->Read();
    m_Settings.ConditionalDate = m_Known.LastModified;
    m_Settings.SendIfModifiedSince = m_Known.Whole;
    m_Settings.SendIfRange = m_Known.PartLength != 0;
    // What stands beside the file decides what is asked for: a range of the caller's would leave a hole.
    m_Result.Range = HttpRange();
    if (m_Settings.SendIfRange)
        m_Result.Range.Start = static_cast<std::int64_t>(m_Known.PartLength);
}

HttpError CHttpTransfer::RequestAnswer(ResponseHeaders& headers)
{
    HttpError error = m_Exchange.OpenSession(m_Settings.UserAgent, m_Settings.Limits, m_Settings.Pace);
    Url url = m_Settings.Target;
    for (int redirects = 0; error == HttpError::None; ++redirects)
    {
        // Cookies are nobody else's business, wherever a redirect leads.
        const bool sameHost = EqualsNoCase(url.Host, m_Settings.Target.Host);
        error = m_Exchange.OpenRequest(url, m_Settings.ContentType, m_Settings.RequestFlags);
        if (error != HttpError::None)
            break;
        error = SetHeaders(sameHost) ? m_Exchange.Send() : HttpError::Send;
        m_Result.RequestHeaders = m_Exchange.RawRequestHeaders();
        m_Result.ResponseHeaders = m_Exchange.RawResponseHeaders();
        if (error != HttpError::None)
            break;
        headers = ResponseHeaders::Parse(m_Result.ResponseHeaders,
                                         m_Settings.CookiesEnabled && sameHost ? &m_Result.Cookies : nullptr);
        if (!IsRedirect(headers.StatusCode))
            break;

        const std::optional<Url> next = url.Resolve(headers.Location);
        if (headers.Location.empty() || !next || redirects == MostRedirects)
            error = HttpError::BadAnswer;
        else
            url = *next;
    }
    return error;
}

/// False when the system refuses one: without it the request would be another one.
bool CHttpTransfer::SetHeaders(bool sameHost)
{
    for (const char* name : {"Connection", "Content-Type", "Expect", "Transfer-Encoding"})
        m_Exchange.RemoveHeader(name);
    bool taken = true;
    const auto set = [&](const std::string& line) { taken = taken && m_Exchange.SetHeader(line); };
    if (m_Settings.CookiesEnabled && sameHost && !m_Result.Cookies.IsEmpty())
        set("Cookie: " + m_Result.Cookies.Text());
    if (m_Settings.SendIfModifiedSince)
        set("If-Modified-Since: " + m_Settings.ConditionalDate);
    if (m_Settings.SendIfRange)
        set("If-Range: " + m_Settings.ConditionalDate);
    if (m_Result.Range.IsSet())
        set("Range: " + m_Result.Range.Text());
    return taken;
}

HttpError CHttpTransfer::CheckAnswer(const ResponseHeaders& headers)
{
    m_Result.StatusCode = headers.StatusCode;
    m_Result.ContentLength = headers.ContentLength;
    m_Result.LastModified = headers.LastModified;
    switch (headers.StatusCode)
    {
    case 0:
        return HttpError::BadAnswer;
    case StatusOk:
        if (m_Settings.SendIfRange) // the part that we have is of something else: this is the whole entity
            m_Result.Range.Start = m_Result.Range.End = -1;
        return HttpError::None;
    case StatusNotModified:
        // What the caller has is current, which is as good as having received it.
        m_Result.Stored = m_Settings.SendIfModifiedSince;
        return HttpError::None;
    case StatusRangeNotSatisfiable:
        if (m_Cache)
            m_Cache->Forget();
        return HttpError::None;
    case StatusPartialContent:
        break;
    default:
        return HttpError::None;
    }

    // Bytes from somewhere else than asked for must not pass for the right ones.
    const HttpRange& range = m_Result.Range;
    bool good = range.IsSet();
    if (headers.Range && range.Start != -1)
        good = good && headers.Range->First == static_cast<std::uint64_t>(range.Start);
    if (m_Known.PartLength != 0)
        good = good && headers.Range && headers.Range->Total.value_or(m_Known.Length) == m_Known.Length &&
               (headers.LastModified.empty() || headers.LastModified == m_Known.LastModified);
    if (!good)
    {
        if (m_Cache)
            m_Cache->Forget();
        return HttpError::BadAnswer;
    }
    m_Offset = m_Known.PartLength;
    if (m_Offset != 0)
        m_Result.LastModified = m_Known.LastModified;
    return HttpError::None;
}

HttpError CHttpTransfer::OpenDestination()
{
    if (m_Settings.Destination.empty())
    {
        const CLock lock(m_Lock);
        m_Destination = std::make_unique<CStreamDestination>(m_Result.Body);
        return HttpError::None;
    }
    auto file = std::make_unique<CFileDestination>();
    // Opened inside the lock, so that no file appears behind an owner that has let go.
    const CLock lock(m_Lock);
    if (IsStopped())
        return HttpError::Stopped;
    if (m_Cache && m_Offset == 0)
        m_Cache->Forget();
    const HttpError error = file->Open(m_Cache ? m_Cache->PartPath() : m_Settings.Destination, m_Offset);
    if (error == HttpError::None)
        m_Destination = std::move(file);
    return error;
}

/// A part that is continued needs the whole rest, however much of it the answer brings.
std::uint64_t CHttpTransfer::ExpectedBytes() const
{
    return m_Offset != 0 ? m_Known.Length - m_Offset : m_Result.ContentLength;
}

/// Whether the stored file would be, with so many bytes of this answer.
bool CHttpTransfer::IsTooLarge(std::uint64_t bytes) const
{
    return m_Offset > m_Settings.MostBytes || bytes > m_Settings.MostBytes - m_Offset;
}

HttpError CHttpTransfer::ReceiveBody()
{
    std::vector<char> block(BlockBytes);
    const std::uint64_t expected = ExpectedBytes();
    m_LastReport = ::GetTickCount() - ProgressStepMs;
    while (m_Received < expected)
    {
        if (!WaitWhilePaused())
            return HttpError::Stopped;
        std::size_t read = 0;
        // Never more than the length says: what a server sends beyond it belongs to nobody.
        const auto size =
            static_cast<std::size_t>(std::min<std::uint64_t>(block.size(), expected - m_Received));
        const bool good = m_Exchange.Read(block.data(), size, read);
        if (IsStopped())
            return HttpError::Stopped;
        if (IsTooLarge(m_Received + read))
            return HttpError::TooLarge;
        if (read != 0)
        {
            const HttpError error = StoreBlock(block.data(), read);
            if (error != HttpError::None)
                return error;
            m_Received += read;
        }
        if (!good && m_Received < expected)
            return HttpError::Read;
        if (read == 0)
            break;
        if (expected != UnknownLength)
        {
            const auto done = static_cast<double>(m_Offset) + static_cast<double>(m_Received);
            const auto total = static_cast<double>(m_Offset) + static_cast<double>(expected);
            m_PercentDone.store(std::min(static_cast<float>(done * 100.0 / total), NearlyDone),
                                std::memory_order_relaxed);
        }
        ReportProgress(m_Offset + m_Received,
                       expected == UnknownLength ? UnknownLength : m_Offset + expected);
    }
    // A server that closes early looks like the end of the body: only the length tells.
    return expected != UnknownLength && m_Received < expected ? HttpError::Read : HttpError::None;
}

HttpError CHttpTransfer::StoreBlock(const void* data, std::size_t size)
{
    const CLock lock(m_Lock);
    return m_Destination ? m_Destination->Write(data, size) : HttpError::Stopped;
}

HttpError CHttpTransfer::FinishBody(HttpError error)
{
    {
        const CLock lock(m_Lock);
        m_Destination.reset();
        if (IsStopped())
            return HttpError::Stopped;
    }
    if (m_Cache)
    {
        const std::uint64_t expected = ExpectedBytes();
        const std::uint64_t length = expected == UnknownLength ? UnknownLength : m_Offset + expected;
        if (error != HttpError::None)
            m_Cache->KeepPart(m_Result.LastModified, length);
        else if (!m_Cache->Commit(m_Result.LastModified, m_Offset + m_Received))
            error = HttpError::Write;
    }
    m_Result.Stored = error == HttpError::None;
    return error;
}

bool CHttpTransfer::WaitWhilePaused()
{
    for (;;)
    {
        if (IsStopped())
            return false;
        {
            const CLock lock(m_PauseLock);
            if (m_PauseState != PauseState::PauseRequested)
                return true;
        }
        ::Sleep(PauseStepMs);
    }
}

void CHttpTransfer::ReportProgress(std::uint64_t received, std::uint64_t total)
{
    const std::uint32_t now = ::GetTickCount();
    if (!m_Settings.Progress || now - m_LastReport < ProgressStepMs)
        return;
    m_LastReport = now;
    m_Settings.Progress->OnProgress(received, total);
}
} // namespace LS::System::Net
