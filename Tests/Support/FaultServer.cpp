#include <winsock2.h>

#include "Tests/Support/FaultServer.h"

#include "Ls/System/Win32/UniqueHandle.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <list>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <thread>

namespace Tests
{
namespace
{
using LS::System::Win32::CKernelHandle;

struct SocketTraits
{
    using Type = SOCKET;
    static Type None() noexcept { return INVALID_SOCKET; }
    static void Free(Type socket) noexcept { ::closesocket(socket); }
};
using CSocket = LS::System::Win32::CUniqueHandle<SocketTraits>;

constexpr std::size_t PieceBytes = 64 * 1024;
constexpr std::size_t MostRequestBytes = 1024 * 1024;
/// Waits for the network are cut into this, so that an edge that the event lost costs a moment, not the test.
constexpr DWORD LostEdgeMs = 250;

[[noreturn]] void Fail(const char* what)
{
    throw std::runtime_error(std::string("CFaultServer: ") + what + " failed, error " +
                             std::to_string(::WSAGetLastError()));
}

CKernelHandle MakeManualEvent()
{
    CKernelHandle event(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!event)
        Fail("CreateEvent");
    return event;
}

bool EqualsNoCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && ::_strnicmp(a.data(), b.data(), a.size()) == 0;
}

std::optional<std::uint64_t> ParseNumber(std::string_view text)
{
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

/// The block is everything before the blank line.
HttpRequest ParseRequest(const std::string& block)
{
    HttpRequest request;
    const auto lineEnd = std::min(block.find("\r\n"), block.size());
    const std::string line = block.substr(0, lineEnd);
    const auto first = line.find(' ');
    const auto last = line.rfind(' ');
    request.Method = line.substr(0, first);
    if (first != std::string::npos && last > first)
        request.Target = line.substr(first + 1, last - first - 1);
    if (lineEnd < block.size())
        request.HeaderBlock = block.substr(lineEnd + 2);

    constexpr std::string_view unit = "bytes=";
    const std::string range = request.Header("Range").value_or("");
    const auto dash = range.find('-');
    if (range.starts_with(unit) && dash != std::string::npos)
    {
        request.RangeBegin = ParseNumber(std::string_view(range).substr(unit.size(), dash - unit.size()));
        request.RangeEnd = ParseNumber(std::string_view(range).substr(dash + 1));
    }
    return request;
}

/// A connection's socket with the events that a wait for it can end by. Every operation gives up (false)
/// when the server ends the connection or the client has gone.
class CConnection
{
public:
    CConnection(CSocket socket, unsigned number, HANDLE release) :
        m_Number(number), m_Release(release), m_Network(MakeManualEvent()), m_Abort(MakeManualEvent()),
        m_Socket(std::move(socket))
    {
        if (::WSAEventSelect(m_Socket.Get(), m_Network.Get(), FD_READ | FD_WRITE | FD_CLOSE) != 0)
            Fail("WSAEventSelect");
        const BOOL noDelay = TRUE;
        ::setsockopt(m_Socket.Get(), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&noDelay),
                     sizeof(noDelay));
    }

    unsigned Number() const { return m_Number; }
    void Abort() const { ::SetEvent(m_Abort.Get()); }
    bool Aborted() const { return ::WaitForSingleObject(m_Abort.Get(), 0) == WAIT_OBJECT_0; }

    /// Everything up to the blank line; what follows it stays for the next request.
    bool ReadHead(std::string& block)
    {
        for (;;)
        {
            if (const auto end = m_Received.find("\r\n\r\n"); end != std::string::npos)
            {
                block = m_Received.substr(0, end);
                m_Received.erase(0, end + 4);
                return true;
            }
            if (m_Received.size() > MostRequestBytes || !Receive())
                return false;
        }
    }

    bool SkipBody(std::uint64_t length)
    {
        while (length > m_Received.size())
        {
            length -= m_Received.size();
            m_Received.clear();
            if (!Receive())
                return false;
        }
        m_Received.erase(0, static_cast<std::size_t>(length));
        return true;
    }

    /// counter, if any, is told of each byte that the network took.
    bool Send(const char* bytes, std::size_t size, const std::function<void(std::size_t)>& counter = {})
    {
        while (size > 0)
        {
            if (Aborted())
                return false;
            const int sent = ::send(m_Socket.Get(), bytes, static_cast<int>(size), 0);
            if (sent > 0)
            {
                bytes += sent;
                size -= static_cast<std::size_t>(sent);
                if (counter)
                    counter(static_cast<std::size_t>(sent));
            }
            else if (::WSAGetLastError() != WSAEWOULDBLOCK || !WaitForNetwork())
                return false;
        }
        return true;
    }

    /// Silent for that long, or until the server releases what stalls.
    bool Pause(DWORD milliseconds, bool endByRelease)
    {
        using Clock = std::chrono::steady_clock;
        const auto end = Clock::now() + std::chrono::milliseconds(milliseconds);
        HANDLE events[] = {m_Abort.Get(), m_Network.Get(), m_Release};
        while (!m_PeerClosed)
        {
            DWORD wait = INFINITE;
            if (milliseconds != INFINITE)
            {
                const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
                if (left <= 0)
                    return true;
                wait = static_cast<DWORD>(left);
            }
            switch (::WaitForMultipleObjects(endByRelease ? 3 : 2, events, FALSE, wait))
            {
            case WAIT_OBJECT_0 + 1:
                TakeNetworkEvents();
                break;
            case WAIT_OBJECT_0 + 2:
            case WAIT_TIMEOUT:
                return true;
            default:
                return false;
            }
        }
        return false;
    }

    void Close()
    {
        ::shutdown(m_Socket.Get(), SD_SEND);
        m_Socket.Reset();
    }

    void Reset()
    {
        const linger hard = {1, 0};
        ::setsockopt(m_Socket.Get(), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&hard),
                     sizeof(hard));
        m_Socket.Reset();
    }

