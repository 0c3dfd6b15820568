// A program that downloads is killed at random points and started anew, until it gets through. Whatever the
// moment, a resume asks for no byte that isn't needed but the last two blocks of each stream, for every byte
// that isn't on disk, and the file comes out whole.
#include "Ls/System/Io/Path.h"
#include "Tests/Support/Soak.h"
#include "Tests/Unit/Download/DownloadRun.h"

#include <doctest/doctest.h>

#include <random>

using namespace Tests;
using LS::System::Win32::CKernelHandle;

namespace
{
constexpr std::uint32_t KillSize = 4000000;

std::wstring Environment(const wchar_t* name)
{
    wchar_t value[MAX_PATH] = {};
    ::GetEnvironmentVariableW(name, value, MAX_PATH);
    return value;
}

/// This program again, with the case below that downloads. Its output goes nowhere: its log would drown the
/// test's.
CKernelHandle StartChild(const std::string& url, const std::wstring& path)
{
    ::SetEnvironmentVariableW(L"LS_TEST_URL", std::wstring(url.begin(), url.end()).c_str());
    ::SetEnvironmentVariableW(L"LS_TEST_PATH", path.c_str());
    std::wstring line = L"\"" + LS::System::IO::ProgramPath() + L"\" --no-skip \"--test-case=child\"";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    PROCESS_INFORMATION process = {};
    REQUIRE(::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                             &process));
    ::CloseHandle(process.hThread);
    return CKernelHandle(process.hProcess);
}
} // namespace

TEST_CASE("child" * doctest::skip())
{
    const std::wstring url = Environment(L"LS_TEST_URL");
    const CDownloadRun run({url.begin(), url.end()}, Environment(L"LS_TEST_PATH"));
    CHECK((run.Wait() && run.Status().Finished));
}

TEST_CASE("A download that is killed over and over ends whole and fetches almost nothing twice")
{
    const CTempFolder folder(L"dl-kill");
    std::mt19937 random(20261114);
    // A run that is to be killed gets so many bytes per stream and no more.
    std::atomic<std::uint32_t> allowed{0};
    CFaultServer server(
        [&](const HttpRequest& request) { return Cut(allowed, Ending::Stall, Sized(KillSize))(request); });
    const unsigned kills = Loops(24, 200);
    unsigned killed = 0;
    std::uint32_t most = 0;
    std::uint64_t again = 0;
    for (unsigned file = 0; killed < kills; ++file)
    {
        const std::uint32_t streams = file % 2 + 1, chunk = KillSize / streams;
        const std::wstring path = folder.Path(std::to_wstring(file));
        if (streams == 2)
            Interrupt(path, {0, 0}, KillSize);
        std::vector<std::uint32_t> onDisk(streams);
        for (unsigned left = random() % 6 + 2; left > 0; --left)
        {
            // So few that no stream is complete before the last run.
            allowed = left == 1 ? KillSize : random() % (chunk / 8) + 1;
            const auto before = server.Requests().size();
            const std::uint64_t sent = server.BodyBytesSent();
            const CKernelHandle child = StartChild(server.Url("/file"), path);
            CHECK(server.WaitForRequests(static_cast<unsigned>(before) + streams));
            if (left > 1)
            {
                // The server is ahead of the program by what the system buffers.
                CHECK(server.WaitForBodyBytes(sent + random() % (allowed * streams)));
                for (auto later = random() % 400; later > 0; --later)
                    ::SwitchToThread();
                ::TerminateProcess(child.Get(), 9);
                ++killed;
            }
            ::WaitForSingleObject(child.Get(), 60000);

            const std::vector<HttpRequest> requests = server.Requests();
            CHECK(requests.size() == before + streams);
            for (auto request = before; request < requests.size(); ++request)
            {
                const auto begin = static_cast<std::uint32_t>(requests[request].RangeBegin.value_or(0));
                const std::uint32_t start = begin / chunk * chunk, there = start + onDisk[begin / chunk];
                CHECK(begin <= there);
                CHECK(there - begin <= 2 * Block);
                most = std::max(most, there - begin);
                again += there - begin;
            }
            const std::string cache = ReadBytes(path + L".cache"), whole = Pattern(0, KillSize);
            for (std::uint32_t i = 0; i < streams; ++i)
                onDisk[i] = static_cast<std::uint32_t>(
                    std::mismatch(whole.begin() + i * chunk, whole.begin() + (i + 1) * chunk,
                                  cache.begin() + std::min<std::size_t>(i * chunk, cache.size()), cache.end())
                        .first -
                    (whole.begin() + i * chunk));
        }
        CHECK((FilesOf(path) == "out" && ReadBytes(path) == Pattern(0, KillSize)));
        ::DeleteFileW(path.c_str());
    }
    MESSAGE(killed << " kills; asked again for " << again << " bytes, by one stream at most " << most);
}
