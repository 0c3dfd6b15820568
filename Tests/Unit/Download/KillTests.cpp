// A program that downloads is killed at random points and started anew, until it gets through. Whatever the
// moment, a resume asks for no byte that isn't needed but the last two blocks of each stream, for every byte
// that isn't on disk, and the file comes out whole.
#include "Ls/System/Io/Path.h"
#include "Tests/Support/Soak.h"
#include "Tests/Unit/Download/DownloadRun.h"

#include <process.h>

#include <random>

using namespace Tests;

/// What is killed: this program again, with this case only.
TEST_CASE("child" * doctest::skip())
{
    std::freopen("nul", "w", stdout); // the log would drown the test's
    const CDownloadRun run(std::getenv("LS_TEST_URL"), ::_wgetenv(L"LS_TEST_PATH"));
    CHECK(WaitFor([&] { return run.Status().Finished; }));
}

TEST_CASE("A download that is killed over and over ends whole and fetches almost nothing twice")
{
    constexpr std::uint32_t KillSize = 4000000;
    const std::string whole = Pattern(0, KillSize);
    const std::wstring program = LS::System::IO::ProgramPath();
    const CTempFolder folder(L"dl-kill");
    std::mt19937 random(20261114);
    // A run that is to be killed gets so many bytes per stream and no more.
    std::atomic<std::uint32_t> allowed{0};
    CFaultServer server([&](auto& request) { return Cut(allowed, Ending::Stall, Sized(KillSize))(request); });
    ::SetEnvironmentVariableA("LS_TEST_URL", server.Url("/file").c_str());
    unsigned killed = 0;
    for (unsigned file = 0; killed < Loops(24, 200); ++file)
    {
        const std::uint32_t streams = file % 2 + 1, chunk = KillSize / streams;
        const std::wstring path = folder.Path(std::to_wstring(file));
        ::SetEnvironmentVariableW(L"LS_TEST_PATH", path.c_str());
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
            const LS::System::Win32::CKernelHandle child(reinterpret_cast<HANDLE>(::_wspawnl(
                _P_NOWAIT, program.c_str(), L"child", L"--no-skip", L"--test-case=child", nullptr)));
            CHECK(server.WaitForRequests(before + streams));
            CHECK(WaitFor([&] { return left == 1 || server.BodyBytesSent() >= sent; }));
            for (auto later = random() % 400; later > 0; --later)
                ::SwitchToThread();
            if (left > 1)
                killed += ::TerminateProcess(child.Get(), 9);
            CHECK(::WaitForSingleObject(child.Get(), 60000) == WAIT_OBJECT_0);

            const std::vector<HttpRequest> requests = server.Requests();
            CHECK(requests.size() == before + streams);
            for (auto request = before; request < requests.size(); ++request)
            {
                const auto begin = static_cast<std::uint32_t>(requests[request].RangeBegin.value_or(0));
                const std::uint32_t there = begin / chunk * chunk + onDisk[begin / chunk];
                CHECK((begin <= there && there - begin <= 2 * Block));
            }
            const std::string cache = ReadBytes(path + L".cache") + std::string(KillSize, '?');
            for (std::uint32_t i = 0, at = 0; i < streams; ++i, at += chunk)
                for (onDisk[i] = 0; onDisk[i] < chunk && cache[at + onDisk[i]] == whole[at + onDisk[i]];)
                    ++onDisk[i];
        }
        CHECK((FilesOf(path) == "out " && ReadBytes(path) == whole));
        ::DeleteFileW(path.c_str());
    }
}
