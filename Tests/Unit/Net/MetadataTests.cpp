#include "Ls/System/Net/ResponseMetadata.h"
#include "Tests/Support/TempFolder.h"

#include <doctest/doctest.h>

#include <string>

using LS::System::Net::ResponseMetadata;
using LS::System::Net::UnknownLength;

namespace
{
const std::string Date = "Sat, 14 Nov 2026 05:56:03 GMT";
const std::string GoodText = "File-Data-Version: 1\r\nLast-Modified: " + Date +
                             "\r\nContent-Length: 6442450944\r\nUrl: http://h/a b\r\n";

std::string Show(const std::optional<ResponseMetadata>& metadata)
{
    if (!metadata)
        return "none";
    return metadata->LastModified + "|" +
           (metadata->ContentLength == UnknownLength ? "-" : std::to_string(metadata->ContentLength)) + "|" +
           metadata->Url;
}
} // namespace

TEST_CASE("metadata survives its file, byte for byte")
{
    const Tests::CTempFolder folder;
    const std::wstring path = folder.Path(L"\x041F\xD55C_cache.txt");
    CHECK_FALSE(ResponseMetadata::Read(path));
    REQUIRE(ResponseMetadata{Date, 6442450944ULL, "http://h/a b"}.Write(path));
    CHECK(Tests::ReadBytes(path) == GoodText);
    CHECK(Show(ResponseMetadata::Read(path)) == Date + "|6442450944|http://h/a b");
    CHECK_FALSE(ResponseMetadata{Date, 1, "http://h/"}.Write(folder.Path(L"missing\\x")));

    Tests::WriteBytes(path, GoodText + std::string(1024 * 1024, 'x'));
    CHECK_FALSE(ResponseMetadata::Read(path));
}

TEST_CASE("metadata from anyone's hand is taken line by line or not at all")
{
    const std::string version = "File-Data-Version: 1\r\n";
    const std::string url = "Url: http://h/\r\n";
    const struct
    {
        std::string Text;
        std::string Shown;
    } cases[] = {
        {GoodText, Date + "|6442450944|http://h/a b"},
        {version + url, "|-|http://h/"},
        {url + "x\r\n\r\n" + version, "|-|http://h/"},
        {version + "Last-Modified: \r\nContent-Length: -1\r\n" + url, "|-|http://h/"},
        {version + "Content-Length: 18446744073709551615\r\n" + url, "|-|http://h/"},
        {version + "Content-Length: 12 \r\n" + url, "|-|http://h/"},
        {version + "Last-Modified: a\rHost: evil\r\n" + url, "|-|http://h/"},
        {version + "Last-Modified: \xD0\x9F\r\n" + url, "|-|http://h/"},
        {version + " Last-Modified: a\r\nlast-modified: b\r\n" + url, "|-|http://h/"},
        {version + "Last-Modified: " + std::string(3072 - 15, 'a') + "\r\n" + url,
         std::string(3072 - 15, 'a') + "|-|http://h/"},
        {version + "Last-Modified: " + std::string(3072 - 14, 'a') + "\r\n" + url, "|-|http://h/"},
        {version + std::string(3072, 'x') + "Last-Modified: a\r\n" + url, "|-|http://h/"},
        {"File-Data-Version: 2\r\n" + url, "none"},
        {"File-Data-Version: 11\r\n" + url, "none"},
        {url, "none"},
        {version, "none"},
        {version + "Url: \r\n", "none"},
        {version + "Url: http://h/", "none"}, // torn
        {"", "none"},
    };
    for (const auto& test : cases)
    {
        CAPTURE(test.Text);
        CHECK(Show(ResponseMetadata::Parse(test.Text)) == test.Shown);
    }
}
