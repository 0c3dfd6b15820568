// The owner lets go of a download at any moment: it returns soon, every thread has ended, no handle is left.
//
// On Windows closing the stream's connection frees a call that blocks on a silent server at once. Wine
// doesn't free it, so there the receive time-out ends it, and these tests use a short one.
#include "Tests/Support/ProcessCounts.h"
#include "Tests/Support/Soak.h"
#include "Tests/Support/WaitFor.h"
#include "Tests/Unit/Download/DownloadRun.h"

#include <doctest/doctest.h>

#include <atomic>
#include <functional>
#include <random>
#include <thread>

using namespace Tests;
using LS::System::CRefPtr;
using LS::System::MakeRef;

namespace
{
constexpr std::uint32_t Size = 600000;
constexpr std::uint32_t ReceiveMs = 300;
constexpr DWORD PromisedMs = 2000;

/// In what the download is caught.
enum class Moment
{
    Connecting, ///< no answer comes
    Reading,    ///< the body has stopped
    Writing,    ///< everything flows
    Retrying,   ///< in the pause before the next attempt
    Restarting, ///< every attempt asks for a restart
    Finalising, ///< the cache file is held
    Done,
    Count
};

HttpReply Answer(const HttpRequest& request)
{
    HttpReply reply = FileReply(request, Size);
    if (request.Target == "/connecting")
        reply.StallBeforeHead = true;
    else if (request.Target == "/reading")
    {
        reply.CutAfter = 70000;
        reply.End = HttpReply::Ending::Stall;
    }
    else if (request.Target == "/retrying")
        reply = {}, reply.Head = HttpHead("500 Oops", {"Content-Length: 0"});
    else if (request.Target == "/restarting")
    {
        reply.CutAfter = 70000;
        reply.End = HttpReply::Ending::Close;
    }
    return reply;
}

const char* const Targets[] = {"/connecting", "/reading",    "/writing", "/retrying",
                               "/restarting", "/finalising", "/done"};

/// One download of that kind, dropped when it has come to that moment or a little later. The time of the
/// drop.
DWORD DropOnce(CFaultServer& server, const std::wstring& path, Moment moment, unsigned streams,
               unsigned later)
{
    LS::System::Win32::CFileHandle held;
    if (moment == Moment::Finalising) // held before the streams come, so that the moving fails for certain
        held = LS::System::Win32::CFileHandle(::CreateFileW((path + L".cache").c_str(), GENERIC_READ,
                                                            FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                                            OPEN_ALWAYS, 0, nullptr));
    if (streams == 2)
        PutDownloadRecord(path, 2, Size);
    const unsigned requests = static_cast<unsigned>(server.Requests().size());
    CDownloadRun run(server.Url(Targets[static_cast<int>(moment)]), path, 5,
                     moment == Moment::Connecting || moment == Moment::Reading ? ReceiveMs : 30000);
    switch (moment)
    {
    case Moment::Reading:
    case Moment::Writing:
        CHECK(run.WaitForBytes(65536));
        break;
    case Moment::Restarting:
        CHECK(WaitFor([&] { return run.Restarts() >= 1; }));
        break;
    case Moment::Finalising: // the records go first
        CHECK(run.WaitForBytes(Size));
        CHECK(WaitFor([&] { return FilesOf(path) == "cache"; }));
        break;
    case Moment::Done:
        CHECK(run.Wait());
        break;
    default:
        CHECK(server.WaitForRequests(requests + 1));
    }
    for (; later > 0; --later)
        ::SwitchToThread();
    const DWORD begin = ::GetTickCount();
    run.Drop();
    return ::GetTickCount() - begin;
}
} // namespace

