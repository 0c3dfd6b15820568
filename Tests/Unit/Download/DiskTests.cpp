// The disk's faults: a file that someone holds, a folder that goes, a disk that is full. The messages name
// what failed, and what was received stays for a resume.
#include "Tests/Support/WaitFor.h"
#include "Tests/Unit/Download/DownloadRun.h"

#include <doctest/doctest.h>

#include <thread>

using namespace Tests;
using LS::System::Win32::CFileHandle;

namespace
{
constexpr std::uint32_t Size = 300000;

/// Holds the file so that nobody else can open it, or only with these rights; makes it when missing.
CFileHandle Hold(const std::wstring& path, DWORD share = 0)
{
    return CFileHandle(::CreateFileW(path.c_str(), GENERIC_READ, share, nullptr, OPEN_ALWAYS, 0, nullptr));
}

std::string Ends(CDownloadRun& run, const std::string& url, const std::wstring& path)
{
    CHECK(run.Wait());
    const DownloadStatus status = run.Status();
    const std::string messages = MessagesOf(status.hException.Get(), url, path);
    CHECK(status.Error == !messages.empty());
    run.Drop();
    return messages;
}

/// Under Wine: runs a program of the host system on the file; false elsewhere. Wine gives no handles of it
/// (what stands in the structure means nothing), so its effect is waited for.
bool RunHostProgram(const std::wstring& command, const std::wstring& folder, const std::wstring& name)
{
    using UnixName = char*(CDECL*)(const wchar_t*);
    const auto unixName = reinterpret_cast<UnixName>(
        ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name"));
    if (!unixName)
        return false;
    const std::string unixFolder = unixName(folder.c_str());
    std::wstring line = command + L" " + std::wstring(unixFolder.begin(), unixFolder.end()) + L"/" + name;
    const std::wstring program = L"\\\\?\\unix\\bin\\" + command.substr(0, command.find(L' '));
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    return ::CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                            &startup, &process);
}
} // namespace

TEST_CASE("Files that someone holds fail the download with their names, and free ones let it go on")
{
    const CTempFolder folder(L"dl-held");
    const std::wstring path = folder.Path(L"file");
    CFaultServer server([](const HttpRequest& request) { return FileReply(request, Size); });
    const std::string url = server.Url("/file");
    const std::string getBuffer = "Download Thread Error > GetBuffer Failed. > WriteFileThread Failed. > ";
    {
        const CFileHandle held = Hold(path + L".cache");
        CDownloadRun run(url, path, 0);
        CHECK(Ends(run, url, path) ==
              getBuffer + "CreateFileW returned INVALID_FILE_VALUE.  FileName=P.cache");
        CHECK(FilesOf(path) == "cache state");
    }
    {
        const CFileHandle held = Hold(path + L".0");
        CDownloadRun run(url, path, 0);
        CHECK(Ends(run, url, path) ==
              getBuffer +
                  "File open failed;  P.0; Version=1; StreamIndex=0; Offset=65536; DownloadSize=300000; "
                  "ThreadsUsed=1; LastModified=" +
                  PatternDate);
    }
    {
        const CFileHandle held = Hold(path + L".downloadstate");
        CDownloadRun run(url, path, 0);
        CHECK(Ends(run, url, path) == "Download Thread Error > Could not Delete \"P.downloadstate\"");
    }
    {
        // As a scanner does: the first attempt finds the file held, the next one doesn't.
        CFileHandle held = Hold(path + L".cache");
        std::thread scanner([&] {
            server.WaitForRequests(3);
            ::Sleep(500); // the writer's own tries are over by then
            held.Reset();
        });
        CDownloadRun run(url, path);
        CHECK(Ends(run, url, path).empty());
        scanner.join();
        CHECK(IsPatternFile(path, Size));
    }
}

TEST_CASE("A last block that can't be recorded fails the stream at its end")
{
    const CTempFolder folder(L"dl-last");
    const std::wstring path = folder.Path(L"file");
    CFaultServer server([](const HttpRequest& request) { return FileReply(request, 100); });
    PutDownloadRecord(path, 1, 0);
    const CFileHandle held = Hold(path + L".0");
    CDownloadRun run(server.Url("/file"), path, 0);
    CHECK(Ends(run, server.Url("/file"), path) == "Download Thread Error > DownloadThread > File open "
                                                  "failed;  P.0; Version=1; StreamIndex=0; Offset=100; "
                                                  "DownloadSize=100; ThreadsUsed=1; LastModified=" +
                                                      PatternDate);
}

