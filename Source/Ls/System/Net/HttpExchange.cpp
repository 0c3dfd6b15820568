#include "Ls/System/Net/HttpExchange.h"

#include <cstring>
#include <utility>

namespace LS::System::Net
{
namespace
{
using Win32::CLock;

constexpr std::uint32_t DefaultReceiveMs = 30000;
/// What a call that is under way gets to end by itself, and at the least to have reached the system.
constexpr DWORD GraceMs = 200;
constexpr DWORD GraceStepMs = 10;

// The transfer keeps its own cookies and cached file and follows redirects itself (a bounded number of
// them), so the system must do none of that behind its back, nor ask the user anything. The connection
// isn't kept: a request has no second one to use it for.
constexpr DWORD RequestFlags = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE |
                               INTERNET_FLAG_NO_COOKIES | INTERNET_FLAG_NO_AUTO_REDIRECT |
                               INTERNET_FLAG_NO_UI;
} // namespace

/// The request's handle for a call that may block, outside the lock; null after an abort.
class CHttpExchange::CBlockingCall
{
public:
    explicit CBlockingCall(CHttpExchange& exchange) noexcept : m_Exchange(exchange)
    {
        const CLock lock(m_Exchange.m_Lock);
        m_Exchange.m_InCall = !m_Exchange.m_Aborted;
        m_Request = m_Exchange.m_InCall ? m_Exchange.m_Request.Get() : nullptr;
    }
    CBlockingCall(const CBlockingCall&) = delete;
    CBlockingCall& operator=(const CBlockingCall&) = delete;
    ~CBlockingCall()
    {
        const CLock lock(m_Exchange.m_Lock);
        m_Exchange.m_InCall = false;
    }

