#include "Ls/System/Net/HttpExchange.h"

#include <cstring>
#include <utility>

namespace LS::System::Net
{
namespace
{
using Win32::CLock;

constexpr std::uint32_t DefaultReceiveMs = 30000;

// The transfer keeps its own cookies and cached file and follows redirects itself (a bounded number of
// them), so the system must do none of that behind its back, nor ask the user anything. The connection is
// kept for a proxy that asks who is there: NTLM and Negotiate take more than one message on one connection,
// and without that the proxy's 407 would be the answer.
constexpr DWORD RequestFlags = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE |
                               INTERNET_FLAG_NO_COOKIES | INTERNET_FLAG_NO_AUTO_REDIRECT |
                               INTERNET_FLAG_NO_UI | INTERNET_FLAG_KEEP_CONNECTION;
} // namespace

bool CHttpExchange::Failed()
{
    m_SystemError = ::GetLastError();
    return false;
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

HttpError CHttpExchange::OpenSession(const std::string& userAgent, const TimeOuts& timeOuts,
                                     const LeastPace& pace)
{
    m_TimeOuts = timeOuts;
    m_Handles->SetLeastPace(pace);
    m_PaceTimer.emplace(*m_Handles, pace);
    CInternetHandle& session = m_Handles->Session;
    session.Reset(::InternetOpenA(userAgent.c_str(), INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0));
    if (!session)
    {
        Failed();
        return HttpError::Session;
    }
    SetTimeOuts(session.Get());
    return HttpError::None;
}

HttpError CHttpExchange::OpenRequest(const Url& url, const std::string& acceptType, std::uint32_t flags)
{
    m_Handles->Request.Reset();
    CInternetHandle& connection = m_Handles->Connection;
    connection.Reset(::InternetConnectA(m_Handles->Session.Get(), url.Host.c_str(), url.Port, nullptr,
                                        nullptr, INTERNET_SERVICE_HTTP, 0, 0));
    if (!connection)
    {
        Failed();
        return HttpError::Connect;
    }

    // A wanted type is a wish, not a condition: the server may send what it has.
    const char* acceptTypes[] = {acceptType.c_str(), "*/*", nullptr};
    const DWORD allFlags = RequestFlags | flags | (url.Secure ? INTERNET_FLAG_SECURE : 0);
    m_Handles->Request.Reset(::HttpOpenRequestA(connection.Get(), "GET", url.WirePath().c_str(), "HTTP/1.1",
                                                nullptr, acceptType.empty() ? acceptTypes + 1 : acceptTypes,
                                                allFlags, 0));
    if (!Request())
    {
        Failed();
        return HttpError::Send;
    }
    SetTimeOuts(Request());
    return HttpError::None;
}

void CHttpExchange::RemoveHeader(const char* name)
{
    // Only what is there: not every system takes an empty value for a removal, and some servers refuse a
    // request with an empty Transfer-Encoding.
    char value[256] = {};
    ::strncpy(value, name, sizeof(value) - 1);
    DWORD size = sizeof(value);
    if (!::HttpQueryInfoA(Request(), HTTP_QUERY_CUSTOM | HTTP_QUERY_FLAG_REQUEST_HEADERS, value, &size,
                          nullptr) &&
        ::GetLastError() == ERROR_HTTP_HEADER_NOT_FOUND)
        return;
    const std::string line = std::string(name) + ": ";
    ::HttpAddRequestHeadersA(Request(), line.c_str(), static_cast<DWORD>(line.size()),
                             HTTP_ADDREQ_FLAG_REPLACE);
}

bool CHttpExchange::SetHeader(const std::string& line)
{
    return ::HttpAddRequestHeadersA(Request(), line.c_str(), static_cast<DWORD>(line.size()),
                                    HTTP_ADDREQ_FLAG_ADD | HTTP_ADDREQ_FLAG_REPLACE) ||
           Failed();
}

HttpError CHttpExchange::Send()
{
    if (m_Handles->Send())
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
    std::string text = "--blank--";
    const DWORD level = HTTP_QUERY_RAW_HEADERS_CRLF | ofWhich;
    DWORD size = 0;
    if (!::HttpQueryInfoA(Request(), level, nullptr, &size, nullptr) &&
        ::GetLastError() == ERROR_INSUFFICIENT_BUFFER)
    {
        std::string buffer(size, '\0');
        if (::HttpQueryInfoA(Request(), level, buffer.data(), &size, nullptr) && size <= buffer.size())
            text.assign(buffer, 0, size);
    }
    return text;
}

bool CHttpExchange::Read(void* data, std::size_t size, std::size_t& read)
{
    DWORD count = 0;
    const BOOL done = m_Handles->Read(data, static_cast<DWORD>(size), count);
    read = count;
    return done || Failed();
}

void CHttpExchange::Break() noexcept
{
    const CLock lock(m_Lock);
    if (m_Handles)
        m_Handles->Break();
}

void CHttpExchange::Close() noexcept
{
    m_PaceTimer.reset();
    CRefPtr<CRequestHandles> handles; // let go of after the lock has been left
    const CLock lock(m_Lock);
    std::swap(handles, m_Handles);
}
} // namespace LS::System::Net
