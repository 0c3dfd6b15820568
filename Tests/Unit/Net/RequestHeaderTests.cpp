// What a request puts on the wire.
#include "Tests/Unit/Net/HttpTestRequest.h"

#include <doctest/doctest.h>

#include <string>
#include <vector>

using namespace Tests;

TEST_CASE("the target arrives as it was written, with blanks and letters of any script encoded")
{
    CFaultServer server([](const HttpRequest&) { return TextReply(""); });
    const struct
    {
        const char* Written;
        const char* Arrives;
    } cases[] = {
        {"/Update.asmx/GetUpdate2?parameters=AppName:Play Deck|Version:2.1.0.7|throttle:0",
         "/Update.asmx/GetUpdate2?parameters=AppName:Play%20Deck|Version:2.1.0.7|throttle:0"},
        {"/?p=AppName:\xD0\x98\xD0\xB3\xD1\x80\xD0\xB0|Version:0",
         "/?p=AppName:%D0%98%D0%B3%D1%80%D0%B0|Version:0"},
        {"/\xED\x95\x9C\xEA\xB8\x80\xF0\x9F\x8E\xAE", "/%ED%95%9C%EA%B8%80%F0%9F%8E%AE"},
        {"/\xFF\x80", "/%FF%80"},
        {"/a%20b?c=%d0+d&e=\"<>^`{}~'()*", "/a%20b?c=%d0+d&e=\"<>^`{}~'()*"},
        {"?q", "/?q"},
    };
    for (const auto& test : cases)
    {
        Fetch(server.Url(test.Written));
        CHECK(server.Requests().back().Target == test.Arrives);
        CHECK(server.Requests().back().Method == "GET");
    }
}

TEST_CASE("headers are the ones that were asked for, in order, and no others")
{
    CFaultServer server([](const HttpRequest& request) { return FileReply(request, 1000, "D"); });
    const std::string host = "Host: " + server.Host() + "\r\nUser-Agent: ";
    const std::string agent = "Mozilla/4.0 (compatible; MSIE 5.0; CDA 6.0)";
    const struct
    {
        RequestSetup Setup;
        std::string Headers; ///< the whole block
    } cases[] = {
        {{}, "Accept: */*\r\n" + host + agent},
        {[](CHttpWebRequest& setup) {
             setup.SetUserAgent("Agent 1");
             setup.SetContentType("text/html");
             setup.SetCookies("a=1");
         },
         "Accept: text/html, */*\r\n" + host + "Agent 1"},
        {[](CHttpWebRequest& setup) {
             setup.SetCookiesEnabled(true);
             setup.SetCookies("a=1; b=2");
             setup.SetConditionalDate("Sat, 14 Nov 2026 05:56:03 GMT");
             setup.SetSendIfModifiedSince(true);
             setup.SetSendIfRange(true);
             setup.SetRange({"bytes", 5, 9});
         },
         "Accept: */*\r\nCookie: a=1; b=2\r\nIf-Modified-Since: Sat, 14 Nov 2026 05:56:03 GMT\r\n"
         "If-Range: Sat, 14 Nov 2026 05:56:03 GMT\r\nRange: bytes=5-9\r\n" +
             host + agent},
        {[](CHttpWebRequest& setup) {
             setup.SetConditionalDate(SYSTEMTIME{2026, 11, 0, 14, 5, 56, 3, 0});
             setup.SetSendIfRange(true);
             setup.SetRange({"bytes", 5, -1});
         },
         "Accept: */*\r\nIf-Range: Sat, 14 Nov 2026 05:56:03 UT\r\nRange: bytes=5-\r\n" + host + agent},
        {[](CHttpWebRequest& setup) {
             setup.SetConditionalDate("a\r\nEvil: b");
             setup.SetSendIfModifiedSince(true);
             setup.SetRange({"bytes", -1, 7});
         },
         "Accept: */*\r\nRange: bytes=-7\r\n" + host + agent},
    };
    for (const auto& test : cases)
    {
        const auto request = Fetch(server.Url("/"), test.Setup);
        CHECK(request->StatusCode() != 0);
        CHECK(server.Requests().back().HeaderBlock == test.Headers);
        CHECK(request->RequestHeaders().find(test.Headers) != std::string::npos);
    }
    CHECK(server.Requests().size() == std::size(cases));
}

