// A cached download over several requests: what is asked for, and what lies on the disk afterwards.
#include "Tests/Support/TempFolder.h"
#include "Tests/Unit/Net/HttpTestRequest.h"

#include <doctest/doctest.h>

#include <string>

using namespace Tests;

namespace
{
const std::string FirstDate = "Sat, 14 Nov 2026 05:56:03 GMT";
const std::string SecondDate = "Sun, 15 Nov 2026 05:56:03 GMT";
constexpr std::uint64_t FirstSize = 300000;
constexpr std::uint64_t SecondSize = 200000;

/// A server whose file and behaviour change between the requests, and the files on this side.
struct Download
{
    CTempFolder Folder;
    std::wstring Path = Folder.Path(L"file.bin");
    std::wstring Part = Path + L"_cache";
    std::wstring Metadata = Path + L"_cache.txt";

    std::uint64_t Size = FirstSize;
    std::string Date = FirstDate;
    std::uint64_t CutAfter = UINT64_MAX;
    /// Sent instead of the head of a 206.
    std::string PartialHead;
    CFaultServer Server{[this](const HttpRequest& request) {
        HttpReply reply = FileReply(request, Size, Date);
        if (CutAfter != UINT64_MAX)
        {
            reply.CutAfter = CutAfter;
            reply.End = HttpReply::Ending::Close;
        }
        if (!PartialHead.empty() && reply.Head.starts_with("HTTP/1.1 206"))
            reply.Head = PartialHead;
        return reply;
    }};

    CRefPtr<CHttpWebRequest> Run()
    {
        return Fetch(Server.Url("/f"), [this](CHttpWebRequest& setup) {
            setup.SetDestination(Path);
            setup.SetCached(true);
        });
    }
    /// "If-Modified-Since|If-Range|Range" of the latest request.
    std::string Asked() const
    {
        const HttpRequest request = Server.Requests().back();
        return request.Header("If-Modified-Since").value_or("") + "|" +
               request.Header("If-Range").value_or("") + "|" + request.Header("Range").value_or("");
    }
    std::string ExpectedMetadata() const
    {
        return "File-Data-Version: 1\r\nLast-Modified: " + Date +
               "\r\nContent-Length: " + std::to_string(Size) + "\r\nUrl: " + Server.Url("/f") + "\r\n";
    }
    void CheckWhole() const
    {
        CHECK((ReadBytes(Path) == Pattern(0, static_cast<std::size_t>(Size))));
        CHECK(ReadBytes(Metadata) == ExpectedMetadata());
        CHECK(::GetFileAttributesW(Part.c_str()) == INVALID_FILE_ATTRIBUTES);
    }
    void CheckNothingKnown() const
    {
        CHECK(::GetFileAttributesW(Metadata.c_str()) == INVALID_FILE_ATTRIBUTES);
        CHECK(::GetFileAttributesW(Path.c_str()) == INVALID_FILE_ATTRIBUTES);
    }
    void BreakOff(std::uint64_t after)
    {
        CutAfter = after;
        CHECK(ErrorOf(Run()) == HttpError::Read);
        CutAfter = UINT64_MAX;
    }
};
} // namespace

TEST_CASE("a whole file is only asked for again when it has changed")
{
    Download download;
    CHECK(download.Run()->DownloadIsOk());
    CHECK(download.Asked() == "||");
    download.CheckWhole();

    auto request = download.Run();
    CHECK(download.Asked() == FirstDate + "||");
    CHECK(request->StatusCode() == 304);
    CHECK(request->DownloadIsOk());
    download.CheckWhole();

    download.Size = SecondSize;
    download.Date = SecondDate;
    request = download.Run();
    CHECK(request->StatusCode() == 200);
    CHECK(request->DownloadIsOk());
    download.CheckWhole();

    WriteBytes(download.Path, "shorter than the metadata says");
    CHECK(download.Run()->StatusCode() == 200);
    CHECK(download.Asked() == "||");
    download.CheckWhole();
}

TEST_CASE("what broke off is continued")
{
    Download download;
    download.BreakOff(100000);
    CHECK(ReadBytes(download.Part) == Pattern(0, 100000));
    CHECK(ReadBytes(download.Metadata) == download.ExpectedMetadata());
    CHECK(::GetFileAttributesW(download.Path.c_str()) == INVALID_FILE_ATTRIBUTES);

    download.BreakOff(50000); // and again
    CHECK(download.Asked() == "|" + FirstDate + "|bytes=100000-");
    CHECK(ReadBytes(download.Part) == Pattern(0, 150000));

    const auto request = download.Run();
    CHECK(download.Asked() == "|" + FirstDate + "|bytes=150000-");
    CHECK(request->StatusCode() == 206);
    CHECK(request->DownloadIsOk());
    download.CheckWhole();
}

TEST_CASE("what broke off and has changed since is replaced")
{
    Download download;
    download.BreakOff(150000);
    download.Size = SecondSize;
    download.Date = SecondDate;
    const auto request = download.Run();
    CHECK(download.Asked() == "|" + FirstDate + "|bytes=150000-");
    CHECK(request->StatusCode() == 200);
    CHECK(request->Range().Start == -1);
    CHECK(request->DownloadIsOk());
    download.CheckWhole();
}

TEST_CASE("an answer that doesn't fit the part is refused and the part forgotten")
{
    const struct
    {
        const char* Status;
        const char* ContentRange;
        HttpError Error;
    } cases[] = {
        {"206 Partial Content", "bytes 99999-299999/300000", HttpError::BadAnswer},
        {"206 Partial Content", "bytes 100000-299999/300001", HttpError::BadAnswer},
        {"206 Partial Content", "none", HttpError::BadAnswer},
        {"206 Partial Content", "bytes 100000-299999/300000\r\nLast-Modified: later", HttpError::BadAnswer},
        {"416 Range Not Satisfiable", "bytes */50", HttpError::None},
    };
    for (const auto& test : cases)
    {
        CAPTURE(std::string(test.ContentRange));
        Download download;
        download.BreakOff(100000);
        download.PartialHead = HttpHead(
            test.Status, {"Content-Length: 200000", std::string("Content-Range: ") + test.ContentRange});
        const auto request = download.Run();
        CHECK(ErrorOf(request) == test.Error);
        CHECK_FALSE(request->DownloadIsOk());
        download.CheckNothingKnown();
        download.PartialHead.clear();
        CHECK(download.Run()->DownloadIsOk());
        CHECK(download.Asked() == "||");
        download.CheckWhole();
    }
}

TEST_CASE("without a date or with foreign metadata everything is asked for")
{
    Download download;
    download.Date = "\x01";
    download.BreakOff(100000);
    CHECK(::GetFileAttributesW(download.Part.c_str()) == INVALID_FILE_ATTRIBUTES);
    download.CheckNothingKnown();

    download.Date = FirstDate;
    const std::string good = download.ExpectedMetadata();
    std::string otherUrl = good;
    otherUrl.insert(otherUrl.size() - 2, "x");
    std::string otherVersion = good;
    otherVersion.replace(otherVersion.find('1'), 1, "2");
    std::string tooShort = good;
    tooShort.replace(tooShort.find("300000"), 6, "100000"); // the part would be longer than the whole
    for (const std::string& metadata : {otherUrl, otherVersion, tooShort, std::string("x"), std::string()})
    {
        CAPTURE(metadata);
        WriteBytes(download.Part, std::string(100000, 'x'));
        WriteBytes(download.Metadata, metadata);
        CHECK(download.Run()->DownloadIsOk());
        CHECK(download.Asked() == "||");
        download.CheckWhole();
    }
}
