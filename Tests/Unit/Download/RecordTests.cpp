// The two small files from which a download goes on: their bytes, and what is done with a bad one.
#include "Ls/System/Util/Crc32.h"
#include "Tests/Support/Caught.h"
#include "Tests/Unit/Download/DownloadRun.h"

#include <doctest/doctest.h>

using namespace Tests;
using namespace LS::System::Net::MultiStreamDownload;

namespace
{
/// Read and write poll the thread that they are called on.
class CIdleThread : public LS::System::Win32::CThread
{
public:
    CIdleThread() : CThread({}) {}
};

std::string Number(std::uint32_t number)
{
    return {reinterpret_cast<const char*>(&number), 4};
}

std::string WithCheck(const std::string& bytes)
{
    return bytes + Number(LS::System::Util::Crc32(bytes.data(), bytes.size()));
}

const std::string StateBytes = WithCheck(Number(2) + Number(70000) + Number(2));
const std::string StreamBytes =
    WithCheck(Number(1) + Number(1) + Number(65536) + Number(70000) + Number(2) + PatternDate +
              std::string(50 - PatternDate.size(), '\0') + std::string(2, '\0'));
} // namespace

TEST_CASE("Records lie on disk byte for byte as laid down, over whatever was there")
{
    const CTempFolder folder;
    const std::wstring path = folder.Path(L"p");
    CIdleThread thread;
    for (const std::string& earlier : {std::string(), std::string(5, 'x'), std::string(500, 'x')})
    {
        CAPTURE(earlier.size());
        if (!earlier.empty())
        {
            WriteBytes(path + L".downloadstate", earlier);
            WriteBytes(path + L".1", earlier);
        }
        DownloadProgress(path, 2, 70000).Write();
        CHECK(ReadBytes(path + L".downloadstate") == StateBytes);

        StreamProgress progress(path, 1);
        CHECK(progress.Values.Version == 1);
        CHECK(progress.Values.LastModifiedText().empty());
        progress.Values.DownloadSize = 70000;
        progress.Values.ThreadsUsed = 2;
        progress.Values.SetLastModified(PatternDate);
        for (const std::uint32_t offset : {70000U, 65536U}) // the file stays open between the two
        {
            progress.Values.Offset = offset;
            progress.Write(thread);
        }
        CHECK(ReadBytes(path + L".1") == StreamBytes);
    }

    DownloadProgress state(path);
    CHECK(state.Read());
    CHECK(state.Values.DownloadSize == 70000);
    CHECK(state.Values.ThreadsUsed == 2);
    StreamProgress stream(path, 1);
    CHECK(stream.Read(thread));
    CHECK(stream.Values.StreamIndex == 1);
    CHECK(stream.Values.Offset == 65536);
    CHECK(stream.Values.LastModifiedText() == PatternDate);
}

TEST_CASE("A date that is too long is cut so that the field still ends in a zero byte")
{
    StreamRecord record;
    record.SetLastModified(std::string(80, 'd'));
    CHECK(record.LastModifiedText() == std::string(49, 'd'));
    record.SetLastModified("short");
    CHECK(Encode(record)[20 + 5] == 0);
    CHECK(record.LastModifiedText() == "short");
    record.LastModified.fill('f'); // as a foreign program may write it
    CHECK(record.LastModifiedText() == std::string(50, 'f'));
}

TEST_CASE("Bad records read as none and leave the values alone")
{
    const CTempFolder folder;
    const std::wstring path = folder.Path(L"p");
    CIdleThread thread;
    const auto reads = [&](const std::string& stateBytes, const std::string& streamBytes) {
        WriteBytes(path + L".downloadstate", stateBytes);
        WriteBytes(path + L".1", streamBytes);
        DownloadProgress state(path);
        StreamProgress stream(path, 1);
        const bool stateRead = state.Read();
        const bool streamRead = stream.Read(thread);
        CHECK(stateRead == (state.Values.ThreadsUsed == 2));
        CHECK(streamRead == (stream.Values.ThreadsUsed == 2));
        return std::pair(stateRead, streamRead);
    };
    const std::pair neither(false, false), both(true, true);
    CHECK(reads(StateBytes, StreamBytes) == both);
    CHECK(reads(StateBytes + "tail", StreamBytes + "tail") == both); // only the record is read
    CHECK(reads("", "") == neither);
    CHECK(reads(StreamBytes, StateBytes) == neither);
    CHECK(reads(std::string(16, '\0'), std::string(76, '\0')) == neither);
    for (std::size_t i = 0; i < StateBytes.size(); ++i)
        CHECK(reads(StateBytes.substr(0, i), StreamBytes.substr(0, i * 4)) == neither);
}

TEST_CASE("A record file that can't be opened says so with its values")
{
    const CTempFolder folder;
    const std::wstring path = folder.Path(L"p");
    CIdleThread thread;
    const auto lock = [](const std::wstring& file) {
        WriteBytes(file, "x");
        return LS::System::Win32::CFileHandle(
            ::CreateFileW(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    };
    const auto stateLock = lock(path + L".downloadstate");
    const auto streamLock = lock(path + L".0");
    CHECK(CaughtMessage([&] { DownloadProgress(path, 2, 10).Write(); }) ==
          L"File open failed;  " + path + L".downloadstate; Version=2; ThreadsUsed=2");
    StreamProgress progress(path, 0);
    progress.Values.Offset = 5;
    progress.Values.SetLastModified("D");
    CHECK(CaughtMessage([&] { progress.Write(thread); }) ==
          L"File open failed;  " + path +
              L".0; Version=1; StreamIndex=0; Offset=5; DownloadSize=0; ThreadsUsed=0; LastModified=D");
    CHECK_FALSE(progress.Read(thread));
}
