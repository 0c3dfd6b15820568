// What a request makes of everything that a server does. Not shown here, because Wine 8 doesn't have it:
// a chunked body that breaks off (it reads as a good end; no length could tell), and the error that a reset
// in mid-body gives (the missing bytes tell instead).
#include "Ls/System/Win32/UniqueHandle.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Unit/Net/HttpTestRequest.h"

#include <doctest/doctest.h>

#include <string>
#include <vector>

using namespace Tests;

namespace
{
constexpr std::uint64_t BodySize = 65536;
/// For servers that fall silent: long enough for a busy machine's good answers.
constexpr std::uint32_t ShortTimeOutMs = 2000;

/// A body of the pattern behind a head of one's own.
HttpReply Reply(const std::string& status, const std::vector<std::string>& headers, std::uint64_t bodyLength,
                HttpReply::Ending end = HttpReply::Ending::Close)
{
    HttpReply reply;
    reply.Head = HttpHead(status, headers);
    reply.Body = FillPattern;
    reply.BodyLength = bodyLength;
    reply.End = end;
    return reply;
}

HttpReply Cut(HttpReply reply, std::uint64_t after, HttpReply::Ending end)
{
    reply.CutAfter = after;
    reply.End = end;
    return reply;
}

HttpReply Raw(const std::string& bytes)
{
    HttpReply reply;
    reply.Head = bytes;
    reply.End = HttpReply::Ending::Close;
    return reply;
}

HttpReply SilentReply()
{
    HttpReply reply;
    reply.StallBeforeHead = true;
    return reply;
}
} // namespace

