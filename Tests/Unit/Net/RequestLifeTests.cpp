// Pausing, watching and dropping requests. Under Wine closing a handle doesn't end a call that blocks on it,
// so the workers of dropped requests end here when the server lets go of them.
#include "Tests/Support/ProcessCounts.h"
#include "Tests/Support/Soak.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Unit/Net/HttpTestRequest.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <vector>

using namespace Tests;
using LS::System::MakeRef;

namespace
{
constexpr std::uint64_t BodySize = 1024 * 1024;

/// Remembers what it is told; the first time it may do something as well.
class CWatcher : public LS::System::Net::CHttpProgress
{
public:
    explicit CWatcher(std::function<void()> first = {}) : m_First(std::move(first)) {}

    void OnProgress(std::uint64_t received, std::uint64_t total) override
    {
        if (m_Count++ == 0 && m_First)
            m_First();
        m_Ordered = m_Ordered && received > m_Received && total == BodySize;
        m_Received = received;
    }

    std::function<void()> m_First;
    std::atomic<unsigned> m_Count{0};
    std::atomic<bool> m_Ordered{true};
    std::uint64_t m_Received = 0;
};
} // namespace

TEST_CASE("a paused transfer stands still until it is resumed")
{
    CFaultServer server([](const HttpRequest& request) { return FileReply(request, BodySize); });
    CHttpWebRequest* paused = nullptr;
    auto request = CHttpWebRequest::CreateHttp(server.Url("/"), 0, 0, 0, 0);
    paused = request.Get();
    const auto watcher = MakeRef<CWatcher>([&] { paused->Pause(); });
    request->SetProgress(CRefPtr<LS::System::Net::CHttpProgress>(watcher));
    request->Start();
    REQUIRE(WaitFor([&] { return watcher->m_Count > 0; }));
    const float percent = request->PercentDone();
    CHECK(percent > 0.0F);
    CHECK(percent < 10.0F);
    // Without the pause all would be here within this time on most machines.
    CHECK_FALSE(WaitFor([&] { return request->PercentDone() != percent; }, 300));
    request->Resume();
    REQUIRE(WaitForEnd(request));
    CHECK(request->DownloadIsOk());
    CHECK((request->ResponseBody() == Pattern(0, BodySize)));
    CHECK(watcher->m_Ordered);
}

TEST_CASE("a request can be paused before it starts, started twice and dropped while it pauses")
{
    CFaultServer server([](const HttpRequest& request) { return FileReply(request, BodySize); });
    auto request = CHttpWebRequest::CreateHttp(server.Url("/"), 0, 0, 0, 0);
    request->Pause();
    request->Start();
    request->Start();
    REQUIRE(server.WaitForBodyBytes(1));
    CHECK(request->PercentDone() == 0.0F);
    request.Reset();
    CHECK(server.Requests().size() == 1);
    CHttpWebRequest::CreateHttp(server.Url("/"), 0, 0, 0, 0).Reset(); // never started
}

TEST_CASE("progress is told at most every 50 ms")
{
    CFaultServer server([](const HttpRequest& request) {
        HttpReply reply = FileReply(request, BodySize);
        reply.TrickleBytes = static_cast<std::size_t>(BodySize / 64); // a block of the transfer
        reply.TrickleMs = 5;
        return reply;
    });
    const auto watcher = MakeRef<CWatcher>();
    const DWORD begin = ::GetTickCount();
    const auto request = Fetch(server.Url("/"), [&](CHttpWebRequest& setup) {
        setup.SetProgress(CRefPtr<LS::System::Net::CHttpProgress>(watcher));
    });
    const DWORD elapsed = ::GetTickCount() - begin;
    CHECK(request->DownloadIsOk());
    CHECK(watcher->m_Ordered);
    CHECK(watcher->m_Count >= 2);
    CHECK(watcher->m_Count <= elapsed / 50 + 2);
}

TEST_CASE("requests dropped in mid-transfer return at once and leave nothing behind")
{
    const CTempFolder folder;
    std::vector<DWORD> drops;
    bool filesFree = true;
    const auto runRounds = [&](unsigned rounds) {
        CFaultServer server([](const HttpRequest& request) {
            HttpReply reply = FileReply(request, 64 * BodySize);
            reply.StallBeforeHead = request.Target == "/silent";
            if (request.Target == "/stalls")
            {
                reply.CutAfter = BodySize / 2;
                reply.End = HttpReply::Ending::Stall;
            }
            return reply;
        });
        for (unsigned round = 0; round < rounds; ++round)
        {
            const std::wstring path = folder.Path(std::to_wstring(round));
            const bool toFile = round % 2 == 1;
            const char* const targets[] = {"/silent", "/stalls", "/runs"};
            const char* const target = targets[round % 3];
            auto request = StartRequest(server.Url(target), [&](CHttpWebRequest& setup) {
                if (toFile)
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
            drops.push_back(::GetTickCount() - begin);
            if (toFile) // given back
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
    const unsigned threads = ThreadCount();
    const unsigned handles = HandleCount();
    drops.clear();
    runRounds(Loops(200, 2000));
    CHECK(WaitFor([&] { return ThreadCount() <= threads && HandleCount() <= handles; }));
    CHECK(filesFree);
    CHECK(std::filesystem::is_empty(folder.Path())); // and never made again
    // The workers' time-out is 30 s; a drop that waited for one would show.
    CHECK(*std::max_element(drops.begin(), drops.end()) < 10000);
    MESSAGE("slowest drop: " << *std::max_element(drops.begin(), drops.end()) << " ms; threads " << threads
                             << " -> " << ThreadCount() << "; handles " << handles << " -> "
                             << HandleCount());
}
