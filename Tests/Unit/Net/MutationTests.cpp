// What comes from outside, changed at random a hundred thousand times each: no crash, and what is always true
// of the results.
#include "Ls/System/Net/CookieList.h"
#include "Ls/System/Net/HeaderText.h"
#include "Ls/System/Net/ResponseHeaders.h"
#include "Ls/System/Net/ResponseMetadata.h"
#include "Ls/System/Net/Url.h"
#include "Tests/Support/Mutation.h"

#include <doctest/doctest.h>

using namespace LS::System::Net;

TEST_CASE("URLs, headers, cookies and metadata")
{
    CCookieList cookies;
    const auto isPlain = [](const std::string& text) {
        return std::none_of(text.begin(), text.end(), IsControl);
    };
    // clang-format off
    const auto isGood = [&](const std::optional<Url>& url) {
        return !url || (!url->Host.empty() && url->Host.size() <= 255 && url->Port != 0 &&
                        isPlain(url->Host + url->PathAndQuery) &&
                        url->PathAndQuery[0] == '/' && url->PathAndQuery.find('#') == std::string::npos &&
                        IsHeaderText(url->WirePath()) && url->WirePath().find(' ') == std::string::npos);
    };
    CHECK(Tests::SurvivesMutations(
        "https://host:8443/a b/c?d=e|f:g#h",
        {"http://", "://", ":", "//", "/", "?", "#", "[", "]", "@", "%", "\r\n", "65536"},
        [&](const std::string& text, bool& good) {
            good = Url::Parse(text).has_value();
            return isGood(Url::Parse(text)) && isGood(Url::Parse("http://host/dir/file?q")->Resolve(text));
        }));
    CHECK(Tests::SurvivesMutations(
        "HTTP/1.1 206 Partial Content\r\nContent-Length: 100\r\nContent-Range: bytes 0-99/1000\r\n"
        "Last-Modified: Sat, 14 Nov 2026 05:56:03 GMT\r\nSet-Cookie: a=1; Path=/\r\nCookie: b=2; c=3\r\n\r\n",
        {"\r\n", "\r", ": ", ":", "-", "/", "*", ";", "=", "bytes ", "18446744073709551615", "Cookie: ",
         "Status-Code: 1", "Content-Length: "},
        [&](const std::string& text, bool& good) {
            const ResponseHeaders headers = ResponseHeaders::Parse(text, &cookies);
            const std::string all = cookies.Text();
            good = headers.StatusCode != 0;
            return (!good || (headers.StatusCode >= 100 && headers.StatusCode <= 999)) && isPlain(all) &&
                   (headers.LastModified.empty() || IsHeaderText(headers.LastModified)) &&
                   (!headers.Range || headers.Range->First <= headers.Range->Last) &&
                   std::count(all.begin(), all.end(), ';') < 64;
        }));
    CHECK(Tests::SurvivesMutations(
        ResponseMetadata{"Sat, 14 Nov 2026 05:56:03 GMT", 1048576, "http://host/file"}.Text(),
        {"\r\n", "\n", "File-Data-Version: 1", "Last-Modified: ", "Content-Length: ", "Url: ", "-",
         std::string(4000, 'x')},
        [](const std::string& text, bool& good) {
            const auto metadata = ResponseMetadata::Parse(text);
            good = metadata.has_value(); // what was understood is written and understood alike
            return !good || (ResponseMetadata::Parse(metadata->Text()).value().Text() == metadata->Text() &&
                             (!metadata->HaveDate() || IsHeaderText(metadata->LastModified)));
        }));
    // clang-format on
}
