#include "Ls/System/Net/CookieList.h"
#include "Ls/System/Net/HttpDate.h"
#include "Ls/System/Net/HttpRange.h"
#include "Ls/System/Net/ResponseHeaders.h"

#include <doctest/doctest.h>

#include <string>

using namespace LS::System::Net;

TEST_CASE("an answer's status and length are what the block says, or unknown")
{
    const struct
    {
        std::string Block;
        std::uint32_t Status;
        std::uint64_t Length;
    } cases[] = {
        {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n", 200, 5},
        {"http/1.0 404\r\ncontent-length:  0 \r\n", 404, 0},
        {"HTTP/1.1  206 Partial\r\nCONTENT-LENGTH:6442450944", 206, 6442450944ULL},
        {"Status-Code: 503\r\nContent-Length: 1\r\n", 503, 1},
        {"HTTP/1.1 200 OK\r\nStatus-Code: 503\r\n", 200, UnknownLength},
        {"--blank--", 0, UnknownLength},
        {"", 0, UnknownLength},
        {"\r\n\r\n", 0, UnknownLength},
        {"HTTP/1.1 20 OK\r\n", 0, UnknownLength},
        {"HTTP/1.1 2000 OK\r\n", 0, UnknownLength},
        {"HTTP/1.1 099 OK\r\n", 0, UnknownLength},
        {"HTTP/1.1 -20 OK\r\n", 0, UnknownLength},
        {"HTTP/1.1 200 OK\r\nContent-Length: -5\r\n", 200, UnknownLength},
        {"HTTP/1.1 200 OK\r\nContent-Length: 5x\r\n", 200, UnknownLength},
        {"HTTP/1.1 200 OK\r\nContent-Length: \r\n", 200, UnknownLength},
        {"HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999\r\n", 200, UnknownLength},
        {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\nContent-Length: 5\r\n", 200, 5},
        {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\nContent-Length: 6\r\n", 200, UnknownLength},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nContent-Length: 5\r\n", 200, UnknownLength},
        {"HTTP/1.1 200 OK\r\nX-Content-Length: 5\r\nno colon\r\n: none\r\n", 200, UnknownLength},
    };
    for (const auto& test : cases)
    {
        CAPTURE(test.Block);
        const ResponseHeaders headers = ResponseHeaders::Parse(test.Block, nullptr);
        CHECK(headers.StatusCode == test.Status);
        CHECK(headers.ContentLength == test.Length);
    }
}

TEST_CASE("a Content-Range counts only when its numbers agree")
{
    const struct
    {
        const char* Value;
        const char* Shown;
    } cases[] = {
        {"bytes 0-99/1000", "0 99 1000"},
        {"Bytes 5-5/6", "5 5 6"},
        {"bytes 0-99/*", "0 99 -"},
        {"bytes 0-18446744073709551614/18446744073709551615", "0 18446744073709551614 18446744073709551615"},
        {"bytes */1000", "none"},
        {"items 0-99/1000", "none"},
        {"bytes 99-0/1000", "none"},
        {"bytes 0-1000/1000", "none"},
        {"bytes 0-99", "none"},
        {"bytes -99/1000", "none"},
        {"bytes 0-/1000", "none"},
        {"bytes 0/1000-99", "none"},
        {"bytes 0-99/x", "none"},
        {"bytes 0-99999999999999999999/*", "none"},
        {"", "none"},
    };
    for (const auto& test : cases)
    {
        CAPTURE(std::string(test.Value));
        const auto range = ContentRange::Parse(test.Value);
        CHECK((!range ? "none"
                      : std::to_string(range->First) + " " + std::to_string(range->Last) + " " +
                            (range->Total ? std::to_string(*range->Total) : "-")) == test.Shown);
    }
}

TEST_CASE("cookies are collected from both headers, replaced by name and bounded")
{
    CCookieList cookies;
    cookies.Store("a=1;b = 2 ; c=3=4;novalue;=nameless; ;d=");
    CHECK(cookies.Text() == "a=1; b=2; c=3=4");
    ResponseHeaders::Parse("HTTP/1.1 200 OK\r\nSet-Cookie: b=5; Path=/; a=9\r\nCookie: e=6; c=\r\n",
                           &cookies);
    CHECK(cookies.Text() == "a=1; b=5; e=6");
    cookies.Store("evil=x\r\nHost: other; long=" + std::string(CCookieList::LongestCookie, 'x'));
    CHECK(cookies.Text() == "a=1; b=5; e=6");
    for (unsigned i = 0; i < 1000; ++i)
        cookies.Store("n" + std::to_string(i) + "=1");
    CHECK(cookies.Text().ends_with("; n60=1"));
}

TEST_CASE("ranges and dates are written as servers read them")
{
    const auto text = [](std::int64_t start, std::int64_t end) {
        return HttpRange{"bytes", start, end}.Text();
    };
    CHECK(text(-1, -1) == "");
    CHECK(text(-1, 500) == "bytes=-500");
    CHECK(text(5000000000, -1) == "bytes=5000000000-");
    CHECK(text(0, 0) == "bytes=0-0");
    CHECK(HttpRange{std::string(2000, 'u'), 1, 2}.Text().size() == 999);

    CHECK(HttpDateText({2026, 11, 0, 14, 5, 56, 3, 0}) == "Sat, 14 Nov 2026 05:56:03 UT");
    CHECK(HttpDateText({2024, 2, 3, 29, 23, 59, 59, 999}) == "Thu, 29 Feb 2024 23:59:59 UT");
    CHECK(HttpDateText({2026, 1, 0, 5, 0, 0, 0, 0}) == "Mon, 5 Jan 2026 00:00:00 UT");
    CHECK(HttpDateText({2026, 13, 0, 1, 0, 0, 0, 0}).empty());
    CHECK(HttpDateText({2026, 2, 0, 30, 0, 0, 0, 0}).empty());
}