TEST_CASE("ranges: what comes back is the part, the whole or refused")
{
    constexpr std::uint64_t size = 1000;
    const std::string date = "Sat, 14 Nov 2026 05:56:03 GMT";
    CFaultServer server([&](const HttpRequest& request) {
        HttpReply reply = FileReply(request, size, date);
        if (request.Target == "/elsewhere")
            reply.Head =
                HttpHead("206 Partial Content", {"Content-Length: 5", "Content-Range: bytes 0-4/1000"});
        return reply;
    });
    const struct
    {
        const char* Target;
        HttpRange Range;
        const char* IfRange;
        std::uint32_t Status;
        HttpError Error;
        std::uint64_t Begin;
        std::size_t Size;
        std::int64_t StartAfterwards;
    } cases[] = {
        {"/", {"bytes", 5, 9}, "", 206, HttpError::None, 5, 5, 5},
        {"/", {"bytes", 990, -1}, "", 206, HttpError::None, 990, 10, 990},
        {"/", {"bytes", -1, 10}, "", 206, HttpError::None, 990, 10, -1},
        {"/", {"bytes", 1000, -1}, "", 416, HttpError::None, 0, 0, 1000},
        {"/", {"bytes", 5, 9}, date.c_str(), 206, HttpError::None, 5, 5, 5},
        {"/", {"bytes", 5, 9}, "Sat, 14 Nov 2026 05:56:04 GMT", 200, HttpError::None, 0, 1000, -1},
        {"/", {"lines", 5, 9}, "", 200, HttpError::None, 0, 1000, 5},
        {"/elsewhere", {"bytes", 5, 9}, "", 206, HttpError::BadAnswer, 0, 0, 5},
    };
    for (const auto& test : cases)
    {
        CAPTURE(test.Range.Text());
        const auto request = Fetch(server.Url(test.Target), [&](CHttpWebRequest& setup) {
            setup.SetRange(test.Range);
            setup.SetConditionalDate(test.IfRange);
            setup.SetSendIfRange(true);
        });
        CHECK(request->StatusCode() == test.Status);
        CHECK(ErrorOf(request) == test.Error);
        CHECK(request->Range().Start == test.StartAfterwards);
        CHECK((request->Range().End == -1) ==
              (test.StartAfterwards == -1 ? test.Status == 200 : test.Range.End == -1));
        CHECK((request->ResponseBody() == Pattern(test.Begin, test.Size)));
        CHECK(request->DownloadIsOk() == (test.Size != 0));
    }
}

TEST_CASE("cookies go round, and only when they are enabled")
{
    CFaultServer server([](const HttpRequest&) {
        HttpReply reply = TextReply("");
        reply.Head =
            HttpHead("200 OK", {"Content-Length: 0", "Cookie: a=1; b=2", "Set-Cookie: b=3; HttpOnly"});
        return reply;
    });
    const auto enable = [](CHttpWebRequest& setup) { setup.SetCookiesEnabled(true); };
    const std::string cookies = Fetch(server.Url("/"), enable)->Cookies();
    CHECK(cookies == "a=1; b=3");
    Fetch(server.Url("/"), [&](CHttpWebRequest& setup) {
        enable(setup);
        setup.SetCookies(cookies);
    });
    CHECK(Fetch(server.Url("/"))->Cookies().empty());
    const auto requests = server.Requests();
    REQUIRE(requests.size() == 3);
    CHECK_FALSE(requests[0].Header("Cookie"));
    CHECK(requests[1].Header("Cookie") == "a=1; b=3");
    CHECK_FALSE(requests[2].Header("Cookie")); // the system hasn't kept them either
}
