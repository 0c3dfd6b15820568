#pragma once

#include "Ls/System/Net/HttpError.h"
#include "Ls/System/Net/InternetHandle.h"
#include "Ls/System/Net/Url.h"
#include "Ls/System/Win32/CriticalSection.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace LS::System::Net
{
/// In ms; 0 leaves the system's own. Receiving always has a limit: a server that falls silent must not hold
/// the worker for ever.
struct TimeOuts
{
    std::uint32_t Connect = 0;
    std::uint32_t Send = 0;
    std::uint32_t Receive = 0;
};

/// One GET and its answer over WinINet. One thread works with it, in the order of the operations, and closes
/// it; any other may Abort it meanwhile.
///
/// A closed handle's value is given to the next handle of the process, whosesoever that is, and not every
/// system bears a handle's being closed while another thread opens, closes or is about to use it or its
/// children. So what doesn't block is done inside the lock, and other threads close nothing but the request
/// of a call that is sure to block.
class CHttpExchange
{
public:
    CHttpExchange() = default;
    CHttpExchange(const CHttpExchange&) = delete;
    CHttpExchange& operator=(const CHttpExchange&) = delete;

    /// None or Session.
    HttpError OpenSession(const std::string& userAgent, const TimeOuts& timeOuts);
    /// Ends the exchange before, if any. acceptType may be empty; flags are further INTERNET_FLAG_* bits.
    /// None, Connect or Send.
    HttpError OpenRequest(const Url& url, const std::string& acceptType, std::uint32_t flags);
    /// Takes away what the system would send of that name by itself.
    void RemoveHeader(const char* name);
    /// "Name: value": added, or put in the place of the one that is there. False when the system refuses.
    bool SetHeader(const std::string& line);
    /// None, Connect or Send.
    HttpError Send();

    /// With CR LF between the lines; "--blank--" when the system doesn't give the block.
    std::string RawRequestHeaders() const { return RawHeaders(HTTP_QUERY_FLAG_REQUEST_HEADERS); }
    std::string RawResponseHeaders() const { return RawHeaders(0); }

    /// Up to size bytes of the body; read is 0 at its end, also when the server closed before it. False when
    /// it can't be read.
    bool Read(void* data, std::size_t size, std::size_t& read);

    /// The system's error of the operation that failed last.
    std::uint32_t SystemError() const { return m_SystemError; }

    /// The working thread, at its end. Can take long in mid-body: Wine first reads what is still on its way.
    void Close() noexcept;

    // Any thread.
    /// Makes whatever begins after it fail. True when a call is under way that may block.
    bool Abort() noexcept;
    /// After Abort: ends that call where the system can (on Windows; elsewhere the receive time-out does).
    /// Can take as long as Close.
    void FreeBlockedCall() noexcept;

private:
    class CBlockingCall;

    /// Keeps the system's error; always false.
    bool Failed();
    /// Inside the lock.
    bool Adopt(CInternetHandle& slot, CInternetHandle handle);
    void SetTimeOuts(HINTERNET handle) const;
    std::string RawHeaders(DWORD ofWhich) const;
    void CloseAll(bool session) noexcept;

    TimeOuts m_TimeOuts;
    std::uint32_t m_SystemError = 0;
    mutable Win32::CCriticalSection m_Lock;
    // Guarded by the lock.
    bool m_Aborted = false;
    bool m_InCall = false;
    CInternetHandle m_Session;
    CInternetHandle m_Connection;
    CInternetHandle m_Request;
    /// Held while handles are being closed; taken before the other.
    Win32::CCriticalSection m_CloseLock;
};
} // namespace LS::System::Net
