// Files, folders and paths. Links to folders elsewhere are left out: Wine shows them as plain folders. So is
// a refused access: a Wine process may do anything.
#include "Ls/System/Io/Directory.h"
#include "Ls/System/Io/File.h"
#include "Ls/System/Io/Path.h"
#include "Ls/System/Io/ValidatePath.h"
#include "Ls/System/String/SystemErrorText.h"
#include "Ls/System/Win32/UniqueHandle.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/TempFolder.h"

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
        CHECK(CDirectory::CreateDirectory(path).Path() == path);
        CHECK(CDirectory::Exists(path));
    }
    Tests::WriteBytes(temp.Path(L"file"), "x");
    for (const std::wstring& path : {temp.Path(L"file\\sub"), L"Q:\\no\\drive"s, L"Q:\\"s, temp.Path(L"a*b")})
    {
        const auto exception = Tests::Caught([&] { CDirectory::CreateDirectory(path); });
        REQUIRE((exception && exception->LastError() != 0));
        CHECK(exception->Message() == LS::SystemErrorTextWide(exception->LastError()));
    }
}

TEST_CASE("a folder is deleted with what is in it, except what begins with a dot")
{
    const Tests::CTempFolder temp;
    const std::wstring folder = temp.Path(L"f"), sub = folder + L"\\sub\\\uD55C\uAE00",
                       file = sub + L"\\\u0416";
    const auto fill = [&] {
        CDirectory::CreateDirectory(sub);
        for (const std::wstring& path : {file, folder + L"\\x.txt"})
            Tests::WriteBytes(path, "x");
    };
    fill();
    CDirectory::Delete(folder + L"\\", false,
                       false); // not recursive: files go, sub-folders and so the folder stay
    CHECK((CFile::Exists(file) && !CFile::Exists(folder + L"\\x.txt")));
    for (const std::wstring& path : {file, sub, folder})
        ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY);
    const std::wstring failure = L"Could not Delete \"";
    Tests::CheckFailures({{[&] { CDirectory::Delete(folder, true, false); }, failure + file + L"\""},
                          {[&] { CDirectory::Delete(folder, true, true); }, L""},
                          {[&] { CDirectory::Delete(folder, true, true); }, failure + folder + L"\""}});
    CHECK_FALSE(CDirectory::Exists(folder));
    fill();
    Tests::WriteBytes(folder + L"\\sub\\.keep", "x");
    CDirectory::Delete(folder, true, false);
    CHECK((CFile::Exists(folder + L"\\sub\\.keep") && !CDirectory::Exists(sub)));
}

TEST_CASE("a file in use is tried again before it is reported, and goes once it is free")
{
    const Tests::CTempFolder temp;
    const std::wstring path = temp.Path(L"held \uD55C.exe");
    Tests::WriteBytes(path, "x");
    Win32::CFileHandle held(::CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    const ULONGLONG begin = ::GetTickCount64();
    Tests::CheckFailures({{[&] { CFile::DeleteFileW(path, 4); }, L"Could not Delete \"" + path + L"\"",
                           "CFile::DeleteFileW", ERROR_SHARING_VIOLATION}});
    CHECK(::GetTickCount64() - begin >= 130); // pauses of 0, 50 and 100 ms, less the clock's tick
    std::thread releaser([&] {
        ::Sleep(20); // as a scanner lets go in its own time; any time will do
        held.Reset();
    });
    CHECK(CFile::DeleteFileW(path, 100));
    releaser.join();
    CHECK_FALSE(CFile::Exists(path));
}

TEST_CASE("sizes, parents and paths, and how their failures are told")
{
    const Tests::CTempFolder temp(L"\u0416-" + std::wstring(150, L'x'));
    const std::wstring path = temp.Path(L"big"), missing = temp.Path(L"missing"), orphan = missing + L"\\a";
    Tests::WriteBytes(path, "x");
    std::filesystem::resize_file(path, 0x180000001); // sparse
    CHECK(CFile::Size(path) == 0x180000001);
    CHECK_FALSE((CFile::Exists(temp.Path()) || CDirectory::Exists(path)));
    CHECK(CDirectory::GetParent(missing).Path() == temp.Path());
    const std::wstring tooLong(261, L'a');
    CHECK_NOTHROW(ValidatePath(tooLong.substr(1)));
    Tests::CheckFailures(
        {{[&] { CFile::Size(missing); }, L"Could not get File Attribute Data: \"" + missing + L"\""},
         {[&] { CFileSystemInfo(missing).GetAttributes(); }, L"Error getting file Attributes:" + missing},
         {[&] { CDirectory::GetParent(orphan); }, L"Directory does not exist :" + orphan},
         {[&] { ValidatePath(L""); }, L"Empty path"},
         {[&] { ValidatePath(tooLong); }, L"Path was too long:" + tooLong},
         {[&] { ValidatePath(L"\t "); }, L"Path contains only whitespace characters:\t "},
         {[&] { ValidatePath(L" <x"); }, L"Path contains one or more invalid characters: <x"}});
}

TEST_CASE("a name chosen by a server is one plain component or refused")
{
    const std::wstring plain = L"a,Patch 1.2.exe,.hidden,..a,a..b,COM,COM10,CONS,CONfig.exe,xNUL,COM1x.exe,"
                               L"\u041F\uD55C\xD83D\xDE00.msi,";
    for (const std::wstring& name : Tests::Split(plain + std::wstring(255, L'a'), L','))
        CHECK_MESSAGE(IsPlainFileName(name), name);
    const std::wstring other =
        L",.,..,a.,a ,a\\b,..\\a,a/b,C:a,a::$DATA,a*,a?,\"a\",a<b,a>b,a|b,a\nb,a\0b,a\x7F,"
        L"con,Nul.txt,aux.a.b,PRN,com0.exe,LPT9,lpt\u00B9,COM\u00B2.x,CONIN$,conout$.log,"
        L"NUL .exe,COM1  .a.b,"s;
    for (const std::wstring& name : Tests::Split(other + std::wstring(256, L'a'), L','))
        CHECK_MESSAGE(!IsPlainFileName(name), name);
}