    HINTERNET Request() const noexcept { return m_Request; }

private:
    CHttpExchange& m_Exchange;
    HINTERNET m_Request = nullptr;
};

bool CHttpExchange::Failed()
{
    m_SystemError = ::GetLastError();
    return false;
}

bool CHttpExchange::Adopt(CInternetHandle& slot, CInternetHandle handle)
{
    slot = std::move(handle);
    return slot || Failed();
}

void CHttpExchange::SetTimeOuts(HINTERNET handle) const
{
    const auto set = [handle](DWORD option, DWORD milliseconds) {
        if (milliseconds != 0)
            ::InternetSetOptionW(handle, option, &milliseconds, sizeof(milliseconds));
    };
    set(INTERNET_OPTION_CONNECT_TIMEOUT, m_TimeOuts.Connect);
    set(INTERNET_OPTION_SEND_TIMEOUT, m_TimeOuts.Send);
    set(INTERNET_OPTION_RECEIVE_TIMEOUT, m_TimeOuts.Receive != 0 ? m_TimeOuts.Receive : DefaultReceiveMs);
}

HttpError CHttpExchange::OpenSession(const std::string& userAgent, const TimeOuts& timeOuts)
{
    m_TimeOuts = timeOuts;
    const CLock lock(m_Lock);
    if (m_Aborted ||
        !Adopt(m_Session, CInternetHandle(::InternetOpenA(userAgent.c_str(), INTERNET_OPEN_TYPE_PRECONFIG,
                                                          nullptr, nullptr, 0))))
        return HttpError::Session;
    SetTimeOuts(m_Session.Get());
    return HttpError::None;
}

HttpError CHttpExchange::OpenRequest(const Url& url, const std::string& acceptType, std::uint32_t flags)
{
    CloseAll(false);
    const CLock lock(m_Lock);
    if (m_Aborted || !Adopt(m_Connection, CInternetHandle(::InternetConnectA(
                                              m_Session.Get(), url.Host.c_str(), url.Port, nullptr, nullptr,
                                              INTERNET_SERVICE_HTTP, 0, 0))))
        return HttpError::Connect;

    // A wanted type is a wish, not a condition: the server may send what it has.
    const char* acceptTypes[] = {acceptType.c_str(), "*/*", nullptr};
    const DWORD allFlags = RequestFlags | flags | (url.Secure ? INTERNET_FLAG_SECURE : 0);
    if (!Adopt(m_Request, CInternetHandle(::HttpOpenRequestA(
                              m_Connection.Get(), "GET", url.WirePath().c_str(), "HTTP/1.1", nullptr,
                              acceptType.empty() ? acceptTypes + 1 : acceptTypes, allFlags, 0))))
        return HttpError::Send;
    SetTimeOuts(m_Request.Get());
    return HttpError::None;
}

void CHttpExchange::RemoveHeader(const char* name)
{
    // Only what is there: not every system takes an empty value for a removal, and some servers refuse a
    // request with an empty Transfer-Encoding.
    const CLock lock(m_Lock);
    char value[256] = {};
    ::strncpy(value, name, sizeof(value) - 1);
    DWORD size = sizeof(value);
    if (!::HttpQueryInfoA(m_Request.Get(), HTTP_QUERY_CUSTOM | HTTP_QUERY_FLAG_REQUEST_HEADERS, value, &size,
                          nullptr) &&
        ::GetLastError() == ERROR_HTTP_HEADER_NOT_FOUND)
        return;
    const std::string line = std::string(name) + ": ";
    ::HttpAddRequestHeadersA(m_Request.Get(), line.c_str(), static_cast<DWORD>(line.size()),
                             HTTP_ADDREQ_FLAG_REPLACE);
}

bool CHttpExchange::SetHeader(const std::string& line)
{
    const CLock lock(m_Lock);
    return ::HttpAddRequestHeadersA(m_Request.Get(), line.c_str(), static_cast<DWORD>(line.size()),
                                    HTTP_ADDREQ_FLAG_ADD | HTTP_ADDREQ_FLAG_REPLACE) ||
           Failed();
}

HttpError CHttpExchange::Send()
{
    const CBlockingCall call(*this);
    if (::HttpSendRequestW(call.Request(), nullptr, 0, nullptr, 0))
        return HttpError::None;
    Failed();
    switch (m_SystemError)
    {
    case ERROR_INTERNET_NAME_NOT_RESOLVED:
    case ERROR_INTERNET_CANNOT_CONNECT:
        return HttpError::Connect;
    default:
        return HttpError::Send;
    }
}

std::string CHttpExchange::RawHeaders(DWORD ofWhich) const
{
    const CLock lock(m_Lock);
    std::string text = "--blank--";
    const DWORD level = HTTP_QUERY_RAW_HEADERS_CRLF | ofWhich;
    DWORD size = 0;
    if (!::HttpQueryInfoA(m_Request.Get(), level, nullptr, &size, nullptr) &&
        ::GetLastError() == ERROR_INSUFFICIENT_BUFFER)
    {
        std::string buffer(size, '\0');
        if (::HttpQueryInfoA(m_Request.Get(), level, buffer.data(), &size, nullptr) && size <= buffer.size())
            text.assign(buffer, 0, size);
    }
    return text;
}

bool CHttpExchange::Read(void* data, std::size_t size, std::size_t& read)
{
    DWORD count = 0;
    const CBlockingCall call(*this);
    const BOOL done = ::InternetReadFile(call.Request(), data, static_cast<DWORD>(size), &count);
    read = count;
    return done || Failed();
}

void CHttpExchange::Close() noexcept
{
    CloseAll(true);
}

void CHttpExchange::CloseAll(bool session) noexcept
{
    const CLock closing(m_CloseLock);
    // Freed in reverse order, the request first, after the lock has been left.
    CInternetHandle ofSession;
    CInternetHandle ofConnection;
    CInternetHandle ofRequest;
    const CLock lock(m_Lock);
    ofRequest = std::move(m_Request);
    ofConnection = std::move(m_Connection);
    if (session)
        ofSession = std::move(m_Session);
}

bool CHttpExchange::Abort() noexcept
{
    const CLock lock(m_Lock);
    m_Aborted = true;
    return m_InCall;
}

void CHttpExchange::FreeBlockedCall() noexcept
{
    for (DWORD waited = 0; waited < GraceMs && Abort(); waited += GraceStepMs)
        ::Sleep(GraceStepMs);

    const CLock closing(m_CloseLock);
    CInternetHandle request;
    const CLock lock(m_Lock);
    if (m_InCall)
        request = std::move(m_Request);
}
} // namespace LS::System::Net
