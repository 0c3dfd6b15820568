// Links to folders elsewhere are left out: Wine shows them as plain folders. So is a refused access: a Wine
// process may do anything.
#include "Ls/System/Io/Directory.h"
#include "Ls/System/Io/File.h"
#include "Ls/System/String/SystemErrorText.h"
#include "Ls/System/Win32/UniqueHandle.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/WideText.h"

#include <doctest/doctest.h>

#include <functional>
#include <thread>

using namespace LS::System;
using namespace LS::System::IO;
using namespace std::string_literals;

TEST_CASE("missing parents are made, whatever the language and the ending of the path, or the reason is told")
{
    const Tests::CTempFolder temp;
    for (const wchar_t* name : {L"a\\b\\c\\d", L"slash/b/c", L"end\\b\\", L"two\\\\b",
                                L"\u041E\u0431\u043D\u043E\u0432\u0430\\\uD55C\uAE00\\\xD83D\xDE00"})
    {
        const std::wstring path = temp.Path() + L"\\" + name;
        CAPTURE(path);
        CHECK(CDirectory::CreateDirectory(path).Path() == path);
        CHECK(CDirectory::Exists(path));
        CHECK_NOTHROW(CDirectory::CreateDirectory(path)); // it is there already
    }

    Tests::WriteBytes(temp.Path(L"file"), "x");
    // The codes are the system's; a missing drive is "path not found" on Windows, "file not found" under
    // Wine.
    for (const std::wstring& path :
         {temp.Path(L"file\\sub"), L"Q:\\no\\such\\drive"s, L"Q:\\"s, temp.Path(L"a*b")})
    {
        CAPTURE(path);
        const auto exception = Tests::Caught([&] { CDirectory::CreateDirectory(path); });
        REQUIRE(exception);
        CHECK(exception->LastError() != 0);
        CHECK(exception->Message() == LS::SystemErrorTextWide(exception->LastError()));
        CHECK(exception->Function() == "LS::System::IO::CDirectory::CreateDirectory");
    }
}

TEST_CASE("a folder is deleted with what is in it, except what begins with a dot")
{
    const Tests::CTempFolder temp;
    const std::wstring folder = temp.Path(L"f");
    const auto fill = [&] {
        CDirectory::CreateDirectory(folder + L"\\sub\\\uD55C\uAE00");
        Tests::WriteBytes(folder + L"\\\u0416.txt", "x");
        Tests::WriteBytes(folder + L"\\sub\\\uD55C\uAE00\\\xD83D\xDE00", "x");
    };

    fill();
    CDirectory::Delete(folder, true, false);
    CHECK_FALSE(CDirectory::Exists(folder));

    fill(); // not recursive: files go, sub-folders and so the folder stay
    CDirectory::Delete(folder + L"\\", false, false);
    CHECK_FALSE(CFile::Exists(folder + L"\\\u0416.txt"));
    CHECK(CFile::Exists(folder + L"\\sub\\\uD55C\uAE00\\\xD83D\xDE00"));

    fill();
    Tests::WriteBytes(folder + L"\\sub\\.keep", "x");
    CDirectory::CreateDirectory(folder + L"\\.git");
    CDirectory::Delete(folder, true, false);
    CHECK(CFile::Exists(folder + L"\\sub\\.keep"));
    CHECK(CDirectory::Exists(folder + L"\\.git"));
    CHECK_FALSE(CFile::Exists(folder + L"\\\u0416.txt"));
    CHECK_FALSE(CDirectory::Exists(folder + L"\\sub\\\uD55C\uAE00"));

    const std::wstring readOnly = temp.Path(L"readonly"), file = readOnly + L"\\sub\\a";
    CDirectory::CreateDirectory(readOnly + L"\\sub");
    Tests::WriteBytes(file, "x");
    for (const std::wstring& path : {file, readOnly + L"\\sub", readOnly})
        ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY);
    CHECK(Tests::CaughtMessage([&] { CDirectory::Delete(readOnly, true, false); }) ==
          L"Could not Delete \"" + file + L"\"");
    CHECK(CFile::Exists(file));
    CDirectory::Delete(readOnly, true, true);
    CHECK_FALSE(CDirectory::Exists(readOnly));

    const auto missing = Tests::Caught([&] { CDirectory::Delete(readOnly, true, true); });
    REQUIRE(missing);
    CHECK(missing->Message() == L"Could not Delete \"" + readOnly + L"\"");
    CHECK((missing->LastError() == ERROR_FILE_NOT_FOUND || missing->LastError() == ERROR_PATH_NOT_FOUND));
}

