#include "Tests/Support/FaultServer.h"

#include <algorithm>
#include <regex>
#include <sstream>

namespace Tests
{
static const auto SetOption = [](SOCKET socket, int level, int option, const auto& value) {
    ::setsockopt(socket, level, option, reinterpret_cast<const char*>(&value), sizeof(value));
};

/// One client, on a thread of its own. Whatever waits for the client looks every few milliseconds whether it
/// is to go on waiting.
struct CFaultServer::CConnection
{
    CFaultServer& Server;
    const SOCKET Socket;
    std::string Received = {};
    HttpRequest Request = {};

    void Serve()
    {
        u_long nonBlocking = 1;
        ::ioctlsocket(Socket, FIONBIO, &nonBlocking);
        SetOption(Socket, IPPROTO_TCP, TCP_NODELAY, TRUE);
        while (ReadRequest() && Answer(Server.m_Handler(Request)))
            continue;
        if (Server.m_Away)
            SetOption(Socket, SOL_SOCKET, SO_LINGER, linger{1, 0});
        ::closesocket(Socket);
    }

    /// Waits until the socket has something to read, or takes something.
    bool Ready(bool toSend, DWORD milliseconds = 20) const
    {
        fd_set set = {1, {Socket}};
        timeval time = {0, static_cast<long>(milliseconds) * 1000};
        return ::select(0, toSend ? nullptr : &set, toSend ? &set : nullptr, nullptr, &time) > 0;
    }

    bool ReadRequest()
    {
        std::size_t end = 0;
        for (char bytes[16384]; (end = Received.find("\r\n\r\n")) == std::string::npos;)
        {
            const bool ready = Ready(false);
            const int count = ready ? ::recv(Socket, bytes, sizeof(bytes), 0) : 0;
            if (Server.m_Away || count < ready)
                return false;
            Received.append(bytes, static_cast<std::size_t>(count));
            if (Received.starts_with('\x16'))
                return Request.Method = "TLS", Keep(), false;
        }
        const auto headers = Received.find("\r\n") + 2;
        Request = {};
        Request.HeaderBlock = Received.substr(headers, end - std::min(end, headers));
        std::istringstream(Received) >> Request.Method >> Request.Target;
        Received.erase(0, end + 4);
        const std::string range = Request.Header("Range").value_or("");
        const auto dash = range.find('-');
        if (dash != std::string::npos && dash > 6)
            Request.RangeBegin = std::stoull(range.substr(6));
        if (dash + 1 < range.size())
            Request.RangeEnd = std::stoull(range.substr(dash + 1));
        return Keep(), true;
    }

    void Keep()
    {
        const std::lock_guard lock(Server.m_Mutex);
        Request.Index = static_cast<unsigned>(Server.m_Requests.size());
        Server.m_Requests.push_back(Request);
    }

    /// True when the connection serves a next request.
    bool Answer(const HttpReply& reply)
    {
        const std::uint64_t length = reply.Body ? reply.BodyLength : 0;
        const std::uint64_t cut = std::min(length, reply.CutAfter);
        if ((reply.StallBeforeHead && !Pause(INFINITE)) || !Send(reply.Head) || !SendBody(reply, 0, cut))
            return false;
        if (reply.End == HttpReply::Ending::Reset)
            SetOption(Socket, SOL_SOCKET, SO_LINGER, linger{1, 0});
        if (reply.End == HttpReply::Ending::Stall)
            return Pause(INFINITE) && SendBody(reply, cut, length);
        return reply.End == HttpReply::Ending::KeepAlive;
    }

    bool SendBody(const HttpReply& reply, std::uint64_t begin, std::uint64_t end)
    {
        const std::uint64_t most = reply.TrickleBytes ? reply.TrickleBytes : 65536;
        for (std::string piece; begin < end; begin += piece.size())
        {
            piece.resize(static_cast<std::size_t>(std::min(most, end - begin)));
            reply.Body(begin, piece.data(), piece.size());
            if (!Send(piece) || (reply.TrickleBytes && !Pause(reply.TrickleMs)))
                return false;
            Server.m_BodyBytes += piece.size();
        }
        return true;
    }