TEST_CASE("every fault of a server ends the transfer with its error")
{
    const std::string length = "Content-Length: 65536";
    const HttpReply good = Reply("200 OK", {length}, BodySize, HttpReply::Ending::KeepAlive);
    const struct
    {
        const char* Name;
        HttpReply Reply;
        HttpError Error;
        std::uint32_t Status;
        bool Ok;
        std::uint64_t Stored; ///< bytes in the response stream
        std::uint64_t Length;
    } cases[] = {
        {"all well", good, HttpError::None, 200, true, BodySize, BodySize},
        {"empty body", Reply("200 OK", {"Content-Length: 0"}, 0), HttpError::None, 200, true, 0, 0},
        {"no content", Reply("204 No Content", {}, 0), HttpError::None, 204, true, 0, UnknownLength},
        {"no length", Reply("200 OK", {}, BodySize), HttpError::None, 200, true, BodySize, UnknownLength},
        {"chunked", Raw("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n"),
         HttpError::None, 200, true, 3, UnknownLength},
        {"more than its length",
         Raw("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n" + std::string(1000, 'x')), HttpError::None, 200,
         true, 100, 100},
        {"length is no number", Reply("200 OK", {"Content-Length: abc"}, 100), HttpError::None, 200, true,
         100, UnknownLength},
        {"length is negative", Reply("200 OK", {"Content-Length: -5"}, 100), HttpError::None, 200, true, 100,
         UnknownLength},
        {"length beyond any number", Reply("200 OK", {"Content-Length: 99999999999999999999"}, 100),
         HttpError::None, 200, true, 100, UnknownLength},
        {"length beyond what comes", Reply("200 OK", {"Content-Length: 18446744073709551614"}, 100),
         HttpError::Read, 200, false, 100, 18446744073709551614ULL},
        {"closes in mid-body", Cut(good, 40000, HttpReply::Ending::Close), HttpError::Read, 200, false, 40000,
         BodySize},
        {"resets in mid-body", Cut(good, 16384, HttpReply::Ending::Reset), HttpError::Read, 200, false, 16384,
         BodySize},
        {"silent in mid-body", Cut(good, 32768, HttpReply::Ending::Stall), HttpError::Read, 200, false, 32768,
         BodySize},
        {"silent before its answer", SilentReply(), HttpError::Send, 0, false, 0, UnknownLength},
        {"closes without an answer", Raw(""), HttpError::BadAnswer, 0, false, 0, UnknownLength},
        {"not found", Reply("404 Not Found", {length}, BodySize), HttpError::None, 404, false, 0, BodySize},
        {"bad request", Reply("400 Bad Request", {length}, BodySize), HttpError::None, 400, false, 0,
         BodySize},
        {"server error", Reply("500 Internal", {}, BodySize), HttpError::None, 500, false, 0, UnknownLength},
        {"version", Reply("505 Version", {length}, BodySize), HttpError::None, 505, false, 0, BodySize},
        {"not modified, unasked", Reply("304 Not Modified", {}, 0), HttpError::None, 304, false, 0,
         UnknownLength},
        {"choices", Reply("300 Multiple Choices", {length}, BodySize), HttpError::None, 300, false, 0,
         BodySize},
        {"a part, unasked", Reply("206 Partial", {length, "Content-Range: bytes 0-65535/70000"}, BodySize),
         HttpError::BadAnswer, 206, false, 0, BodySize},
        {"redirect to nowhere", Reply("302 Found", {"Content-Length: 0"}, 0), HttpError::BadAnswer, 0, false,
         0, UnknownLength},
        {"redirect to a file", Reply("302 Found", {"Location: file:///c:/x"}, 0), HttpError::BadAnswer, 0,
         false, 0, UnknownLength},
        {"redirect to itself", Reply("302 Found", {"Location: /loop", "Content-Length: 0"}, 0),
         HttpError::BadAnswer, 0, false, 0, UnknownLength},
        {"body without end", Reply("200 OK", {}, UINT64_MAX), HttpError::Write, 200, false, 16 * 1024 * 1024,
         UnknownLength},
        {"a long line", Raw("HTTP/1.1 200 OK\r\nX: " + std::string(1024 * 1024, 'x') + "\r\n\r\n"),
         HttpError::None, 200, true, 0, UnknownLength},
        {"two thousand lines", Raw([] {
             std::string head = "HTTP/1.1 200 OK\r\n";
             for (int i = 0; i < 2000; ++i)
                 head += "X-" + std::to_string(i) + ": y\r\n";
             return head + "Content-Length: 3\r\n\r\nabc";
         }()),
         HttpError::None, 200, true, 3, 3},
    };
    for (const auto& test : cases)
    {
        CAPTURE(std::string(test.Name));
        CFaultServer server([&](const HttpRequest&) { return test.Reply; });
        const auto request = Fetch(server.Url("/x"), {}, ShortTimeOutMs);
        REQUIRE(request->PercentDone() == 100.0F);
        CHECK(ErrorOf(request) == test.Error);
        CHECK(request->StatusCode() == test.Status);
        CHECK(request->DownloadIsOk() == test.Ok);
        CHECK(request->ResponseBody().size() == test.Stored);
        CHECK(request->ContentLength() == test.Length);
        CHECK(request->ResponseLength() == test.Length);
        if (test.Reply.Body)
            CHECK((request->ResponseBody() == Pattern(0, static_cast<std::size_t>(test.Stored))));
        CHECK(server.Requests().size() == (std::string(test.Name) == "redirect to itself" ? 11U : 1U));
    }

    CFaultServer away([](const HttpRequest&) { return Raw(""); });
    away.GoAway();
    CHECK(ErrorOf(Fetch(away.Url("/"))) == HttpError::Connect);
    CHECK_FALSE(CHttpWebRequest::CreateHttp("gopher://host/", 0, 0, 0, 0));
}

TEST_CASE("nothing is known before the end, and the percentage follows the length")
{
    CFaultServer server([](const HttpRequest&) {
        return Cut(Reply("200 OK", {"Content-Length: 65536"}, BodySize), BodySize / 2,
                   HttpReply::Ending::Stall);
    });
    const auto request = StartRequest(server.Url("/"));
    CHECK(WaitFor([&] { return request->PercentDone() == 50.0F; }));
    CHECK(request->StatusCode() == 0);
    CHECK(request->ResponseBody().empty());
    CHECK_FALSE(request->DownloadIsOk());
    server.Release();
    REQUIRE(WaitForEnd(request));
    CHECK(request->DownloadIsOk());
    CHECK((request->ResponseBody() == Pattern(0, BodySize)));
}

