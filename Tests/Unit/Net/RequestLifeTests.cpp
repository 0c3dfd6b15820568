// Pausing, watching and dropping requests. Under Wine closing a handle doesn't end a call that blocks on it,
// so the workers of dropped requests end here when the server lets go of them.
#include "Tests/Support/ProcessCounts.h"
#include "Tests/Support/Soak.h"
#include "Tests/Unit/Net/HttpTestRequest.h"

using namespace Tests;
using LS::System::MakeRef;

namespace
{
constexpr std::uint64_t BodySize = 1024 * 1024;

/// Remembers what it is told; the first time it may do something as well.
struct CWatcher : LS::System::Net::CHttpProgress
{
    void OnProgress(std::uint64_t received, std::uint64_t total) override
    {
        if (Count++ == 0 && First)
            First();
        Ordered = Ordered && received > Received && total == BodySize;
        Received = received;
    }

    std::function<void()> First;
    std::atomic<unsigned> Count{0};
    std::atomic<bool> Ordered{true};
    std::uint64_t Received = 0;
};
} // namespace

TEST_CASE("a paused transfer stands still until it is resumed, and progress is told at most every 50 ms")
{
    CFaultServer server([](const HttpRequest& request) {
        HttpReply reply = FileReply(request, BodySize);
        reply.TrickleBytes = static_cast<std::size_t>(BodySize / 64); // a block of the transfer
        reply.TrickleMs = 5;
        return reply;
    });
    auto request = CHttpWebRequest::CreateHttp(server.Url("/"), 0, 0, 0, 0);
    const auto watcher = MakeRef<CWatcher>();
    watcher->First = [paused = request.Get()] { paused->Pause(); };
    request->SetProgress(CRefPtr<LS::System::Net::CHttpProgress>(watcher));
    const DWORD begin = ::GetTickCount();
    request->Start();
    request->Start(); // does nothing
    REQUIRE(WaitFor([&] { return watcher->Count > 0; }));
    const float percent = request->PercentDone();
    CHECK((percent > 0.0F && percent < 10.0F));
    // Without the pause all would be here within this time on most machines.
    CHECK_FALSE(WaitFor([&] { return request->PercentDone() != percent; }, 300));
    request->Resume();
    REQUIRE(WaitForEnd(request));
    CHECK((request->DownloadIsOk() && request->ResponseBody() == Pattern(0, BodySize)));
    CHECK((watcher->Ordered && watcher->Count >= 2 && watcher->Count <= (::GetTickCount() - begin) / 50 + 2));
    CHECK(server.Requests().size() == 1);
}

TEST_CASE("requests dropped in mid-transfer return at once and leave nothing behind")
{
    const CTempFolder folder;
    DWORD slowest = 0;
    bool filesFree = true;
    const auto runRounds = [&](unsigned rounds) {
        CFaultServer server([](const HttpRequest& request) {
            HttpReply reply = FileReply(request, 64 * BodySize);
            reply.StallBeforeHead = request.Target == "/0";
            if (request.Target == "/1")
            {
                reply.CutAfter = BodySize / 2;
                reply.End = HttpReply::Ending::Stall;
            }
            return reply;
        });
        for (unsigned round = 0; round < rounds; ++round)
        {
            const std::wstring path = folder.Path(std::to_wstring(round));
            auto request =
                StartRequest(server.Url("/" + std::to_string(round % 3)), [&](CHttpWebRequest& setup) {
                    if (round % 2 == 1)
                        setup.SetDestination(path);
                    if (round % 7 == 0)
                        setup.Pause();
                });
            // Dropped at a different moment each time: before anything, asked, or in the body.
            if (round % 5 != 0)
                server.WaitForRequests(static_cast<unsigned>(server.Requests().size()) + 1, 50);
            if (round % 5 > 2)
                WaitFor([&] { return request->PercentDone() > 0.0F; }, 20);
            const DWORD begin = ::GetTickCount();
            request.Reset();
            slowest = std::max(slowest, ::GetTickCount() - begin);
            // A file is given back.
            filesFree =
                filesFree && (::DeleteFileW(path.c_str()) || ::GetLastError() == ERROR_FILE_NOT_FOUND);
            if (round % 20 == 19)
            {
                server.GoAway();
                server.Reopen();
            }
        }
        server.GoAway();
    };

    runRounds(20); // what the system keeps for the first requests of a process
    const unsigned threads = ThreadCount(), handles = HandleCount();
    slowest = 0;
    runRounds(Loops(200, 2000));
    CHECK(WaitFor([&] { return ThreadCount() <= threads && HandleCount() <= handles; }));
    CHECK((filesFree && std::filesystem::is_empty(folder.Path()))); // and never made again
    CHECK(slowest < 10000); // the workers' time-out is 30 s; a drop that waited for one would show
    MESSAGE("slowest drop: " << slowest << " ms");
}