    std::thread Thread;
    std::atomic<bool> Done{false};

private:
    bool Receive()
    {
        char buffer[16 * 1024];
        for (;;)
        {
            if (Aborted())
                return false;
            const int received = ::recv(m_Socket.Get(), buffer, sizeof(buffer), 0);
            if (received > 0)
            {
                m_Received.append(buffer, static_cast<std::size_t>(received));
                return true;
            }
            if (received == 0 || ::WSAGetLastError() != WSAEWOULDBLOCK || !WaitForNetwork())
                return false;
        }
    }

    bool WaitForNetwork()
    {
        HANDLE events[] = {m_Abort.Get(), m_Network.Get()};
        if (::WaitForMultipleObjects(2, events, FALSE, LostEdgeMs) == WAIT_OBJECT_0 + 1)
            TakeNetworkEvents();
        return !Aborted();
    }

    void TakeNetworkEvents()
    {
        WSANETWORKEVENTS network = {};
        if (::WSAEnumNetworkEvents(m_Socket.Get(), m_Network.Get(), &network) != 0)
            m_PeerClosed = true;
        if (network.lNetworkEvents & FD_CLOSE)
            m_PeerClosed = true;
    }

    unsigned m_Number;
    HANDLE m_Release;
    CKernelHandle m_Network;
    CKernelHandle m_Abort;
    CSocket m_Socket;
    std::string m_Received;
    bool m_PeerClosed = false;
};
} // namespace