TEST_CASE("a file in use is tried again before it is reported, and goes once it is free")
{
    const Tests::CTempFolder temp;
    const std::wstring path = temp.Path(L"held \uD55C.exe");
    Tests::WriteBytes(path, "x");
    Win32::CFileHandle held(
        ::CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    REQUIRE(held);
    const ULONGLONG begin = ::GetTickCount64();
    const auto exception = Tests::Caught([&] { CFile::DeleteFileW(path, 4); });
    CHECK(::GetTickCount64() - begin >= 130); // pauses of 0, 50 and 100 ms, less the clock's tick
    REQUIRE(exception);
    CHECK(exception->Message() == L"Could not Delete \"" + path + L"\"");
    CHECK(exception->LastError() == ERROR_SHARING_VIOLATION);
    CHECK(exception->Function() == "LS::System::IO::CFile::DeleteFileW");

    std::thread releaser([&] {
        ::Sleep(20); // as a scanner lets go in its own time; any time will do
        held.Reset();
    });
    CHECK(CFile::DeleteFileW(path, 100));
    releaser.join();
    CHECK_FALSE(CFile::Exists(path));
    CHECK(Tests::Caught([&] { CFile::DeleteFileW(path, 0); }));
}

TEST_CASE("sizes, attributes and their failures")
{
    const Tests::CTempFolder temp;
    const std::wstring path = temp.Path(L"big"), missing = temp.Path(L"missing");
    {
        const Win32::CFileHandle file(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                                    FILE_ATTRIBUTE_NORMAL, nullptr));
        LARGE_INTEGER size;
        size.QuadPart = 0x180000001; // sparse
        ::SetFilePointerEx(file.Get(), size, nullptr, FILE_BEGIN);
        ::SetEndOfFile(file.Get());
    }
    CHECK(CFile::Size(path) == 0x180000001);
    CHECK_FALSE(CFile::Exists(temp.Path()));
    CHECK_FALSE(CDirectory::Exists(path));

    const CFileSystemInfo file(path), nothing(missing);
    file.SetAttributes(FILE_ATTRIBUTE_READONLY);
    CHECK((file.GetAttributes() & FILE_ATTRIBUTE_READONLY) != 0);
    file.SetAttributes(FILE_ATTRIBUTE_NORMAL);
    CHECK((file.GetAttributes() & FILE_ATTRIBUTE_READONLY) == 0);
    const CDirectoryInfo folder(temp.Path());
    CHECK_NOTHROW(folder.SetAttributes(folder.GetAttributes()));

    const std::pair<std::wstring, std::function<void()>> table[] = {
        {L"Could not get File Attribute Data: \"" + missing + L"\"", [&] { CFile::Size(missing); }},
        {L"Error getting file Attributes:" + missing, [&] { nothing.GetAttributes(); }},
        {L"Could not set File Attributes:" + missing, [&] { nothing.SetAttributes(FILE_ATTRIBUTE_NORMAL); }},
        {L"Invalid attribute set", [&] { file.SetAttributes(INVALID_FILE_ATTRIBUTES); }},
        {L"Invalid attribute set", [&] { file.SetAttributes(FILE_ATTRIBUTE_COMPRESSED); }},
    };
    for (const auto& [message, action] : table)
        CHECK(Tests::CaughtMessage(action) == message);
}

TEST_CASE("the parent of a path is an existing folder or a failure; the current folder is told whole")
{
    const Tests::CTempFolder temp(L"\u0416-\uD55C-" + std::wstring(150, L'x'));
    const std::wstring path = temp.Path();
    CHECK(CDirectory::GetParent(path + L"\\a").Path() == path);
    CHECK(CDirectory::GetParent(path + L"\\a\\").Path() == path);
    CHECK(CDirectory::GetParent(L"C:\\windows").Path() == L"C:\\");
    for (const std::wstring& orphan : {L""s, L"a"s, L"C:\\"s, path + L"\\none\\a", L"\\\\server"s})
        CHECK(Tests::CaughtMessage([&] { CDirectory::GetParent(orphan); }) ==
              L"Directory does not exist :" + orphan);

    const std::wstring before = CDirectory::GetCurrentDirectoryW();
    REQUIRE(::SetCurrentDirectoryW(path.c_str()));
    CHECK(CDirectory::GetCurrentDirectoryW() == path);
    ::SetCurrentDirectoryW(before.c_str());
}
