#include "Tests/Support/FaultServer.h"

#include <windows.h>

#include <algorithm>
#include <regex>
#include <stdexcept>

namespace Tests
{
namespace
{
/// Whoever waits for the client looks this often whether he is to go on waiting.
constexpr DWORD PollMs = 20;

HttpRequest ParseRequest(const std::string& head)
{
    HttpRequest request;
    const auto lineEnd = std::min(head.find("\r\n"), head.size());
    const auto first = head.find(' '), last = head.rfind(' ', lineEnd);
    request.Method = head.substr(0, first);
    if (first < last)
        request.Target = head.substr(first + 1, last - first - 1);
    request.HeaderBlock = head.substr(std::min(lineEnd + 2, head.size()));
    const std::string range = request.Header("Range").value_or("");
    const auto dash = range.find('-');
    if (dash != std::string::npos && dash > 6)
        request.RangeBegin = std::stoull(range.substr(6));
    if (dash + 1 < range.size())
        request.RangeEnd = std::stoull(range.substr(dash + 1));
    return request;
}

template <class Value>
void SetOption(SOCKET socket, int level, int option, const Value& value)
{
    ::setsockopt(socket, level, option, reinterpret_cast<const char*>(&value), sizeof(value));
}

/// Waits until the socket has something to read, or takes something.
bool Ready(SOCKET socket, bool toSend, DWORD milliseconds = PollMs)
{
    fd_set set;
    FD_ZERO(&set);
    FD_SET(socket, &set);
    timeval time = {0, static_cast<long>(milliseconds) * 1000};
    return ::select(0, toSend ? nullptr : &set, toSend ? &set : nullptr, nullptr, &time) > 0;
}
} // namespace

CFaultServer::CFaultServer(Handler handler) : m_Handler(std::move(handler))
{
    WSADATA data = {};
    ::WSAStartup(MAKEWORD(2, 2), &data);
    m_Address.sin_family = AF_INET;
    m_Address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    Bind();
    Reopen();
}

CFaultServer::~CFaultServer()
{
    GoAway();
    ::closesocket(m_Listener);
    ::WSACleanup();
}

void CFaultServer::Bind()
{
    m_Listener = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    SetOption(m_Listener, SOL_SOCKET, SO_REUSEADDR, TRUE); // old connections may still wait in the system
    int size = sizeof(m_Address);
    if (::bind(m_Listener, Address(), size) != 0 || ::getsockname(m_Listener, Address(), &size) != 0)
        throw std::runtime_error("CFaultServer: no port");
}

void CFaultServer::Reopen()
{
    if (!m_Away.exchange(false))
        return;
    ::listen(m_Listener, SOMAXCONN);
    m_AcceptThread = std::thread([this] { Accept(); });
}

void CFaultServer::GoAway()
{
    if (m_Away.exchange(true))
        return;
    const SOCKET wake = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    ::connect(wake, Address(), sizeof(m_Address));
    m_AcceptThread.join();
    ::closesocket(wake);
    for (std::thread& thread : m_Threads)
        thread.join();
    m_Threads.clear();
}

void CFaultServer::Accept()
{
    for (;;)
    {
        const SOCKET socket = ::accept(m_Listener, nullptr, nullptr);
        if (m_Away)
        {
            ::closesocket(socket);
            ::closesocket(m_Listener);
            return Bind(); // so that nobody else can take the port
        }
        u_long nonBlocking = 1;
        ::ioctlsocket(socket, FIONBIO, &nonBlocking);
        SetOption(socket, IPPROTO_TCP, TCP_NODELAY, TRUE);
        m_Threads.emplace_back([this, socket] { Serve(socket); });
    }
}

void CFaultServer::Serve(SOCKET socket)
{
    std::string received;
    HttpRequest request;
    while (ReadRequest(socket, received, request) && Answer(socket, m_Handler(request)))
        continue;
    if (m_Away)
        SetOption(socket, SOL_SOCKET, SO_LINGER, linger{1, 0});
    ::closesocket(socket);
}

bool CFaultServer::ReadRequest(SOCKET socket, std::string& received, HttpRequest& request)
{
    while (!m_Away)
    {
        const auto end = received.find("\r\n\r\n");
        if (end != std::string::npos)
            request = ParseRequest(received.substr(0, end));
        const std::uint64_t size = end + 4ULL + std::stoul(request.Header("Content-Length").value_or("0"));
        if (end != std::string::npos && received.size() >= size)
        {
            received.erase(0, static_cast<std::size_t>(size));
            const std::lock_guard lock(m_Mutex);
            request.Index = static_cast<unsigned>(m_Requests.size());
            m_Requests.push_back(request);
            return true;
        }
        char buffer[16 * 1024];
        if (!Ready(socket, false))
            continue;
        const int count = ::recv(socket, buffer, sizeof(buffer), 0);
        if (count <= 0)
            return false;
        received.append(buffer, static_cast<std::size_t>(count));
    }
    return false;
}

/// True when the connection serves a next request.
bool CFaultServer::Answer(SOCKET socket, const HttpReply& reply)
{
    if (reply.StallBeforeHead && !Pause(socket, INFINITE))
        return false;
    const std::uint64_t length = reply.Body ? reply.BodyLength : 0;
    const std::uint64_t cut = std::min(length, reply.CutAfter);
    if (!Send(socket, reply.Head.data(), reply.Head.size()) || !SendBody(socket, reply, 0, cut))
        return false;
    if (reply.End == HttpReply::Ending::Reset)
        SetOption(socket, SOL_SOCKET, SO_LINGER, linger{1, 0});
    if (reply.End == HttpReply::Ending::Stall)
        return Pause(socket, INFINITE) && SendBody(socket, reply, cut, length);
    return reply.End == HttpReply::Ending::KeepAlive;
}

bool CFaultServer::SendBody(SOCKET socket, const HttpReply& reply, std::uint64_t begin, std::uint64_t end)
{
    std::string piece(reply.TrickleBytes ? reply.TrickleBytes : 65536U, '\0');
    for (; begin < end; begin += piece.size())
    {
        piece.resize(static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), end - begin)));
        reply.Body(begin, piece.data(), piece.size());
        if (!Send(socket, piece.data(), piece.size()))
            return false;
        m_BodyBytes += piece.size();
        if (reply.TrickleBytes && !Pause(socket, reply.TrickleMs))
            return false;
    }
    return true;
}

