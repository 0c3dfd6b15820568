// The patch's file on its way from the server to its start: its signature, and a disk that doesn't take it.
// Left out since Wine can't show it: a publisher whose root isn't trusted is refused by Windows alone, so on
// a real Windows the throw-away root must be trusted for these tests.
#include "Tests/Run/Sandbox.h"

#include <doctest/doctest.h>

#include <fstream>

using Tests::CSandbox;
namespace fs = std::filesystem;
using LS::System::Win32::CFileHandle;

namespace
{
CFileHandle Open(const fs::path& path, DWORD access, DWORD share)
{
    return CFileHandle(::CreateFileW(path.c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr));
}
} // namespace

TEST_CASE("only a patch of an accepted publisher runs; any other is deleted")
{
    const struct
    {
        std::string Sample;
        bool Accepted;
        const wchar_t* Product = L"LsRunSigned";
    } cases[] = {
        {"larkspur-comma-point", true},
        {"larkspur-point", true},
        {"larkspur-plain", true},
        {"larkspur-comma", false},
        {"larkspur-upper", false},
        {"name-only", false},
        {"name-with-number", false},
        {"bluestacks", false},
        {"unsigned", false},
        {"tampered", false},
        {"larkspur-comma-point", false, L"BlueStacks"},
    };
    for (const auto& one : cases)
    {
        CAPTURE(one.Sample);
        CSandbox sandbox(one.Product);
        sandbox.Patch = Tests::Sample(one.Sample);
        const auto outcome = sandbox.Run(sandbox.From(), L"/exit=0");
        CHECK(outcome.ExitCode == (one.Accepted ? 0 : 260));
        CHECK(outcome.Events == (one.Accepted ? "Yes" : "No"));
        CHECK(fs::exists(sandbox.PatchFile()) == one.Accepted);
        CHECK(fs::exists(sandbox.PatchRecord) == one.Accepted);
    }
}

TEST_CASE("a full disk ends the run with 1027 and the log says so")
{
    // The file that a fetch is about to write is made a link to the device that is always full, when its
    // request has come and the way has been cleared. Only Wine can start the machine's own "ln"; a real
    // Windows is left out here.
    using UnixName = char*(__cdecl*)(const wchar_t*);
    const auto unixName = reinterpret_cast<UnixName>(
        ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name"));
    if (!unixName)
        return;
    CSandbox sandbox;
    // Runs the command on the file and waits until the file is there, or is gone.
    const auto onFile = [&](const char* command, const std::string& name, bool there) {
        const fs::path path = sandbox.DataFolder / name;
        // (A device has no attributes; it can be opened.)
        const auto done = [&] {
            const auto file = Open(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
            return static_cast<bool>(file) == there;
        };
        std::string line = command + (" \"" + std::string(unixName(path.c_str())) + "\"");
        STARTUPINFOA startup = {};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION process = {};
        if (done())
            return;
        ::CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                         &process);
        const ULONGLONG deadline = ::GetTickCount64() + 20000;
        while (!done() && ::GetTickCount64() < deadline)
            ::Sleep(10);
    };
    const std::string streams = sandbox.PatchName + ".cache";
    sandbox.File = [&](const Tests::HttpRequest& request) {
        const bool inStreams = request.Header("User-Agent").value_or("").find("Updater") != std::string::npos;
        onFile("/bin/ln -s /dev/full", inStreams ? streams : sandbox.PatchName, true);
        return Tests::BytesReply(request, sandbox.Patch);
    };
    const auto outcome = sandbox.Run(sandbox.From(), L"/exit=0");
    for (const std::string& name : {streams, sandbox.PatchName})
        onFile("/bin/rm", name, false); // which the sandbox couldn't
    CHECK(outcome.ExitCode == 1027);
    CHECK(outcome.Events == "No");
    CHECK(sandbox.Logged("WriteFile failed in WriteOutputThread"));
    CHECK(sandbox.Logged("Error=10 ")); // the single request's code for a full disk
    CHECK(sandbox.Logged("Download complete but !DownloadIsOk()"));
}
