#pragma once

#include "Ls/System/Net/HttpRange.h"
#include "Ls/System/Net/ReceivePace.h"
#include "Ls/System/Object.h"
#include "Ls/System/ReferenceCounted.h"

#include <windows.h>

#include <cstdint>
#include <string>

namespace LS::System::Net
{
/// Told how far a transfer has come, on its worker, at most every 50 ms. It may be called once more while the
/// request is being dropped: what it uses is its own, not the request's owner's.
class CHttpProgress : public CReferenceCounted, public CObject
{
public:
    /// In bytes, a part from an earlier download included; total is UnknownLength when the server doesn't
    /// tell.
    virtual void OnProgress(std::uint64_t received, std::uint64_t total) = 0;
};

/// One HTTP transfer (a GET) on a worker of its own, watched by polling.
///
/// The owner's thread sets it up, starts it once and polls PercentDone, which reaches 100 when the transfer
/// has ended, well or not; only then are the results read (before, they are blank). Failures never leave the
/// worker: they end as an error code. Dropping the last reference stops the transfer and returns at once,
/// also while the transport blocks: the worker shares what it still needs and goes when the transport lets
/// it; the destination file is given back at once.
///
/// Redirects are followed, ten at most and never from https to http. The system's own cookies and cache take
/// no part.
class CHttpWebRequest : public CReferenceCounted, public CObject
{
public:
    /// Empty when the URL can't be used. Time-outs in ms, 0 for the default (receiving: 30 s); requestFlags
    /// are further INTERNET_FLAG_* bits of the request.
    static CRefPtr<CHttpWebRequest> CreateHttp(const std::string& url, std::uint32_t connectTimeOutMs,
                                               std::uint32_t sendTimeOutMs, std::uint32_t receiveTimeOutMs,
                                               std::uint32_t requestFlags);

    // Before Start.
    virtual void SetUserAgent(const std::string& userAgent) = 0;
    /// The kind of answer that is wanted ("text/html"), named first in the Accept header. A GET has no
    /// content of its own to describe.
    virtual void SetContentType(const std::string& contentType) = 0;
    /// The body goes to this file instead of the response stream (which takes 16 MiB at most). The file is
    /// replaced once the server has answered well, and stays as it is when the transfer breaks off.
    virtual void SetDestination(const std::wstring& path) = 0;
    /// The longest file that is taken, a part from an earlier download included; without it any length is. A
    /// longer one ends the transfer in error: before anything is stored when the server names its length,
    /// otherwise when it has passed this.
    virtual void SetMostBytes(std::uint64_t bytes) = 0;
    virtual void SetRange(const HttpRange& range) = 0;
    /// Off by default: no cookie is sent or kept.
    virtual void SetCookiesEnabled(bool enabled) = 0;
    /// Cookies to send, "a=1; b=2", to the URL's host only.
    virtual void SetCookies(const std::string& cookies) = 0;
    /// For a file: an earlier download of the same URL to the same file is continued, or left alone (304)
    /// while the server has nothing newer. Range and conditions are then the request's own matter. See
    /// CDownloadCache.
    virtual void SetCached(bool cached) = 0;
    /// The date of the two conditions: a server's Last-Modified text, or a time of the caller's.
    virtual void SetConditionalDate(const std::string& date) = 0;
    virtual void SetConditionalDate(const SYSTEMTIME& utc) = 0;
    /// Sends the date as If-Modified-Since or If-Range.
    virtual void SetSendIfModifiedSince(bool send) = 0;
    virtual void SetSendIfRange(bool send) = 0;
    /// Instead of the usual 16 KiB in two minutes: a server that brings less than that is given up, and so is
    /// one whose head isn't whole by then (each redirect has a head of its own).
    virtual void SetLeastPace(const LeastPace& pace) = 0;
    virtual void SetProgress(CRefPtr<CHttpProgress> progress) = 0;

    /// Begins the transfer and returns at once; a second start does nothing.
    virtual void Start() = 0;

    // Any time.
    virtual float PercentDone() const = 0;
    /// The transfer waits after the block that it is at, for as long as the server puts up with it.
    virtual void Pause() = 0;
    virtual void Resume() = 0;

    // After PercentDone has reached 100.
    /// True when the transfer ended without an error code and the body was stored whole, or is current (304).
    /// Only a status from 200 to 299 brings a body: that of any other is not stored.
    virtual bool DownloadIsOk() const = 0;
    /// A number of HttpError; 0 for none.
    virtual std::uint32_t ErrorCode() const = 0;
    /// 0 when there was no answer.
    virtual std::uint32_t StatusCode() const = 0;
    virtual std::uint64_t ContentLength() const = 0;
    /// Length of the response stream: the answer's content length, UnknownLength when it names none.
    virtual std::uint64_t ResponseLength() const = 0;
    /// What the response stream holds.
    virtual std::string ResponseBody() const = 0;
    /// The range as it stands after the answer: absent when the server sent the whole entity instead
    /// (If-Range).
    virtual const HttpRange& Range() const = 0;
    /// The cookies as the answer left them, fit for SetCookies.
    virtual std::string Cookies() const = 0;
    /// The server's text, fit for SetConditionalDate; empty when there was none.
    virtual const std::string& LastModified() const = 0;
    /// The header blocks, for a log; "--blank--" when the system doesn't give them.
    virtual const std::string& RequestHeaders() const = 0;
    virtual const std::string& ResponseHeaders() const = 0;
};
} // namespace LS::System::Net
