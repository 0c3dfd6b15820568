#include "Ls/System/Io/Path.h"
#include "Tests/Support/TempFolder.h"
#include "Updater/Launch/ShellStart.h"
#include "Updater/Publisher/CheckedPatch.h"

#include <windows.h>

#include <doctest/doctest.h>

using LS::System::Win32::CFileHandle;

namespace
{
bool CanOpen(const std::wstring& path, DWORD access, DWORD share)
{
    return static_cast<bool>(
        CFileHandle(::CreateFileW(path.c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr)));
}
} // namespace

TEST_CASE("a patch that is being checked can be read and started, but not changed, until it is let go")
{
    constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const Tests::CTempFolder folder;
    const std::wstring path = folder.Path(L"patch.exe");
    std::filesystem::copy_file(LS::System::IO::ProgramPath(), path);

    CCheckedPatch patch(path, false);
    CHECK(!patch.IsAccepted()); // nobody signed it
    CHECK(CanOpen(path, GENERIC_READ, FILE_SHARE_READ));
    CHECK(!CanOpen(path, GENERIC_WRITE, ShareAll));
    CHECK(!CanOpen(path, DELETE, ShareAll));
    CHECK(!::DeleteFileW(path.c_str()));
    CHECK(!::MoveFileW(path.c_str(), folder.Path(L"moved.exe").c_str()));

    const ShellStart start = StartThroughShell(path, L"--no-run", folder.Path(), true);
    CHECK(start.Started);
    REQUIRE(start.Process);
    REQUIRE(::WaitForSingleObject(start.Process.Get(), INFINITE) == WAIT_OBJECT_0);

    patch.Delete();
    CHECK(!std::filesystem::exists(path));
}

TEST_CASE("a patch that someone may still write to, that is missing or that is a folder isn't accepted")
{
    const Tests::CTempFolder folder;
    const std::wstring path = folder.Path(L"patch.exe");
    CHECK(!CCheckedPatch(path, false).IsAccepted());
    CHECK(!CCheckedPatch(folder.Path() + L"\\", true).IsAccepted());

    const CFileHandle writer(
        ::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW, 0, nullptr));
    REQUIRE(writer);
    CCheckedPatch patch(path, false);
    CHECK(!patch.IsAccepted());
    patch.Delete(); // can't, and says so only in the log
    CHECK(std::filesystem::exists(path));
}
