// The fetch as the run sees it: streams first and then a single request, once; and a run that goes on where
// one that was killed had to stop. Wine can't show that a deleted file which others have open refuses every
// access, that a running patch can't be deleted, nor that the copy of an old Park is young: what Wine tells
// as the time of creation is that of writing.
#include "Tests/Run/Sandbox.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/WaitFor.h"

#include <doctest/doctest.h>

using LS::System::Win32::CFileHandle;
using Tests::CSandbox;
using Tests::HttpRequest;
namespace fs = std::filesystem;

namespace
{
bool InStreams(const HttpRequest& request)
{
    return request.Header("User-Agent").value_or("").find("; Updater ") != std::string::npos;
}

/// "S" for each request of the streams, "1" for each single one.
std::string Requests(CSandbox& sandbox)
{
    std::string kinds;
    for (const HttpRequest& request : sandbox.Server().Requests())
    {
        if (request.Target.rfind("/files/", 0) == 0)
            kinds += InStreams(request) ? 'S' : '1';
    }
    return kinds;
}

constexpr FILETIME LongAgo = {0, 0x01D80000}; // in the year 2022
constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/// As a scanner has it.
CFileHandle Hold(const fs::path& path, DWORD access, DWORD share)
{
    return CFileHandle(::CreateFileW(path.c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr));
}
} // namespace

TEST_CASE("the single request is tried once, when the streams failed or brought a file of the wrong signer")
{
    const struct
    {
        std::string Promise;
        const char* StreamsSample; ///< null: refused
        const char* SingleSample;
        std::uint32_t Code;
        std::string Requests, Marks;
    } cases[] = {
        {"good at once", "larkspur-point", "unsigned", 0, "S", "NewDLSuccess 1; Update 0"},
        {"wrong signer first", "bluestacks", "larkspur-point", 0, "S1",
         "NewDLSuccess 1; PatchLSSigned_New NA; OldDLSuccess NA; Update 0"},
        {"streams refused", nullptr, "larkspur-point", 0, "SSSSSS1",
         "NewDL 0 1DL T Error.-HTTP status is bad:404 *; OldDLSuccess NA; Update 0"},
        {"wrong signer twice", "tampered", "bluestacks", 260, "S1",
         "NewDLSuccess 1; PatchLSSigned_New NA; OldDLSuccess NA; PatchLSSigned_Old NA; "
         "CExitCodeException 260; Update 260"},
    };
    for (const auto& one : cases)
    {
        CAPTURE(one.Promise);
        CSandbox sandbox;
        sandbox.File = [&](const HttpRequest& request) {
            const char* const sample = InStreams(request) ? one.StreamsSample : one.SingleSample;
            return sample ? Tests::BytesReply(request, Tests::Sample(sample)) : Tests::NotFound();
        };
        CHECK(sandbox.Run(sandbox.From(), L"/exit=0").ExitCode == one.Code);
        CHECK(Requests(sandbox) == one.Requests);
        const std::string marks = sandbox.Marks();
        CAPTURE(marks);
        CHECK(Tests::Fits(marks, one.Marks));
    }
}

TEST_CASE("a run goes on where one that was killed had to stop")
{
    CSandbox sandbox;
    auto big = std::make_shared<std::string>(*sandbox.Patch);
    big->resize(4 << 20); // what follows a program's end doesn't count for Windows, but does for its signer
    sandbox.Patch = big;
    sandbox.File = [&](const HttpRequest& request) { return Tests::HalfReply(request, sandbox.Patch); };
    {
        const auto updater = sandbox.StartAnswered(sandbox.From(), L"");
        // Two blocks of the stream may be on their way to the disk.
        REQUIRE(Tests::WaitFor([&] {
            std::error_code none;
            const auto size = std::filesystem::file_size(sandbox.PatchFile().wstring() + L".cache", none);
            return !none && size >= (2u << 20) - (2u << 16);
        }));
        updater->End();
    }
    // What lies in the folder is a month old by now, but for two files; one is in use.
    for (const char* name : {"Park-1.exe", "A.MSI", "A.exe.cache", "A.msi.downloadstate", "A.exe.0",
                             "A.exe.1", "A.cache", "A.exe.txt", "Held.exe", "Young.exe", "Young.exe.cache"})
        Tests::WriteBytes(sandbox.DataFolder / name, "old");
    for (const auto& entry : fs::directory_iterator(sandbox.DataFolder))
        if (entry.path().filename().wstring().rfind(L"Young", 0) != 0)
            ::SetFileTime(Hold(entry.path(), FILE_WRITE_ATTRIBUTES, ShareAll).Get(), &LongAgo, nullptr,
                          &LongAgo);
    const auto held = Hold(sandbox.DataFolder / L"Held.exe", GENERIC_READ, 0);
    sandbox.File = [&](const HttpRequest& request) { return Tests::BytesReply(request, sandbox.Patch); };
    const auto outcome = sandbox.Run(sandbox.From());
    CHECK(outcome.ExitCode == 260); // the whole file came, and its bytes aren't the signed ones
    std::uint64_t begin = 0;
    for (const HttpRequest& request : sandbox.Server().Requests())
        begin = request.RangeBegin.value_or(begin);
    CHECK(begin >= (2u << 20) - (2u << 16));
    CHECK(begin <= (2u << 20));
    std::set<std::wstring> left;
    for (const auto& entry : fs::directory_iterator(sandbox.DataFolder))
        left.insert(entry.path().filename().wstring());
    CHECK(left ==
          std::set<std::wstring>{L"A.cache", L"A.exe.txt", L"Held.exe", L"Young.exe", L"Young.exe.cache"});
}

