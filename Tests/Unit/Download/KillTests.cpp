// A program that downloads is killed at random points and started anew, until it gets through. Whatever the
// moment, the records never tell of bytes that aren't on disk, no more than two blocks of a stream are asked
// for again, and the file comes out whole.
#include "Ls/System/Io/Path.h"
#include "Tests/Support/Soak.h"
#include "Tests/Unit/Download/DownloadRun.h"

#include <doctest/doctest.h>

#include <atomic>
#include <random>

using namespace Tests;
using LS::System::Win32::CKernelHandle;

namespace
{
constexpr std::uint32_t Size = 4000000;
constexpr std::uint32_t TwoBlocks = 2 * 65536;

/// The child's output goes nowhere: its log would drown the test's.
CKernelHandle StartChild(const std::string& url, const std::wstring& path)
{
    const std::wstring program =
        std::wstring(LS::System::IO::FolderOf(LS::System::IO::ProgramPath())) + L"\\DownloadChild.exe";
    std::wstring line =
        L"\"" + program + L"\" " + std::wstring(url.begin(), url.end()) + L" \"" + path + L"\"";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    PROCESS_INFORMATION process = {};
    REQUIRE(::CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                             &startup, &process));
    ::CloseHandle(process.hThread);
    return CKernelHandle(process.hProcess);
}

/// Bytes of the pattern that the cache file holds from begin on, at most limit.
std::uint32_t OnDisk(const std::string& cache, std::uint32_t begin, std::uint32_t limit)
{
    const std::string expected = Pattern(begin, limit);
    std::uint32_t count = 0;
    while (count < limit && begin + count < cache.size() && cache[begin + count] == expected[count])
        ++count;
    return count;
}

/// The offset of a stream's record, or the range's start when there is none.
std::uint32_t Recorded(const std::wstring& path, std::uint32_t index, std::uint32_t start)
{
    const std::string file = ReadBytes(Engine::StreamFilePath(path, index));
    Engine::StreamRecordBytes bytes{};
    if (file.size() != bytes.size())
        return start;
    std::copy(file.begin(), file.end(), bytes.begin());
    const auto record = Engine::Decode(bytes);
    CHECK(record.has_value()); // written with one call: never torn
    return record ? record->Offset : start;
}
} // namespace

TEST_CASE("A download that is killed over and over ends whole and fetches almost nothing twice")
{
    const CTempFolder folder(L"dl-kill");
    std::mt19937 random(20261114);
    // A killed run gets so many bytes per stream and no more, so that it is killed in the middle.
    std::atomic<std::uint32_t> allowed{0};
    CFaultServer server([&](const HttpRequest& request) {
        HttpReply reply = FileReply(request, Size);
        if (allowed < reply.BodyLength)
        {
            reply.CutAfter = allowed;
            reply.End = HttpReply::Ending::Stall;
        }
        return reply;
    });

    const unsigned kills = Loops(24, 200);
    unsigned killed = 0;
    std::uint64_t again = 0, most = 0;
    for (unsigned file = 0; killed < kills; ++file)
    {
        const std::uint32_t streams = file % 2 + 1;
        const std::uint32_t chunk = Size / streams;
        const std::wstring path = folder.Path(std::to_wstring(file));
        std::vector<std::uint32_t> offsets(streams);
        for (std::uint32_t i = 0; i < streams; ++i)
            offsets[i] = chunk * i;
        if (streams == 2)
            PutDownloadRecord(path, 2, Size);

        for (unsigned run = random() % 5 + 2; run > 0 && killed < kills; --run, ++killed)
        {
            allowed = random() % (Size / 4);
            const std::uint64_t sent = server.BodyBytesSent();
            const auto requests = static_cast<unsigned>(server.Requests().size());
            const CKernelHandle child = StartChild(server.Url("/file"), path);
            // All, or a part, of what it is given: the rest is still on its way when it dies.
            std::uint32_t asking = 0;
            for (std::uint32_t i = 0; i < streams; ++i)
                asking += offsets[i] < chunk * (i + 1);
            if (asking == 0)
                break;
            CHECK(server.WaitForRequests(requests + asking));
            CHECK(server.WaitForBodyBytes(sent + random() % (allowed + 1)));
            ::TerminateProcess(child.Get(), 9);
            ::WaitForSingleObject(child.Get(), INFINITE);

            const std::string cache = ReadBytes(path + L".cache");
            for (std::uint32_t i = 0; i < streams; ++i)
            {
                const std::uint32_t offset = Recorded(path, i, chunk * i);
                const std::uint32_t there = OnDisk(cache, chunk * i, chunk);
                CHECK(offset - chunk * i <= there);
                CHECK(chunk * i + there - offset <= TwoBlocks);
                CHECK(offset >= offsets[i]);
                again += chunk * i + there - offset;
                most = std::max<std::uint64_t>(most, chunk * i + there - offset);
                offsets[i] = offset;
            }
        }

        allowed = Size;
        const auto requests = server.Requests().size();
        const CKernelHandle child = StartChild(server.Url("/file"), path);
        ::WaitForSingleObject(child.Get(), 60000);
        DWORD exitCode = 0;
        ::GetExitCodeProcess(child.Get(), &exitCode);
        CHECK(exitCode == 0);
        CHECK(IsPatternFile(path, Size));
        CHECK(FilesOf(path) == "out");
        // Asked for from the recorded offsets on, and for nothing else.
        std::vector<HttpRequest> asked = server.Requests();
        asked.erase(asked.begin(), asked.begin() + static_cast<std::ptrdiff_t>(requests));
        for (const HttpRequest& request : asked)
        {
            const auto begin = static_cast<std::uint32_t>(request.RangeBegin.value_or(0));
            CHECK(std::find(offsets.begin(), offsets.end(), begin) != offsets.end());
        }
        ::DeleteFileW(path.c_str());
    }
    MESSAGE(killed << " kills, " << again << " bytes on disk asked for again, at most " << most
                   << " by one stream");
}