bool CFaultServer::Send(SOCKET socket, const char* bytes, std::size_t size)
{
    while (size > 0 && !m_Away)
    {
        if (!Ready(socket, true))
            continue;
        const int sent = ::send(socket, bytes, static_cast<int>(size), 0);
        if (sent <= 0)
            return false;
        bytes += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return size == 0;
}

/// Silent for that long, for ever until the server releases what stalls; false when the client has gone.
bool CFaultServer::Pause(SOCKET socket, std::uint32_t milliseconds)
{
    const DWORD begin = ::GetTickCount();
    while (!m_Away)
    {
        const DWORD passed = ::GetTickCount() - begin;
        if (passed >= milliseconds || (milliseconds == INFINITE && m_Released))
            return true;
        char next = 0;
        if (Ready(socket, false, std::min(milliseconds - passed, PollMs)) &&
            ::recv(socket, &next, 1, MSG_PEEK) <= 0)
            return false;
    }
    return false;
}

std::optional<std::string> HttpRequest::Header(const std::string& name) const
{
    std::smatch match;
    const std::regex line("(^|\r\n)" + name + ":[ \t]*([^\r]*)", std::regex::icase);
    if (!std::regex_search(HeaderBlock, match, line))
        return std::nullopt;
    return match[2].str();
}

std::string HttpHead(const std::string& status, const std::vector<std::string>& headers)
{
    std::string head = "HTTP/1.1 " + status + "\r\n";
    for (const std::string& header : headers)
        head += header + "\r\n";
    return head + "\r\n";
}

HttpReply TextReply(const std::string& text, const std::string& contentType)
{
    const std::string length = "Content-Length: " + std::to_string(text.size());
    return {.Head = HttpHead("200 OK", {"Content-Type: " + contentType, length}),
            .Body = [text](std::uint64_t position, char* bytes,
                           std::size_t size) { text.copy(bytes, size, static_cast<std::size_t>(position)); },
            .BodyLength = text.size()};
}

void FillPattern(std::uint64_t position, char* bytes, std::size_t size)
{
    for (; size > 0; --size, ++bytes, ++position)
    {
        const std::uint64_t mixed = (position ^ (position >> 13)) * 0x9E3779B97F4A7C15;
        *bytes = static_cast<char>((mixed ^ (mixed >> 29)) >> 17);
    }
}

HttpReply FileReply(const HttpRequest& request, std::uint64_t size, const std::string& lastModified)
{
    std::vector<std::string> headers = {"Last-Modified: " + lastModified, "Accept-Ranges: bytes"};
    if (request.Header("If-Modified-Since") == lastModified)
        return {.Head = HttpHead("304 Not Modified", headers)};
    std::string status = "200 OK";
    std::uint64_t begin = 0;
    std::uint64_t end = size; // one behind the last
    if ((request.RangeBegin || request.RangeEnd) &&
        request.Header("If-Range").value_or(lastModified) == lastModified)
    {
        begin = request.RangeBegin.value_or(size - std::min(size, request.RangeEnd.value_or(0)));
        end = request.RangeBegin ? std::min(size, request.RangeEnd.value_or(size) + 1) : size;
        const bool inside = begin < end;
        const std::string range = std::to_string(begin) + "-" + std::to_string(end - 1);
        status = inside ? "206 Partial Content" : "416 Range Not Satisfiable";
        headers.push_back("Content-Range: bytes " + (inside ? range : "*") + "/" + std::to_string(size));
    }
    const std::uint64_t length = end - std::min(begin, end);
    headers.push_back("Content-Length: " + std::to_string(length));
    return {.Head = HttpHead(status, headers),
            .Body = [begin](std::uint64_t position, char* bytes,
                            std::size_t count) { FillPattern(begin + position, bytes, count); },
            .BodyLength = length};
}
} // namespace Tests