TEST_CASE("A folder that isn't there or goes away fails the download")
{
    const CTempFolder folder(L"dl-gone");
    const std::wstring missing = folder.Path(L"missing") + L"\\file";
    CFaultServer never([](const HttpRequest& request) { return FileReply(request, Size); });
    CDownloadRun run(never.Url("/file"), missing);
    CHECK(Ends(run, never.Url("/file"), missing) ==
          "Download Thread Error > File open failed;  P.downloadstate; Version=2; ThreadsUsed=1");
    CHECK(never.Requests().empty());

    const std::wstring path = folder.Path(L"goes") + L"\\file";
    std::filesystem::create_directory(folder.Path(L"goes"));
    CFaultServer server([&](const HttpRequest& request) {
        if (request.Index > 0)
            return FileReply(request, Size);
        std::filesystem::remove_all(folder.Path(L"goes"));
        HttpReply reply;
        reply.Head = HttpHead("404 Not Found", {"Content-Length: 0"});
        return reply;
    });
    CDownloadRun second(server.Url("/file"), path, 1);
    CHECK(Ends(second, server.Url("/file"), path) ==
          "Download Thread Error > GetBuffer Failed. > WriteFileThread Failed. > CreateFileW returned "
          "INVALID_FILE_VALUE.  FileName=P.cache");
}

TEST_CASE("A full disk fails the download after the retries; nothing is taken for written")
{
    const CTempFolder folder(L"dl-full");
    const std::wstring path = folder.Path(L"file");
    const std::wstring cache = path + L".cache";
    const auto full = [&] { // a device has no attributes, but it can be opened
        return static_cast<bool>(
            CFileHandle(::CreateFileW(cache.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                      nullptr, OPEN_EXISTING, 0, nullptr)));
    };
    if (!RunHostProgram(L"ln -s /dev/full", folder.Path(), L"file.cache") || !WaitFor(full, 10000))
    {
        MESSAGE("this system has no disk that is always full");
        return;
    }
    CFaultServer server([](const HttpRequest& request) { return FileReply(request, Size); });
    {
        CDownloadRun run(server.Url("/file"), path, 1);
        CHECK(Ends(run, server.Url("/file"), path) ==
              "Download Thread Error > GetBuffer Failed. > WriteFileThread Failed. > WriteFile failed in "
              "WriteOutputThread. FileName=P.cache");
        CHECK(RangesOf(server.Requests()) == "- -");
        CHECK(FilesOf(path) == "state");
    }
    // Room again: the next download goes on as if nothing had been.
    // (Wine itself doesn't delete what leads to a device.)
    CHECK(RunHostProgram(L"rm", folder.Path(), L"file.cache"));
    CHECK(WaitFor([&] { return !full(); }, 10000));
    CDownloadRun run(server.Url("/file"), path);
    CHECK(Ends(run, server.Url("/file"), path).empty());
    CHECK(IsPatternFile(path, Size));
}

TEST_CASE("A download that can't be finalised says what is wrong")
{
    const CTempFolder folder(L"dl-final");
    CFaultServer server([](const HttpRequest& request) {
        HttpReply reply = FileReply(request, Size);
        reply.CutAfter = 131072;
        reply.End = HttpReply::Ending::Stall;
        return reply;
    });
    const std::string url = server.Url("/file");

    // This one goes on for 25 s, the other one is over before.
    const std::wstring held = folder.Path(L"held");
    CDownloadRun heldRun(url, held);
    CHECK(heldRun.WaitForBytes(131072));
    const CFileHandle reader = Hold(held + L".cache", FILE_SHARE_READ | FILE_SHARE_WRITE);
    CHECK(static_cast<bool>(reader));
    server.Release();

    // Complete by its record, but the size isn't that of the download.
    const std::wstring wrong = folder.Path(L"wrong");
    PutDownloadRecord(wrong, 1, Size);
    PutStreamRecord(wrong, 0, Size, Size, 1);
    WriteBytes(wrong + L".cache", std::string(Size + 1, 'x'));
    CDownloadRun wrongRun(url, wrong);
    CHECK(Ends(wrongRun, url, wrong) ==
          "Download Thread Error > Output file is wrong size. P should be 300000 but is 300001");
    CHECK(FilesOf(wrong) == "");

    CHECK(Ends(heldRun, url, held) == "Download Thread Error > Failed to move cache file to P");
    CHECK(FilesOf(held) == "cache");
}
