// The owner lets go of a download at any moment: it returns soon, every thread has ended, no handle is left.
//
// On Windows closing the stream's connection frees a call that blocks on a silent server at once. Wine
// doesn't free it, so there the receive time-out ends it, and these tests use a short one.
#include "Tests/Support/ProcessCounts.h"
#include "Tests/Support/Soak.h"
#include "Tests/Unit/Download/DownloadRun.h"

#include <random>

using namespace Tests;

namespace
{
/// Whoever waits for a retry, for a file that can't be moved or for a silent server takes much longer.
constexpr DWORD SoonMs = 15000;

/// In what the download is caught.
struct Moment
{
    std::string Name;
    Script Answer;
    std::function<bool(CDownloadRun& run, const std::wstring& path)> Reached;
    std::uint32_t ReceiveMs = 30000;
    bool HoldsCache = false;
    /// Done within the first status callback, or within the one that tells the end.
    std::function<void(CDownloadRun& run)> Inside = {};
    bool AtEnd = false;
};
} // namespace

TEST_CASE("Letting go of a download returns soon, wherever it is, and leaves nothing behind")
{
    const CTempFolder folder(L"dl-drop");
    std::atomic<const Moment*> present{nullptr};
    CFaultServer server([&](auto& request) { return present.load()->Answer(request); });
    std::atomic<unsigned> acted{0}, callsAfter{0};
    std::size_t requests = 0;
    std::thread racer;
    const auto sent = [&](auto&...) { return server.Requests().size() > requests; };
    const auto received = [](auto& run, auto&) { return run.Status().BytesDone >= Block; };
    const auto restarted = [](auto& run, auto&) { return run.Download->RestartCount() > 0; };
    const auto called = [&](auto&...) { return acted > 0; };
    const auto drop = [](auto& run) { run.Download.Reset(); };
    // Another thread cancels, and may be the last to let go, while the callback wants the status.
    const auto race = [&](auto& run) {
        racer = std::thread([download = run.Download] { download->Cancel(); });
        for (int i = 0; i < 100; ++i)
            run.Status();
        run.Download->Cancel();
    };
    // clang-format off
    const Moment moments[] = {
        {"connecting", Silent, sent, 300},
        {"reading", Cut(70000, Ending::Stall), received, 300},
        {"writing", Whole, received},
        {"retrying", Bare("500 Oops"), sent},
        {"restarting", Cut(70000, Ending::Close), restarted},
        {"finalising", Whole, [](auto&, auto& path) { return FilesOf(path) == "cache "; }, 30000, true},
        {"dropped-inside", Whole, called, 30000, false, drop},
        {"dropped-inside-at-the-end", Whole, called, 30000, false, drop, true},
        {"dropped-inside-on-failure", Bare("404 Not Found"), called, 30000, false, drop, true},
        {"two-cancel", Whole, called, 30000, false, race},
    };
    // clang-format on
    std::mt19937 random(20261114);
    unsigned handles = 0, threads = 0;
    for (std::size_t i = 0, count = std::size(moments); i < Loops(10 * count, 500); ++i)
    {
        const Moment& moment = *(present = &moments[i % count]);
        CAPTURE(moment.Name);
        const std::wstring path = folder.Path(std::to_wstring(i));
        // So the moving fails for certain.
        auto held = Hold(path + L".cache", 3, moment.HoldsCache ? OPEN_ALWAYS : OPEN_EXISTING);
        if (i / count % 2 == 1)
            Interrupt(path, {0, 0}, Size);
        requests = server.Requests().size();
        acted = callsAfter = 0;
        const auto inside = [&](CDownloadRun& run, bool end) {
            callsAfter += acted;
            if (!moment.Inside || acted || (moment.AtEnd && !end))
                return;
            moment.Inside(run);
            acted = 1;
        };
        // So many tries that a slow machine doesn't use them up.
        CDownloadRun run(server.Url("/file"), path, moment.AtEnd ? 0 : 1000, {.ReceiveMs = moment.ReceiveMs},
                         inside);
        CHECK(WaitFor([&] { return moment.Reached(run, path); }));
        for (auto later = random() % 200; later > 0; --later)
            ::SwitchToThread();
        const DWORD begin = ::GetTickCount();
        run.Download.Reset();
        CHECK(::GetTickCount() - begin < SoonMs);
        if (racer.joinable())
            racer.join();
        held.Reset();
        // No writer is left.
        CHECK((moment.Inside || Hold(path + L".cache", 0, OPEN_EXISTING) ||
               ::GetLastError() == ERROR_FILE_NOT_FOUND));
        CHECK((!moment.AtEnd || callsAfter == 0));
        if (i == 2 * count) // each moment has been there with one stream and with two
        {
            server.GoAway(); // so that its own connections don't count
            handles = HandleCount();
            threads = ThreadCount();
            server.Reopen();
        }
    }
    server.GoAway();
    // Wine keeps idle connections for a minute, and a handle now and then; a moment that leaves one behind
    // has been there eight times since.
    CHECK(WaitFor([&] { return ThreadCount() <= threads; }, 300000));
    CHECK(WaitFor([&] { return HandleCount() < handles + 8; }, 300000));
    MESSAGE("handles " << handles << " then, " << HandleCount() << " now");
}

TEST_CASE("A download is let go of within its callback while a restart waits for the stream that calls")
{
    const CTempFolder folder(L"dl-restart");
    const std::wstring path = folder.Path(L"file");
    Interrupt(path, {0, 0}, Size);
    std::atomic<bool> secondCalled{false}, dropped{false};
    // The first stream gets its data when the second one has called back. The second one's answer ends too
    // early, once the first one is inside the callback.
    CFaultServer server([&](auto& request) {
        HttpReply reply = Cut(Block, Ending::Close)(request);
        reply.TrickleBytes = Block, reply.TrickleMs = INFINITE;
        if (request.RangeBegin == 0U)
            WaitFor([&] { return secondCalled.load(); });
        return reply;
    });
    CDownloadRun run(server.Url("/file"), path, 5, {}, [&](CDownloadRun& inside, bool) {
        const unsigned threads = ThreadCount();
        server.Release();
        // The second stream, its writer and the server's connection have gone.
        WaitFor([&] { return ThreadCount() + 3 <= threads; }, 3000);
        inside.Download.Reset();
        dropped = true;
    });
    CHECK(WaitFor([&] { return run.Status().BytesDone >= Block; }));
    secondCalled = true;
    CHECK(WaitFor([&] { return dropped.load(); }));
}