TEST_CASE("Letting go of a download returns within two seconds, wherever it is, and leaves nothing behind")
{
    const CTempFolder folder(L"dl-drop");
    CFaultServer server(Answer);
    std::mt19937 random(20261114);
    DropOnce(server, folder.Path(L"first"), Moment::Done, 1, 0); // what the system makes once is there then
    unsigned handles = 0, threads = 0;
    DWORD longest[static_cast<int>(Moment::Count)] = {};
    const unsigned loops = Loops(56, 500);
    for (unsigned i = 0; i < loops; ++i)
    {
        if (i == 14) // each moment has been there with one stream and with two
            handles = HandleCount(), threads = ThreadCount();
        const auto moment = static_cast<Moment>(i % static_cast<int>(Moment::Count));
        const std::wstring path = folder.Path(std::to_wstring(i));
        const DWORD taken = DropOnce(server, path, moment, i / 7 % 2 + 1, random() % 200);
        longest[static_cast<int>(moment)] = std::max(longest[static_cast<int>(moment)], taken);
        for (const wchar_t* suffix : {L"", L".cache", L".downloadstate", L".0", L".1"})
            ::DeleteFileW((path + suffix).c_str());
    }
    for (std::size_t i = 0; i < std::size(longest); ++i)
    {
        CAPTURE(std::string(Targets[i]));
        CHECK(longest[i] < PromisedMs);
    }
    server.GoAway(); // so that its own connections don't count
    CHECK(WaitFor([&] { return ThreadCount() <= threads; }, 20000));
    CHECK(WaitFor([&] { return HandleCount() <= handles; }, 20000));
}

namespace
{
/// An owner that does something within the status callback, on its first call or on the one that tells the
/// end.
struct Owner
{
    std::function<void(Owner&)> Action;
    bool AtEnd = false;
    CRefPtr<Engine::CHTTPDownload> Download;
    std::atomic<unsigned> Calls{0};
    std::atomic<unsigned> CallsAfter{0};
    std::atomic<bool> Ready{false}, Acted{false};

    static void Take(void* context, const DownloadStatus& status)
    {
        Owner& owner = *static_cast<Owner*>(context);
        ++owner.Calls;
        if (owner.Acted)
        {
            ++owner.CallsAfter;
            return;
        }
        if (owner.AtEnd && !status.Finished && !status.Error)
            return;
        // The first calls may come before the owner has the download in hand.
        WaitFor([&] { return owner.Ready.load(); });
        owner.Action(owner);
        owner.Acted = true;
    }
};
} // namespace

TEST_CASE("The owner may cancel, ask and let go within the status callback")
{
    const CTempFolder folder(L"dl-inside");
    CFaultServer server([](const HttpRequest& request) {
        HttpReply reply = FileReply(request, Size);
        if (request.Target == "/missing")
            reply = {}, reply.Head = HttpHead("404 Not Found", {"Content-Length: 0"});
        return reply;
    });
    const std::function<void(Owner&)> drop = [](Owner& owner) { owner.Download.Reset(); };
    const std::function<void(Owner&)> cancel = [](Owner& owner) {
        owner.Download->Cancel();
        owner.Download->GetStatus();
    };
    // Another thread cancels, and may be the last to let go, while the callback wants the status.
    const std::function<void(Owner&)> race = [](Owner& owner) {
        std::thread([download = owner.Download] { download->Cancel(); }).detach();
        for (int i = 0; i < 100; ++i)
            owner.Download->GetStatus();
        owner.Download->Cancel();
    };
    const struct
    {
        const char* Name;
        const char* Target;
        bool AtEnd;
        std::function<void(Owner&)> Action;
    } rows[] = {
        {"lets go at the first news", "/file", false, drop},
        {"lets go at the end", "/file", true, drop},
        {"lets go of a failure", "/missing", true, drop},
        {"cancels at the first news", "/file", false, cancel},
        {"cancels at the end", "/file", true, cancel},
        {"two threads cancel", "/file", false, race},
    };
    const auto threads = [&] {
        server.GoAway();
        server.Reopen();
        return ThreadCount();
    };
    const unsigned before = threads();
    for (const auto& row : rows)
    {
        for (const unsigned streams : {1U, 2U})
        {
            CAPTURE(std::string(row.Name));
            CAPTURE(streams);
            const std::wstring path = folder.Path(std::to_wstring(&row - rows) + std::to_wstring(streams));
            if (streams == 2)
                PutDownloadRecord(path, 2, Size);
            const std::string url = server.Url(row.Target);
            const auto owner = std::make_unique<Owner>();
            owner->Action = row.Action;
            owner->AtEnd = row.AtEnd;
            owner->Download = MakeRef<Engine::CHTTPDownload>(
                "DownloadTests", std::wstring(url.begin(), url.end()), path, &Owner::Take, owner.get(), 0U);
            owner->Ready = true;
            CHECK(WaitFor([&] { return owner->Acted.load(); }));
            owner->Download.Reset();
            CHECK(WaitFor([&] { return ThreadCount() <= before + 8; }, 20000));
            if (row.AtEnd)
                CHECK(owner->CallsAfter == 0);
        }
    }
    CHECK(WaitFor([&] { return threads() <= before + 2; }, 20000));
}