struct CFaultServer::Impl
{
    explicit Impl(Handler handler) : m_Handler(std::move(handler))
    {
        WSADATA data = {};
        if (::WSAStartup(MAKEWORD(2, 2), &data) != 0)
            Fail("WSAStartup");
        try
        {
            m_Wake = MakeManualEvent();
            m_AcceptEvent = MakeManualEvent();
            m_Release = MakeManualEvent();
            m_Listener = BindListener(0);
            sockaddr_in address = {};
            int size = sizeof(address);
            if (::getsockname(m_Listener.Get(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
                Fail("getsockname");
            m_Port = ntohs(address.sin_port);
            Listen();
            m_AcceptThread = std::thread([this] { AcceptLoop(); });
        }
        catch (...)
        {
            m_Listener.Reset();
            ::WSACleanup();
            throw;
        }
    }
    Impl(const Impl&) = delete;

    ~Impl()
    {
        {
            const std::lock_guard lock(m_Mutex);
            m_Stopping = true;
            m_Listener.Reset();
            for (const auto& connection : m_Connections)
                connection->Abort();
        }
        ::SetEvent(m_Wake.Get());
        m_AcceptThread.join();
        for (const auto& connection : m_Connections)
            connection->Thread.join();
        m_Connections.clear();
        ::WSACleanup();
    }

    static CSocket BindListener(std::uint16_t port)
    {
        CSocket listener(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
        if (!listener)
            Fail("socket");
        const BOOL reuse = TRUE; // old connections of this port may still wait in the system
        ::setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&reuse),
                     sizeof(reuse));
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        if (::bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
            Fail("bind");
        return listener;
    }

    void Listen()
    {
        if (::WSAEventSelect(m_Listener.Get(), m_AcceptEvent.Get(), FD_ACCEPT) != 0)
            Fail("WSAEventSelect");
        if (::listen(m_Listener.Get(), SOMAXCONN) != 0)
            Fail("listen");
    }

    void AcceptLoop()
    {
        HANDLE events[] = {m_Wake.Get(), m_AcceptEvent.Get()};
        for (;;)
        {
            ::WaitForMultipleObjects(2, events, FALSE, LostEdgeMs);
            ::ResetEvent(m_Wake.Get());
            Reap();
            const std::lock_guard lock(m_Mutex);
            if (m_Stopping)
                return;
            AcceptAll();
        }
    }

    void AcceptAll()
    {
        ::ResetEvent(m_AcceptEvent.Get());
        if (m_Away)
            return;
        WSANETWORKEVENTS network = {};
        ::WSAEnumNetworkEvents(m_Listener.Get(), m_AcceptEvent.Get(), &network);
        while (CSocket socket{::accept(m_Listener.Get(), nullptr, nullptr)})
        {
            m_Connections.push_back(
                std::make_unique<CConnection>(std::move(socket), m_ConnectionCount++, m_Release.Get()));
            CConnection& connection = *m_Connections.back();
            connection.Thread = std::thread([this, &connection] {
                Serve(connection);
                connection.Done = true;
                ::SetEvent(m_Wake.Get());
            });
        }
    }

    /// Joins the threads that are through, so that a long test doesn't pile up their handles.
    void Reap()
    {
        std::list<std::unique_ptr<CConnection>> done;
        {
            const std::lock_guard lock(m_Mutex);
            for (auto i = m_Connections.begin(); i != m_Connections.end();)
            {
                const auto next = std::next(i);
                if ((*i)->Done)
                    done.splice(done.end(), m_Connections, i);
                i = next;
            }
        }
        for (const auto& connection : done)
            connection->Thread.join();
    }

    void Serve(CConnection& connection)
    {
        try
        {
            std::string block;
            while (connection.ReadHead(block))
            {
                HttpRequest request = ParseRequest(block);
                request.Connection = connection.Number();
                const auto bodyLength = ParseNumber(request.Header("Content-Length").value_or("0"));
                if (!connection.SkipBody(bodyLength.value_or(0)))
                    break;
                {
                    const std::lock_guard lock(m_Mutex);
                    request.Index = static_cast<unsigned>(m_Requests.size());
                    m_Requests.push_back(request);
                }
                m_Changed.notify_all();
                if (!Answer(connection, m_Handler(request)))
                    break;
            }
        }
        catch (const std::exception& failure)
        {
            std::fprintf(stderr, "CFaultServer: the handler threw: %s\n", failure.what());
        }
        catch (...)
        {
            std::fprintf(stderr, "CFaultServer: the handler threw\n");
        }
        if (connection.Aborted())
            connection.Reset();
        else
            connection.Close();
    }

    /// True when the connection serves a next request.
    bool Answer(CConnection& connection, const HttpReply& reply)
    {
        if (reply.StallBeforeHead && !connection.Pause(INFINITE, true))
            return false;
        if (!connection.Send(reply.Head.data(), reply.Head.size()))
            return false;

        const std::uint64_t length = reply.Body ? reply.BodyLength : 0;
        const std::uint64_t cut = std::min(length, reply.CutAfter);
        if (!SendBody(connection, reply, 0, cut))
            return false;
        switch (reply.End)
        {
        case HttpReply::Ending::KeepAlive:
            return true;
        case HttpReply::Ending::Close:
            return false;
        case HttpReply::Ending::Reset:
            connection.Reset();
            return false;
        case HttpReply::Ending::Stall:
            return connection.Pause(INFINITE, true) && SendBody(connection, reply, cut, length);
        }
        return false;
    }

    bool SendBody(CConnection& connection, const HttpReply& reply, std::uint64_t begin, std::uint64_t end)
    {
        const std::size_t piece = reply.TrickleBytes ? reply.TrickleBytes : PieceBytes;
        std::string buffer(static_cast<std::size_t>(std::min<std::uint64_t>(piece, end - begin)), '\0');
        const auto counter = [this](std::size_t sent) {
            {
                const std::lock_guard lock(m_Mutex);
                m_BodyBytes += sent;
            }
            m_Changed.notify_all();
        };
        while (begin < end)
        {
            const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), end - begin));
            reply.Body(begin, buffer.data(), size);
            if (!connection.Send(buffer.data(), size, counter))
                return false;
            begin += size;
            if (reply.TrickleBytes && begin < end && !connection.Pause(reply.TrickleMs, false))
                return false;
        }
        return true;
    }

