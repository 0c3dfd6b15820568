#pragma once

#include "Ls/System/Net/HttpError.h"
#include "Ls/System/Net/PaceTimer.h"
#include "Ls/System/Net/RequestHandles.h"
#include "Ls/System/Net/Url.h"
#include "Ls/System/Win32/CriticalSection.h"

#include <cstddef>
#include <cstdint>
#include <optional>
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

/// One GET and its answer over WinINet. One thread works with it, in the order of the operations; any other
/// may Break it off meanwhile, which on Windows ends a call that blocks (elsewhere the receive time-out
/// does); nothing is sent or read any more then.
class CHttpExchange
{
public:
    CHttpExchange() : m_Handles(MakeRef<CRequestHandles>()) {}
    CHttpExchange(const CHttpExchange&) = delete;
    CHttpExchange& operator=(const CHttpExchange&) = delete;

    /// Once; None or Session. The pace is that of each answer, a redirect's included.
    HttpError OpenSession(const std::string& userAgent, const TimeOuts& timeOuts, const LeastPace& pace);
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

    /// The next size bytes of the body; fewer only at its end, also when the server closed before it. False
    /// when it can't be read on or comes too slowly; what came before is in data all the same.
    bool Read(void* data, std::size_t size, std::size_t& read);

    /// The system's error of the operation that failed last.
    std::uint32_t SystemError() const { return m_SystemError; }

    /// Any thread, any time; returns at once.
    void Break() noexcept;
    /// At the end of the work. In mid-body it can take long: Wine first reads what is still on its way.
    void Close() noexcept;

private:
    /// Keeps the system's error; always false.
    bool Failed();
    void SetTimeOuts(HINTERNET handle) const;
    std::string RawHeaders(DWORD ofWhich) const;
    HINTERNET Request() const { return m_Handles->Request.Get(); }

    TimeOuts m_TimeOuts;
    std::uint32_t m_SystemError = 0;
    /// Guards the pointer, for those who don't work with it.
    Win32::CCriticalSection m_Lock;
    CRefPtr<CRequestHandles> m_Handles;
    std::optional<CPaceTimer> m_PaceTimer;
};
} // namespace LS::System::Net