TEST_CASE("an old patch, a finished download and a patch to be checked are waited for while others hold them")
{
    CSandbox sandbox;
    const fs::path patch = sandbox.PatchFile(), cache = patch.wstring() + L".cache";
    fs::create_directories(sandbox.DataFolder);
    Tests::WriteBytes(patch, "old");
    auto held = Hold(patch, GENERIC_READ, 0);
    sandbox.File = [&](const HttpRequest& request) { return Tests::HalfReply(request, sandbox.Patch); };
    const auto updater = sandbox.StartAnswered(sandbox.From(), L"/exit=0");
    const auto waits = [&](const char* behind) {
        return Tests::WaitFor([&] {
            const std::string log = Tests::ReadBytes(sandbox.LogFile.wstring());
            return updater->HasEnded() || log.find("Waiting for another", log.find(behind)) != log.npos;
        });
    };
    REQUIRE(waits("GetPatchEXE2() : Begin"));
    held.Reset();
    REQUIRE(sandbox.WaitForLog(*updater, "Starting wait for download"));
    REQUIRE(Tests::WaitFor([&] { return updater->HasEnded() || fs::exists(cache); }));
    held = Hold(cache, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE); // not to be moved
    sandbox.Server().Release();
    REQUIRE(waits("Starting wait for download"));
    auto writer = Hold(cache, GENERIC_WRITE, ShareAll); // nobody may be sure of its bytes
    held.Reset();
    REQUIRE(waits("GetPatchEXE2() : Success"));
    writer.Reset();
    CHECK(updater->Finish().ExitCode == 0);
    CHECK(Requests(sandbox) == "S");
}

TEST_CASE("a refused file that others still read makes way; one that can't be deleted ends in the refusal")
{
    for (const bool readOnly : {false, true})
    {
        CAPTURE(readOnly);
        CSandbox sandbox;
        const fs::path patch = sandbox.PatchFile(), cache = patch.wstring() + L".cache";
        CFileHandle held;
        sandbox.File = [&](const HttpRequest& request) {
            if (InStreams(request))
                return Tests::HalfReply(request, Tests::Sample("bluestacks"));
            auto reply = Tests::BytesReply(request, sandbox.Patch);
            reply.TrickleBytes = static_cast<std::size_t>(reply.BodyLength / 2 + 1);
            reply.Body = [&, fill = reply.Body](std::uint64_t at, char* bytes, std::size_t size) {
                // The reader lets go when the new file is being written: what was deleted is another one.
                std::error_code none;
                if (at != 0 && Tests::WaitFor([&] { return fs::file_size(patch, none) - 1 < at; }))
                    held.Reset();
                fill(at, bytes, size);
            };
            return reply;
        };
        const auto updater = sandbox.StartAnswered(sandbox.From(), L"/exit=0");
        REQUIRE(Tests::WaitFor([&] { return updater->HasEnded() || fs::exists(cache); }));
        held = Hold(cache, GENERIC_READ, ShareAll);
        if (readOnly)
            ::SetFileAttributesW(cache.c_str(), FILE_ATTRIBUTE_READONLY);
        sandbox.Server().Release();
        CHECK(updater->Finish().ExitCode == (readOnly ? 260 : 0));
        CHECK(Requests(sandbox) == std::string(readOnly ? "S" : "S1"));
        CHECK(sandbox.Logged("Could not delete the refused patch") == readOnly);
    }
}