    template <class Condition>
    bool WaitUntil(std::uint32_t timeOutMs, Condition condition)
    {
        std::unique_lock lock(m_Mutex);
        return m_Changed.wait_for(lock, std::chrono::milliseconds(timeOutMs), condition);
    }

    Handler m_Handler;
    std::uint16_t m_Port = 0;
    /// Ends the accept thread's wait: a connection is through, or the server ends.
    CKernelHandle m_Wake;
    CKernelHandle m_AcceptEvent;
    CKernelHandle m_Release;
    std::thread m_AcceptThread;

    /// Guards everything below.
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    bool m_Stopping = false;
    /// Bound for the server's whole life; while the server is away it doesn't listen, so that nobody else can
    /// take the port.
    CSocket m_Listener;
    bool m_Away = false;
    unsigned m_ConnectionCount = 0;
    std::list<std::unique_ptr<CConnection>> m_Connections;
    std::vector<HttpRequest> m_Requests;
    std::uint64_t m_BodyBytes = 0;
};

std::optional<std::string> HttpRequest::Header(const std::string& name) const
{
    std::string_view rest = HeaderBlock;
    while (!rest.empty())
    {
        const auto end = std::min(rest.find("\r\n"), rest.size());
        const std::string_view line = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 2, rest.size()));
        const auto colon = line.find(':');
        if (colon == std::string_view::npos || !EqualsNoCase(line.substr(0, colon), name))
            continue;
        const auto begin = line.find_first_not_of(" \t", colon + 1);
        return begin == std::string_view::npos ? std::string() : std::string(line.substr(begin));
    }
    return std::nullopt;
}

CFaultServer::CFaultServer(Handler handler) : m_Impl(std::make_unique<Impl>(std::move(handler))) {}

CFaultServer::~CFaultServer() = default;

std::uint16_t CFaultServer::Port() const
{
    return m_Impl->m_Port;
}

std::string CFaultServer::Host() const
{
    return "127.0.0.1:" + std::to_string(Port());
}

std::string CFaultServer::Url(const std::string& target) const
{
    return "http://" + Host() + target;
}

std::vector<HttpRequest> CFaultServer::Requests() const
{
    const std::lock_guard lock(m_Impl->m_Mutex);
    return m_Impl->m_Requests;
}

bool CFaultServer::WaitForRequests(unsigned count, std::uint32_t timeOutMs) const
{
    return m_Impl->WaitUntil(timeOutMs, [&] { return m_Impl->m_Requests.size() >= count; });
}

std::uint64_t CFaultServer::BodyBytesSent() const
{
    const std::lock_guard lock(m_Impl->m_Mutex);
    return m_Impl->m_BodyBytes;
}

