// What an earlier run left behind, good or bad, and what is asked of the server then. The download ends whole
// in every case.
#include "Tests/Unit/Download/DownloadRun.h"

#include <doctest/doctest.h>

#include <functional>
#include <memory>

using namespace Tests;

namespace
{
constexpr std::uint32_t Size = 300000;

void Damage(const std::wstring& path, const std::function<void(std::string&)>& change)
{
    std::string bytes = ReadBytes(path);
    change(bytes);
    WriteBytes(path, bytes);
}

struct Row
{
    std::string Name;
    /// Works on the files of two streams, of which the first has come to 131072 and the second to 215536,
    /// with what lies between in the cache file.
    std::function<void(const std::wstring& path)> Change;
    /// Sorted.
    const char* Ranges;
};

const Row Rows[] = {
    {"nothing is wrong", [](const std::wstring&) {}, "131072-149999 215536-299999"},
    {"download record torn",
     [](const std::wstring& path) {
         Damage(path + L".downloadstate", [](std::string& bytes) { bytes.resize(9); });
     },
     "-"},
    {"download record empty", [](const std::wstring& path) { WriteBytes(path + L".downloadstate", ""); },
     "-"},
    {"download record flipped",
     [](const std::wstring& path) {
         Damage(path + L".downloadstate", [](std::string& bytes) { bytes[4] ^= 1; });
     },
     "-"},
    {"download record oversized",
     [](const std::wstring& path) {
         Damage(path + L".downloadstate", [](std::string& bytes) { bytes += std::string(5000, 'x'); });
     },
     "131072-149999 215536-299999"},
    {"no download record",
     [](const std::wstring& path) { ::DeleteFileW((path + L".downloadstate").c_str()); }, "-"},
    {"three streams", [](const std::wstring& path) { PutDownloadRecord(path, 3, Size); }, "-"},
    {"two streams of an unknown size", [](const std::wstring& path) { PutDownloadRecord(path, 2, 0); }, "-"},
    {"download record of a single stream: the streams' don't count",
     [](const std::wstring& path) { PutDownloadRecord(path, 1, Size); }, "-"},
    {"stream record torn",
     [](const std::wstring& path) { Damage(path + L".0", [](std::string& bytes) { bytes.resize(75); }); },
     "0-149999 215536-299999"},
    {"stream record empty", [](const std::wstring& path) { WriteBytes(path + L".1", ""); },
     "131072-149999 150000-299999"},
    {"stream record flipped",
     [](const std::wstring& path) { Damage(path + L".1", [](std::string& bytes) { bytes[40] ^= 4; }); },
     "131072-149999 150000-299999"},
    {"stream record oversized",
     [](const std::wstring& path) { Damage(path + L".1", [](std::string& bytes) { bytes += bytes; }); },
     "131072-149999 215536-299999"},
    {"stream record of another stream count",
     [](const std::wstring& path) { PutStreamRecord(path, 0, 131072, Size, 1); }, "0-149999 215536-299999"},
    {"stream record before its range",
     [](const std::wstring& path) { PutStreamRecord(path, 1, 149999, Size, 2); },
     "131072-149999 150000-299999"},
    {"stream record behind its range",
     [](const std::wstring& path) { PutStreamRecord(path, 0, 150001, Size, 2); }, "0-149999 215536-299999"},
    {"both stream records the wrong way round",
     [](const std::wstring& path) {
         PutStreamRecord(path, 0, 215536, Size, 2);
         PutStreamRecord(path, 1, 131072, Size, 2);
     },
     "0-149999 150000-299999"},
    {"no cache file", [](const std::wstring& path) { ::DeleteFileW((path + L".cache").c_str()); },
     "0-149999 150000-299999"},
    {"a cache file that ends early",
     [](const std::wstring& path) { WriteBytes(path + L".cache", Pattern(0, 140000)); },
     "131072-149999 150000-299999"},
    {"nothing but a longer cache file of an older download",
     [](const std::wstring& path) {
         for (const wchar_t* suffix : {L".downloadstate", L".0", L".1"})
             ::DeleteFileW((path + suffix).c_str());
         WriteBytes(path + L".cache", std::string(Size + 70000, 'o'));
     },
     "-"},
    {"two streams and a longer cache file",
     [](const std::wstring& path) {
         Damage(path + L".cache", [](std::string& bytes) { bytes += std::string(200000, 'o'); });
     },
     "131072-149999 215536-299999"},
};
} // namespace

TEST_CASE("Whatever an earlier run left, the download ends whole and asks for no more than it must")
{
    const CTempFolder folder(L"dl-resume");
    CFaultServer server([](const HttpRequest& request) {
        HttpReply reply = FileReply(request, Size);
        if (request.Target == "/unsized") // an answer that says nothing of the size
        {
            reply.Head = HttpHead("200 OK", {"Connection: close"});
            reply.End = HttpReply::Ending::Close;
        }
        return reply;
    });
    const auto interrupt = [](const std::wstring& path) {
        PutDownloadRecord(path, 2, Size);
        PutStreamRecord(path, 0, 131072, Size, 2);
        PutStreamRecord(path, 1, 215536, Size, 2);
        WriteBytes(path + L".cache", Pattern(0, 131072) + std::string(18928, 'h') + Pattern(150000, 65536));
    };
    unsigned served = 0;
    const auto ranges = [&] {
        std::vector<HttpRequest> requests = server.Requests();
        requests.erase(requests.begin(), requests.begin() + served);
        served += static_cast<unsigned>(requests.size());
        return RangesOf(requests, true);
    };
    for (const Row& row : Rows)
    {
        CAPTURE(row.Name);
        const std::wstring path = folder.Path(L"file" + std::to_wstring(&row - Rows));
        interrupt(path);
        row.Change(path);
        CDownloadRun run(server.Url("/file"), path);
        CHECK(run.Wait());
        CHECK(run.Restarts() == 0);
        CHECK(run.FinishedCalls() == 1);
        CHECK(ranges() == row.Ranges);
        CHECK(IsPatternFile(path, Size));
        CHECK(FilesOf(path) == "out");
    }

    // Of an unknown size nothing but the end of the answer says where the file ends.
    const std::wstring path = folder.Path(L"unsized");
    WriteBytes(path + L".cache", std::string(Size + 70000, 'o'));
    CDownloadRun run(server.Url("/unsized"), path);
    CHECK(run.Wait());
    CHECK(run.Status().FileSize == 0);
    CHECK(run.Status().PercentDone == 0.0F);
    CHECK(IsPatternFile(path, Size));
}

TEST_CASE("A file that is there already is the finished download, without a request")
{
    const CTempFolder folder(L"dl-there");
    const std::wstring path = folder.Path(L"file");
    WriteBytes(path, "there");
    CFaultServer server([](const HttpRequest& request) { return FileReply(request, Size); });
    CDownloadRun run(server.Url("/file"), path);
    CHECK(run.Wait());
    const DownloadStatus status = run.Status();
    CHECK(status.Finished);
    CHECK(status.BytesDone == 0);
    CHECK(run.FinishedCalls() == 1);
    run.Drop();
    CHECK(server.Requests().empty());
    CHECK(ReadBytes(path) == "there");
}
