#pragma once

#include "Ls/System/Net/HttpRange.h"
#include "Ls/System/Object.h"
#include "Ls/System/ReferenceCounted.h"

#include <cstdint>
#include <string>

namespace LS::System::Net
{
/// Content length of an answer that names none.
inline constexpr std::uint64_t UnknownLength = UINT64_MAX;

/// One HTTP transfer on a worker of its own, watched by polling.
///
/// The owner's thread sets it up, starts it once and polls PercentDone, which reaches 100 when the transfer has
/// ended, well or not; only then are the results read. Failures never leave the worker: they end as an error
/// code. Dropping the last reference stops the transfer and returns at once, also while the transport
/// blocks: the worker shares what it still needs and goes when the transport lets it.
class CHttpWebRequest : public CReferenceCounted, public CObject
{
public:
    /// Empty when the URL can't be used. Time-outs in ms, 0 for the default (receiving: 30 s); requestFlags are
    /// further INTERNET_FLAG_* bits of the request.
    static CRefPtr<CHttpWebRequest> CreateHttp(const std::string& url, std::uint32_t connectTimeOutMs,
                                               std::uint32_t sendTimeOutMs, std::uint32_t receiveTimeOutMs,
                                               std::uint32_t requestFlags);

    // Before Start.
    virtual void SetUserAgent(const std::string& userAgent) = 0;
    virtual void SetContentType(const std::string& contentType) = 0;
    /// The body goes to this file instead of the response stream.
    virtual void SetDestination(const std::wstring& path) = 0;
    virtual void SetRange(const HttpRange& range) = 0;
    virtual void SetCookiesEnabled(bool enabled) = 0;

    /// Begins the transfer and returns at once.
    virtual void Start() = 0;

    // Any time.
    virtual float PercentDone() const = 0;
    virtual void Pause() = 0;
    virtual void Resume() = 0;

    // After PercentDone has reached 100.
    /// True when the transfer ended without an error code, with a status below 400, and the body was stored whole.
    virtual bool DownloadIsOk() const = 0;
    virtual std::uint32_t ErrorCode() const = 0;
    /// 0 when there was no answer.
    virtual std::uint32_t StatusCode() const = 0;
    virtual std::uint64_t ContentLength() const = 0;
    /// Length of the response stream: the answer's content length, UnknownLength when it names none.
    virtual std::uint64_t ResponseLength() const = 0;
    /// What the response stream holds.
    virtual const std::string& ResponseBody() const = 0;
};
} // namespace LS::System::Net