bool CFaultServer::WaitForBodyBytes(std::uint64_t count, std::uint32_t timeOutMs) const
{
    return m_Impl->WaitUntil(timeOutMs, [&] { return m_Impl->m_BodyBytes >= count; });
}

void CFaultServer::Release()
{
    ::SetEvent(m_Impl->m_Release.Get());
}

void CFaultServer::GoAway()
{
    const std::lock_guard lock(m_Impl->m_Mutex);
    if (!m_Impl->m_Away)
    {
        m_Impl->m_Listener.Reset();
        m_Impl->m_Listener = Impl::BindListener(m_Impl->m_Port);
        m_Impl->m_Away = true;
    }
    for (const auto& connection : m_Impl->m_Connections)
        connection->Abort();
}

void CFaultServer::Reopen()
{
    const std::lock_guard lock(m_Impl->m_Mutex);
    if (m_Impl->m_Away)
    {
        m_Impl->Listen();
        m_Impl->m_Away = false;
    }
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
    HttpReply reply;
    reply.Head = HttpHead("200 OK",
                          {"Content-Type: " + contentType, "Content-Length: " + std::to_string(text.size())});
    reply.Body = [text](std::uint64_t position, char* bytes, std::size_t size) {
        std::memcpy(bytes, text.data() + static_cast<std::size_t>(position), size);
    };
    reply.BodyLength = text.size();
    return reply;
}

// Each aligned word of four bytes is a mixture of its own index, different for every word of the first 16
// GiB.
void FillPattern(std::uint64_t position, char* bytes, std::size_t size)
{
    const auto word = [](std::uint64_t index) {
        auto mixed =
            static_cast<std::uint32_t>(index) + static_cast<std::uint32_t>(index >> 32) * 0x9E3779B9U;
        mixed = (mixed ^ (mixed >> 16)) * 0x85EBCA6BU;
        mixed = (mixed ^ (mixed >> 13)) * 0xC2B2AE35U;
        return mixed ^ (mixed >> 16);
    };
    const auto part = [&](std::size_t count) {
        const std::uint32_t value = word(position / 4);
        std::memcpy(bytes, reinterpret_cast<const char*>(&value) + position % 4, count);
        position += count;
        bytes += count;
        size -= count;
    };
    if (position % 4 != 0)
        part(std::min<std::size_t>(4 - static_cast<std::size_t>(position % 4), size));
    while (size >= 4)
        part(4);
    if (size > 0)
        part(size);
}

HttpReply FileReply(const HttpRequest& request, std::uint64_t size, const std::string& lastModified)
{
    HttpReply reply;
    const std::string modified = "Last-Modified: " + lastModified;
    if (request.Header("If-Modified-Since") == lastModified)
    {
        reply.Head = HttpHead("304 Not Modified", {modified});
        return reply;
    }

    std::uint64_t begin = 0;
    std::uint64_t end = size; // one behind the last
    bool partial = request.RangeBegin || request.RangeEnd;
    if (partial && request.Header("If-Range").value_or(lastModified) != lastModified)
        partial = false;
    if (partial && request.RangeBegin)
    {
        begin = *request.RangeBegin;
        if (request.RangeEnd)
            end = std::min(size, *request.RangeEnd + 1);
    }
    else if (partial)
        begin = size - std::min(size, *request.RangeEnd);

    const std::string total = std::to_string(size);
    if (partial && begin >= end)
    {
        reply.Head =
            HttpHead("416 Range Not Satisfiable", {"Content-Range: bytes */" + total, "Content-Length: 0"});
        return reply;
    }
    std::vector<std::string> headers = {"Content-Type: application/octet-stream", "Accept-Ranges: bytes",
                                        modified, "Content-Length: " + std::to_string(end - begin)};
    if (partial)
        headers.push_back("Content-Range: bytes " + std::to_string(begin) + "-" + std::to_string(end - 1) +
                          "/" + total);
    reply.Head = HttpHead(partial ? "206 Partial Content" : "200 OK", headers);
    if (request.Method != "HEAD")
    {
        reply.Body = [begin](std::uint64_t position, char* bytes, std::size_t count) {
            FillPattern(begin + position, bytes, count);
        };
        reply.BodyLength = end - begin;
    }
    return reply;
}
} // namespace Tests
