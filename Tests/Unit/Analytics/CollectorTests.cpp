// The encoding of an event's document in a request; its members are checked by the collector host of the
// tests.
#include "Ls/Analytics/PercentEncoding.h"
#include "Tests/Support/WideText.h"

TEST_CASE("what is encoded depends on the character and on whether it stands in a JSON string")
{
    // clang-format off
    for (const auto& [text, encoded] : {std::pair
        {L"azAZ09-_.~", L"azAZ09-_.~"}, {L"{\"a\":[1,-2]}", L"%7B%22a%22%3A%5B1%2C-2%5D%7D"},
        {L"&=\"&=\"&=", L"&=%22%26%3D%22&="}, {L"\b\t\n\x01\x7F", L"%08%09%0A%01%7F"},
        {L" +/?#%!'()*;@<>|^`", L"%20%2B%2F%3F%23%25%21%27%28%29%2A%3B%40%3C%3E%7C%5E%60"},
        // Letters and digits of any script stay; of everything else the low 8 bits are told.
        {L"\u00E9\u00DF\u0416\uD55C\u4E2D", L"\u00E9\u00DF\u0416\uD55C\u4E2D"},
        {L"\u2013\u20AC\u00A9", L"%13%AC%A9"},
        // An escaped quote doesn't end the string, an escaped backslash doesn't escape the quote behind it,
        // and a quote that the cutting makes changes nothing.
        {L"\"a\\\"&\"&", L"%22a%5C%22%26%22&"}, {L"\"a\\\\\"&\"&\"", L"%22a%5C%5C%22&%22%26%22"},
        {L"\u2022=\"\u2022=\"", L"%22=%22%22%3D%22"}})
        CHECK(LS::Analytics::PercentEncode(text) == encoded);
    // clang-format on
}