    bool Send(std::string_view bytes)
    {
        while (!bytes.empty() && !Server.m_Away)
        {
            const int sent =
                Ready(true) ? ::send(Socket, bytes.data(), static_cast<int>(bytes.size()), 0) : 0;
            if (sent < 0)
                return false;
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
        return bytes.empty();
    }

    /// Silent for that long, for ever until the server releases what stalls; false when the client has gone.
    bool Pause(DWORD milliseconds)
    {
        char next = 0;
        const DWORD begin = ::GetTickCount(), poll = std::min<DWORD>(milliseconds, 20);
        while (milliseconds == INFINITE ? !Server.m_Released : ::GetTickCount() - begin < milliseconds)
            if (Server.m_Away || (Ready(false, poll) && ::recv(Socket, &next, 1, MSG_PEEK) <= 0))
                return false;
        return true;
    }
};

CFaultServer::CFaultServer(Handler handler) : m_Handler(std::move(handler))
{
    WSADATA data = {};
    ::WSAStartup(MAKEWORD(2, 2), &data);
    Bind();
    Reopen();
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
    m_AcceptThread = std::thread([this] {
        std::vector<std::thread> threads;
        do // the last one is only to wake this thread
        {
            const SOCKET socket = ::accept(m_Listener, nullptr, nullptr);
            threads.emplace_back([this, socket] { CConnection{*this, socket}.Serve(); });
        } while (!m_Away);
        ::closesocket(m_Listener);
        Bind(); // so that nobody else can take the port
        for (std::thread& thread : threads)
            thread.join();
    });
}

void CFaultServer::GoAway()
{
    if (m_Away.exchange(true))
        return;
    const SOCKET wake = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    ::connect(wake, Address(), sizeof(m_Address));
    m_AcceptThread.join();
    ::closesocket(wake);
}

std::optional<std::string> HttpRequest::Header(const std::string& name) const
{
    std::smatch match;
    const std::regex line("(^|\r\n)" + name + ":[ \t]*([^\r]*)", std::regex::icase);
    return std::regex_search(HeaderBlock, match, line) ? std::optional(match[2].str()) : std::nullopt;
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
    const auto body = [text](auto at, char* to, auto size) {
        text.copy(to, size, static_cast<std::size_t>(at));
    };
    return {false, HttpHead("200 OK", {"Content-Type: " + contentType, length}), body, text.size()};
}

void FillPattern(std::uint64_t position, char* bytes, std::size_t size)
{
    for (std::uint64_t mixed = 0; size > 0; --size, ++position)
    {
        mixed = (position ^ (position >> 13)) * 0x9E3779B97F4A7C15;
        *bytes++ = static_cast<char>((mixed ^ (mixed >> 29)) >> 17);
    }
}

HttpReply FileReply(const HttpRequest& request, std::uint64_t size, const std::string& lastModified)
{
    std::vector<std::string> headers = {"Last-Modified: " + lastModified, "Accept-Ranges: bytes"};
    if (request.Header("If-Modified-Since") == lastModified)
        return {.Head = HttpHead("304 Not Modified", headers)};
    const bool part = (request.RangeBegin || request.RangeEnd) &&
                      request.Header("If-Range").value_or(lastModified) == lastModified;
    // The last so many bytes when only the end is named; end is one behind the last.
    const std::uint64_t tail = size - std::min(size, request.RangeEnd.value_or(size));
    const std::uint64_t begin = part ? request.RangeBegin.value_or(tail) : 0;
    const std::uint64_t last = part && request.RangeBegin ? request.RangeEnd.value_or(size) : size;
    const std::uint64_t end = std::max(begin, last < size ? last + 1 : size);
    const std::string range = begin < end ? std::to_string(begin) + "-" + std::to_string(end - 1) : "*";
    if (part)
        headers.push_back("Content-Range: bytes " + range + "/" + std::to_string(size));
    const char* const status = !part         ? "200 OK"
                               : begin < end ? "206 Partial Content"
                                             : "416 Range Not Satisfiable";
    headers.push_back("Content-Length: " + std::to_string(end - begin));
    const auto body = [begin](auto at, char* to, auto count) { FillPattern(begin + at, to, count); };
    return {false, HttpHead(status, headers), body, end - begin};
}
} // namespace Tests
