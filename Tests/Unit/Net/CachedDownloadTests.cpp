// A cached download over several requests: what is asked for, and what lies on the disk afterwards.
#include "Tests/Unit/Net/HttpTestRequest.h"

using namespace Tests;

namespace
{
const std::string FirstDate = "Sat, 14 Nov 2026 05:56:03 GMT", SecondDate = "Sun, 15 Nov 2026 05:56:03 GMT";

/// A server whose file and behaviour change between the requests, and the files on this side.
struct Download
{
    CTempFolder Folder;
    const std::wstring Path = Folder.Path(L"file.bin"), Part = Path + L"_cache",
                       Metadata = Path + L"_cache.txt";
    std::uint64_t Size = 300000;
    std::string Date = FirstDate;
    std::uint64_t CutAfter = UINT64_MAX;
    /// Sent instead of the head of a 206.
    std::string PartialHead;
    CFaultServer Server{[this](const HttpRequest& request) {
        HttpReply reply = FileReply(request, Size, Date);
        reply.CutAfter = CutAfter;
        reply.End = CutAfter != UINT64_MAX ? HttpReply::Ending::Close : reply.End;
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
    std::string ExpectedMetadata() const
    {
        return "File-Data-Version: 1\r\nLast-Modified: " + Date +
               "\r\nContent-Length: " + std::to_string(Size) + "\r\nUrl: " + Server.Url("/f") + "\r\n";
    }
    /// Runs, with "If-Modified-Since|If-Range|Range" in the request; all is well then.
    void CheckWhole(const std::string& asked, std::uint32_t status)
    {
        const auto request = Run();
        CHECK((request->DownloadIsOk() && request->StatusCode() == status));
        const HttpRequest sent = Server.Requests().back();
        CHECK(sent.Header("If-Modified-Since").value_or("") + "|" + sent.Header("If-Range").value_or("") +
                  "|" + sent.Header("Range").value_or("") ==
              asked);
        CHECK((ReadBytes(Path) == Pattern(0, Size)));
        CHECK(ReadBytes(Metadata) == ExpectedMetadata());
        CHECK_FALSE(std::filesystem::exists(Part));
    }
    bool NothingIsKnown() const
    {
        return !std::filesystem::exists(Metadata) && !std::filesystem::exists(Path);
    }
    void BreakOff(std::uint64_t after)
    {
        CutAfter = after;
        CHECK(ErrorOf(Run()) == HttpError::Read);
        CutAfter = UINT64_MAX;
    }
    void Change()
    {
        Size = 200000;
        Date = SecondDate;
    }
};
} // namespace

TEST_CASE("a whole file is only asked for again when it has changed")
{
    Download download;
    download.CheckWhole("||", 200);
    download.CheckWhole(FirstDate + "||", 304);
    download.Change();
    download.CheckWhole(FirstDate + "||", 200);
    WriteBytes(download.Path, "shorter than the metadata says");
    download.CheckWhole("||", 200);
}

TEST_CASE("what broke off is continued, and replaced when it has changed since")
{
    for (const bool changed : {false, true})
    {
        Download download;
        download.BreakOff(100000);
        download.BreakOff(50000); // and again
        CHECK((ReadBytes(download.Part) == Pattern(0, 150000)));
        CHECK(ReadBytes(download.Metadata) == download.ExpectedMetadata());
        CHECK_FALSE(std::filesystem::exists(download.Path));
        if (changed)
            download.Change();
        download.CheckWhole("|" + FirstDate + "|bytes=150000-", changed ? 200 : 206);
    }
}

TEST_CASE("an answer that doesn't fit the part is refused and the part forgotten")
{
    const std::string partial = "206 Partial Content\r\nContent-Range: ";
    for (const std::string& head :
         {partial + "bytes 99999-299999/300000", partial + "bytes 100000-299999/300001", partial + "none",
          partial + "bytes 100000-299999/300000\r\nLast-Modified: later",
          std::string("416 Range Not Satisfiable\r\nContent-Range: bytes */50")})
    {
        CAPTURE(head);
        Download download;
        download.BreakOff(100000);
        download.PartialHead = HttpHead(head, {"Content-Length: 200000"});
        const auto request = download.Run();
        CHECK(ErrorOf(request) == (head[0] == '2' ? HttpError::BadAnswer : HttpError::None));
        CHECK((!request->DownloadIsOk() && download.NothingIsKnown()));
        download.CheckWhole("||", 200);
    }
}

TEST_CASE("without a date or with foreign metadata everything is asked for")
{
    Download download;
    download.Date = "\x01";
    download.BreakOff(100000);
    CHECK((download.NothingIsKnown() && !std::filesystem::exists(download.Part)));
    download.Date = FirstDate;
    const std::string good = download.ExpectedMetadata();
    std::string otherUrl = good, otherVersion = good, tooShort = good;
    otherUrl.insert(good.size() - 2, "x");
    otherVersion.replace(good.find('1'), 1, "2");
    tooShort.replace(good.find("300000"), 6, "100000"); // the part would be longer than the whole
    for (const std::string& metadata : {otherUrl, otherVersion, tooShort, std::string()})
    {
        WriteBytes(download.Part, std::string(100000, 'x'));
        WriteBytes(download.Metadata, metadata);
        download.CheckWhole("||", 200);
    }
}
