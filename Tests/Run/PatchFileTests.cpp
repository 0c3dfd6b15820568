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
        const wchar_t* Product;
        bool Accepted;
    } cases[] = {
        {"larkspur-comma-point", L"LsRunSigned", true},
        {"larkspur-point", L"LsRunSigned", true},
        {"larkspur-plain", L"LsRunSigned", true},
        {"larkspur-comma", L"LsRunSigned", false},
        {"larkspur-upper", L"LsRunSigned", false},
        {"name-only", L"LsRunSigned", false},
        {"name-with-number", L"LsRunSigned", false},
        {"bluestacks", L"LsRunSigned", false},
        {"unsigned", L"LsRunSigned", false},
        {"tampered", L"LsRunSigned", false},
        {"larkspur-comma-point", L"BlueStacks", false},
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

TEST_CASE("an accepted patch can't be changed or replaced before it runs")
{
    CSandbox sandbox;
    const auto updater = sandbox.Start(sandbox.From(), L"/wait-event=LsRunHeld");
    const LS::System::Win32::CKernelHandle release(::CreateEventW(nullptr, TRUE, FALSE, L"LsRunHeld"));
    REQUIRE(updater->WaitForEvent("Yes")); // accepted; Park comes before its start
    while (!fs::exists(sandbox.PatchRecord) && ::WaitForSingleObject(updater->Process(), 0) == WAIT_TIMEOUT)
    {
        constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
        REQUIRE(!Open(sandbox.PatchFile(), GENERIC_WRITE, ShareAll));
        REQUIRE(!Open(sandbox.PatchFile(), DELETE, ShareAll));
        REQUIRE(Open(sandbox.PatchFile(), GENERIC_READ, ShareAll));
    }
    ::SetEvent(release.Get());
    CHECK(updater->Finish().ExitCode == 0);
}

TEST_CASE("an old patch file that can't be deleted ends the run with 1025")
{
    for (const bool readOnly : {false, true})
    {
        CAPTURE(readOnly);
        CSandbox sandbox;
        fs::create_directories(sandbox.DataFolder);
        std::ofstream(sandbox.PatchFile()) << "old";
        CFileHandle locked;
        if (readOnly)
            ::SetFileAttributesW(sandbox.PatchFile().c_str(), FILE_ATTRIBUTE_READONLY);
        else
            locked = Open(sandbox.PatchFile(), GENERIC_READ, 0);
        const auto outcome = sandbox.Run(sandbox.From());
        CHECK(outcome.ExitCode == 1025);
        CHECK(outcome.Events == "No");
        CHECK(sandbox.Logged("Failed to delete old patch file"));
        locked.Reset();
        ::SetFileAttributesW(sandbox.PatchFile().c_str(), FILE_ATTRIBUTE_NORMAL);
        CHECK(*Tests::ReadWholeFile(sandbox.PatchFile().wstring()) == "old");
    }
}

TEST_CASE("an old patch file makes way for the new one")
{
    CSandbox sandbox;
    fs::create_directories(sandbox.DataFolder);
    std::ofstream(sandbox.PatchFile()) << std::string(sandbox.Patch->size() + 1000, 'o');
    CHECK(sandbox.Run(sandbox.From(), L"/exit=0").ExitCode == 0);
    CHECK(*Tests::ReadWholeFile(sandbox.PatchFile().wstring()) == *sandbox.Patch);
}

TEST_CASE("a data folder that can't be made ends the run with 1027")
{
    CSandbox sandbox;
    fs::create_directories(sandbox.DataFolder.parent_path());
    std::ofstream(sandbox.DataFolder) << "a file in its place";
    const auto outcome = sandbox.Run(sandbox.From());
    CHECK(outcome.ExitCode == 1027);
    CHECK(outcome.Events == "No");
    CHECK(sandbox.Logged("Download complete but !DownloadIsOk()"));
    CHECK(*Tests::ReadWholeFile(sandbox.DataFolder.wstring()) == "a file in its place");
}

TEST_CASE("a Park copy that can't be written ends the run with 1793 before anything is started")
{
    CSandbox sandbox;
    const CFileHandle locked = Open(sandbox.Program / L"Park.exe", GENERIC_READ, 0);
    const auto outcome = sandbox.Run(sandbox.From(), L"/exit=0");
    CHECK(outcome.ExitCode == 1793);
    CHECK(outcome.Events == "Yes No");
    CHECK(!fs::exists(sandbox.PatchRecord));
}

TEST_CASE("a full disk ends the run with 1027 and the log says so")
{
    // The patch's file is made a link to the device that is always full, once the updater has cleared the
    // way for its download. Only Wine can start the machine's own "ln"; a real Windows is left out here.
    using UnixName = char*(__cdecl*)(const wchar_t*);
    const auto unixName = reinterpret_cast<UnixName>(
        ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name"));
    if (!unixName)
        return;
    CSandbox sandbox;
    sandbox.File = [&](const Tests::HttpRequest& request) {
        std::string link = unixName(sandbox.DataFolder.c_str());
        link = "/bin/ln -s /dev/full \"" + link + "/" + sandbox.PatchName + "\"";
        STARTUPINFOA startup = {};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION process = {};
        ::CreateProcessA(nullptr, link.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                         &process);
        const ULONGLONG deadline = ::GetTickCount64() + 20000;
        while (!Open(sandbox.PatchFile(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE) &&
               ::GetTickCount64() < deadline)
            ::Sleep(10);
        return Tests::BytesReply(request, sandbox.Patch);
    };
    const auto outcome = sandbox.Run(sandbox.From(), L"/exit=0");
    CHECK(outcome.ExitCode == 1027);
    CHECK(outcome.Events == "No");
    CHECK(sandbox.Logged("Download complete but !DownloadIsOk()"));
    for (const std::string& line : sandbox.LogLines())
        MESSAGE(line);
    ::DeleteFileW(sandbox.PatchFile().c_str()); // the library's remove_all can't cope with such a link
}