TEST_CASE("redirects are followed, with cookies for the first host only")
{
    CFaultServer other([](const HttpRequest&) { return TextReply("other"); });
    CFaultServer server([&](const HttpRequest& request) {
        if (request.Target == "/dir/1")
            return Reply("302 Found", {"Location: 2 b?c", "Set-Cookie: s=1; Path=/", "Content-Length: 0"}, 0);
        if (request.Target == "/dir/2%20b?c")
            return Reply("308 Permanent Redirect",
                         {"Location: http://localhost:" + std::to_string(other.Port()) + "/end"}, 0);
        return Raw("");
    });
    const auto request = Fetch(server.Url("/dir/1"), [](CHttpWebRequest& setup) {
        setup.SetCookiesEnabled(true);
        setup.SetCookies("a=0");
    });
    REQUIRE(server.Requests().size() == 2);
    CHECK(server.Requests()[0].Header("Cookie") == "a=0");
    CHECK(server.Requests()[1].Header("Cookie") == "a=0; s=1");
    REQUIRE(other.Requests().size() == 1);
    CHECK(other.Requests()[0].Target == "/end");
    CHECK_FALSE(other.Requests()[0].Header("Cookie"));
    CHECK(request->ResponseBody() == "other");
    CHECK(request->Cookies() == "a=0; s=1");
}

TEST_CASE("a file takes the body whole, and keeps what it had when the server has none")
{
    constexpr std::uint64_t size = 8 * 1024 * 1024 + 5;
    const CTempFolder folder;
    const std::wstring path = folder.Path(L"Patch \x041F\x0440\x043E \xD55C.exe");
    CFaultServer server([](const HttpRequest& request) {
        HttpReply reply = FileReply(request, size);
        if (request.Target == "/cut")
            return Cut(reply, 100000, HttpReply::Ending::Close);
        return request.Target == "/none" ? Reply("404 Not Found", {}, 5) : reply;
    });
    const RequestSetup toFile = [&](CHttpWebRequest& setup) { setup.SetDestination(path); };
    WriteBytes(path, "old");
    CHECK_FALSE(Fetch(server.Url("/none"), toFile)->DownloadIsOk());
    CHECK(ReadBytes(path) == "old");

    const auto request = Fetch(server.Url("/file"), toFile);
    CHECK(request->DownloadIsOk());
    CHECK(request->ContentLength() == size);
    CHECK(request->ResponseBody().empty());
    CHECK((ReadBytes(path) == Pattern(0, size)));

    CHECK(ErrorOf(Fetch(server.Url("/cut"), toFile)) == HttpError::Read);
    CHECK(ReadBytes(path).size() == 100000);
}

TEST_CASE("a body that can't be written ends the transfer, and a full disk is told apart")
{
    const CTempFolder folder;
    CFaultServer server([](const HttpRequest& request) { return FileReply(request, BodySize); });
    const auto errorFor = [&](const std::wstring& path) {
        const auto request =
            Fetch(server.Url("/"), [&](CHttpWebRequest& setup) { setup.SetDestination(path); });
        CHECK_FALSE(request->DownloadIsOk());
        CHECK(request->StatusCode() == 200);
        return ErrorOf(request);
    };
    CHECK(errorFor(folder.Path()) == HttpError::Write);
    CHECK(errorFor(folder.Path(L"missing\\file")) == HttpError::Write);
    const std::wstring full = L"\\\\?\\unix\\dev\\full"; // where Wine shows the device that is always full
    const LS::System::Win32::CFileHandle device(::CreateFileW(
        full.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
    if (device)
        CHECK(errorFor(full) == HttpError::DiskFull);
    else
        MESSAGE("this system has no disk that is always full");
}
