// A program that downloads is killed at random points and started anew, until it gets through. Whatever the
// moment, a resume asks for no byte that isn't needed but the last two blocks of each stream, for every byte
// that isn't on disk, and the file comes out whole.
#include "Ls/System/String/Convert.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Soak.h"
#include "Tests/Unit/Download/DownloadRun.h"

#include <random>

using namespace Tests;

/// What is killed: this program again, with this case only.
TEST_CASE("child: downloads" * doctest::skip())
{
    const std::wstring input = _wgetenv(L"LS_TEST_INPUT"); // URL, blank, path
    const auto blank = input.find(L' ');
    const CDownloadRun run(LS::WideToAnsi(input.substr(0, blank)), input.substr(blank + 1));
    CHECK(WaitFor([&] { return run.Status().Finished; }, 300000));
}

TEST_CASE("A download that is killed over and over ends whole and fetches almost nothing twice")
{
    constexpr std::uint32_t KillSize = 4000000;
    const std::string whole = Pattern(0, KillSize);
    const CTempFolder folder(L"dl-kill");
    std::mt19937 random(20261114);
    // A run that is to be killed gets so many bytes per stream and no more.
    std::atomic<std::uint32_t> allowed{0};
    CFaultServer server([&](auto& request) { return Cut(allowed, Ending::Stall, Sized(KillSize))(request); });
    const std::wstring url = LS::AnsiToWide(server.Url("/file")) + L" ";
    unsigned killed = 0;
    for (unsigned file = 0; killed < Loops(24, 200); ++file)
    {
        const std::uint32_t streams = file % 2 + 1, chunk = KillSize / streams;
        const std::wstring path = folder.Path(std::to_wstring(file));
        if (streams == 2)
            Interrupt(path, {0, 0}, KillSize);
        std::uint32_t onDisk[2] = {};
        for (unsigned left = random() % 6 + 2; left > 0; --left)
        {
            // So few that no stream is complete before the last run.
            allowed = left == 1 ? KillSize : random() % (chunk / 8) + 1;
            // The server is ahead of the program by what the system buffers.
            const std::uint64_t sent = server.BodyBytesSent() + random() % (allowed * streams);
            const auto before = static_cast<unsigned>(server.Requests().size());
            auto child = std::make_unique<CChildProcess>(L"child: downloads", url + path);
            CHECK(server.WaitForRequests(before + streams, 300000));
            CHECK(WaitFor([&] { return left == 1 || server.BodyBytesSent() >= sent; }, 300000));
            for (auto later = random() % 400; later > 0; --later)
                ::SwitchToThread();
            killed += left > 1 ? 1 : 0;
            CHECK((left > 1 || child->ExitCode() == 0));
            child.reset();

            const std::vector<HttpRequest> requests = server.Requests();
            CHECK(requests.size() == before + streams);
            for (auto request = before; request < requests.size(); ++request)
            {
                const auto begin = static_cast<std::uint32_t>(requests[request].RangeBegin.value_or(0));
                const std::uint32_t there = begin / chunk * chunk + onDisk[begin / chunk];
                CHECK(begin <= there);
                CHECK(there <= begin + 2 * Block);
            }
            const std::string cache = ReadBytes(path + L".cache") + std::string(KillSize, '?');
            for (std::uint32_t i = 0, at = 0; i < streams; ++i, at += chunk)
                for (onDisk[i] = 0; onDisk[i] < chunk && cache[at + onDisk[i]] == whole[at + onDisk[i]];)
                    ++onDisk[i];
        }
        CHECK(FilesOf(path) == "out ");
        CHECK((ReadBytes(path) == whole));
        ::DeleteFileW(path.c_str());
    }
}
