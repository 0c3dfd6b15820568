#pragma once

#include <winsock2.h>

#include "Tests/Support/WaitFor.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace Tests
{
/// A request as the server read it.
struct HttpRequest
{
    /// A client that begins with a TLS record (which isn't answered) has the method "TLS" and nothing more.
    /// The target is path and query exactly as sent; the block is all header lines, CR LF separated, without
    /// the request line.
    std::string Method, Target, HeaderBlock;
    /// From "Range: bytes=BEGIN-END"; either may be missing.
    std::optional<std::uint64_t> RangeBegin, RangeEnd;
    /// 0 for the server's first request, then 1, ...
    unsigned Index = 0;

    /// Value of a header (name in any case); nothing when it wasn't sent.
    std::optional<std::string> Header(const std::string& name) const;
};

/// What the server does with one request, in the order of the fields.
struct HttpReply
{
    /// Nothing is sent before the server is told to (CFaultServer::Release) or stops.
    bool StallBeforeHead = false;
    /// Exact bytes of the status line and headers, blank line included; may be anything.
    std::string Head = {};
    /// Makes the body: fills size bytes from position. Empty: no body.
    std::function<void(std::uint64_t position, char* bytes, std::size_t size)> Body = {};
    /// Body bytes, and after how many of them End happens; all by default.
    std::uint64_t BodyLength = 0, CutAfter = UINT64_MAX;
    /// Pause after each piece of TrickleBytes (0: as fast as it goes).
    std::size_t TrickleBytes = 0;
    std::uint32_t TrickleMs = 0;

    /// The connection serves a next request; ends cleanly; ends with RST; stays open and silent until Release
    /// (then the rest of the body follows) or the server's end.
    // clang-format off
    enum class Ending { KeepAlive, Close, Reset, Stall };
    // clang-format on
    Ending End = Ending::KeepAlive;
};

/// A scripted HTTP/1.1 server on 127.0.0.1 for faults that no real server makes on demand. The handler is
/// called once per request, on the connection's thread (so it may run on several threads at once). The
/// destructor ends every connection and every thread.
class CFaultServer
{
public:
    using Handler = std::function<HttpReply(const HttpRequest&)>;

    explicit CFaultServer(Handler handler);
    ~CFaultServer() { GoAway(), ::closesocket(m_Listener), ::WSACleanup(); }

    std::uint16_t Port() const { return ntohs(m_Address.sin_port); }
    /// "127.0.0.1:PORT"
    std::string Host() const { return "127.0.0.1:" + std::to_string(Port()); }
    /// "http://127.0.0.1:PORT" + target
    std::string Url(const std::string& target) const { return "http://" + Host() + target; }

    /// Requests so far, in the order of their arrival.
    std::vector<HttpRequest> Requests() const
    {
        const std::lock_guard lock(m_Mutex);
        return m_Requests;
    }
    /// Waits until that many requests have arrived; false after timeOutMs.
    bool WaitForRequests(unsigned count, std::uint32_t timeOutMs = 120000) const
    {
        return WaitFor([&] { return Requests().size() >= count; }, timeOutMs);
    }
    /// Body bytes handed to the network so far, over all connections.
    std::uint64_t BodyBytesSent() const { return m_BodyBytes; }

    /// Lets everything that stalls now or later go on.
    void Release() { m_Released = true; }
    /// Refuses connections and resets the open ones, until Reopen listens on the same port again. Not to be
    /// called by the handler.
    void GoAway();
    void Reopen();

private:
    struct CConnection;

    void Bind();
    sockaddr* Address() { return reinterpret_cast<sockaddr*>(&m_Address); }

    const Handler m_Handler;
    sockaddr_in m_Address = {AF_INET, 0, {{{127, 0, 0, 1}}}, {}};
    SOCKET m_Listener = INVALID_SOCKET;
    std::thread m_AcceptThread;
    std::atomic<bool> m_Released{false}, m_Away{true};
    std::atomic<std::uint64_t> m_BodyBytes{0};
    /// Guards the requests.
    mutable std::mutex m_Mutex;
    std::vector<HttpRequest> m_Requests;
};

/// "HTTP/1.1 <status>\r\n" + each header line + the blank line.
std::string HttpHead(const std::string& status, const std::vector<std::string>& headers);

/// 200 with this text, its Content-Length and, by default, text/xml.
HttpReply TextReply(const std::string& text, const std::string& contentType = "text/xml");

/// Body bytes that depend on their position only, so that any range can be made and checked: a good file of
/// any size. FillPattern fits HttpReply::Body.
void FillPattern(std::uint64_t position, char* bytes, std::size_t size);

/// What a well-behaved file server answers for a pattern file of that size: 200, or 206 with Content-Range
/// for a range inside the file, 416 outside.
HttpReply FileReply(const HttpRequest& request, std::uint64_t size,
                    const std::string& lastModified = "Sat, 14 Nov 2026 05:56:03 GMT");
} // namespace Tests
