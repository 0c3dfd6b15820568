#pragma once

#include "Ls/System/Io/Stream/MemoryStream.h"
#include "Ls/System/Net/BodyDestination.h"
#include "Ls/System/Net/CookieList.h"
#include "Ls/System/Net/DownloadCache.h"
#include "Ls/System/Net/HttpError.h"
#include "Ls/System/Net/HttpExchange.h"
#include "Ls/System/Net/HttpRange.h"
#include "Ls/System/Net/HttpWebRequest.h"
#include "Ls/System/Net/ResponseHeaders.h"
#include "Ls/System/Net/Url.h"
#include "Ls/System/Win32/CriticalSection.h"
#include "Ls/System/Win32/Thread.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace LS::System::Net
{
/// Everything that a transfer is told before it starts.
struct TransferSettings
{
    /// As the caller gave it, and its pieces.
    std::string UrlText;
    Url Target;
    std::string UserAgent = "Mozilla/4.0 (compatible; MSIE 5.0; CDA 6.0)";
    std::string ContentType;
    HttpRange Range;
    bool SendIfModifiedSince = false;
    bool SendIfRange = false;
    std::string ConditionalDate;
    bool CookiesEnabled = false;
    CCookieList Cookies;
    /// Empty: the response stream.
    std::wstring Destination;
    std::uint64_t MostBytes = UnknownLength;
    bool Cached = false;
    CRefPtr<CHttpProgress> Progress;
    TimeOuts Limits;
    LeastPace Pace;
    std::uint32_t RequestFlags = 0;
};

/// Everything that a transfer has found out.
struct TransferResult
{
    HttpError Error = HttpError::None;
    std::uint32_t StatusCode = 0;
    std::uint64_t ContentLength = UnknownLength;
    /// The body is where it belongs, or what was there is still current.
    bool Stored = false;
    std::string LastModified;
    HttpRange Range;
    CCookieList Cookies;
    /// The response stream.
    IO::Stream::CMemoryStream Body;
    std::string RequestHeaders;
    std::string ResponseHeaders;
};

/// The engine behind a request: one transfer on a thread of its own. It belongs to its owner and to its
/// thread together; the owner only stops it and lets go, the thread keeps it for as long as the transport
/// blocks.
class CHttpTransfer : public Win32::CThreadFunction
{
public:
    CHttpTransfer() = default;

    // The owner's thread.
    /// Once; returns at once. A failure is the transfer's result like any other.
    void Start(TransferSettings settings) noexcept;
    /// Asks the transfer to end and gives its file back. No file is touched after that.
    void Stop() noexcept;

    // Any thread.
    void Pause();
    void Resume();
    /// Below 100 until the result is there.
    float PercentDone() const noexcept { return m_PercentDone.load(std::memory_order_acquire); }
    /// The blank result until PercentDone has reached 100.
    const TransferResult& Result() const;

    std::uint32_t Execute(Win32::CThread& thread) override;

private:
    enum class PauseState
    {
        None = 0,
        PauseRequested = 1,
        ResumeRequested = 2
    };

    HttpError Transfer();
    void ApplyCache();
    HttpError RequestAnswer(ResponseHeaders& headers);
    bool SetHeaders(bool sameHost);
    HttpError CheckAnswer(const ResponseHeaders& headers);
    HttpError OpenDestination();
    std::uint64_t ExpectedBytes() const;
    bool IsTooLarge(std::uint64_t bytes) const;
    HttpError ReceiveBody();
    HttpError StoreBlock(const void* data, std::size_t size);
    HttpError FinishBody(HttpError error);
    bool WaitWhilePaused();
    void ReportProgress(std::uint64_t received, std::uint64_t total);
    bool IsStopped() const noexcept { return m_Stopped.load(); }
    void Publish(HttpError error) noexcept;

    /// The thread's only.
    TransferSettings m_Settings;
    std::optional<CDownloadCache> m_Cache;
    CDownloadCache::State m_Known;
    /// Where the received bytes begin in the stored file.
    std::uint64_t m_Offset = 0;
    std::uint64_t m_Received = 0;
    std::uint32_t m_LastReport = 0;

    CHttpExchange m_Exchange;
    std::atomic<bool> m_Started{false};
    std::atomic<bool> m_Stopped{false};
    /// Written by the thread; published by m_PercentDone reaching 100.
    TransferResult m_Result;
    std::atomic<float> m_PercentDone{0.0F};

    Win32::CCriticalSection m_PauseLock;
    PauseState m_PauseState = PauseState::None;

    /// Guards the two below, which the owner and the thread both let go of.
    Win32::CCriticalSection m_Lock;
    std::unique_ptr<CBodyDestination> m_Destination;
    CRefPtr<Win32::CThread> m_Thread;
};
} // namespace LS::System::Net
