// Files, folders, links, the log and the registry, all real. Left out is a refused access: a Wine process may
// do anything. Links to folders are shown by the end-to-end tests.
#include "Ls/System/Io/Directory.h"
#include "Ls/System/Io/File.h"
#include "Ls/System/Io/Link.h"
#include "Ls/System/Io/ValidatePath.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Util/PerUserAppDataPath.h"
#include "Ls/System/Win32/RegistryKey.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/TempFolder.h"

#include <future>
#include <set>

using namespace LS::System;
using namespace LS::System::IO;
using namespace std::string_literals;
using Util::CLog;
using Win32::CRegistryKey;

static Win32::CFileHandle HoldAlone(const std::wstring& path)
{
    return Win32::CFileHandle(
        ::CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
}

TEST_CASE("folders are made with parents, a file in use is deleted when it is free, paths are judged")
{
    const Tests::CTempFolder temp;
    const std::wstring path = temp.Path() + L"/a\\\uD55C/c", file = path + L"\\\u0416 x", tooLong(261, L'a');
    CHECK(CDirectory::CreateDirectory(path).Path() == path);
    CHECK_FALSE(CFile::Exists(path));
    Tests::WriteBytes(file, "x");
    CHECK(CFile::Exists(file));
    Win32::CFileHandle held = HoldAlone(file);
    Tests::CheckFailures(
        {{[&] { CDirectory::CreateDirectory(path + L"\\*"); }, LS::SystemErrorTextWide(ERROR_INVALID_NAME)},
         {[&] { CFile::DeleteFileW(file, 4); }, L"Could not Delete \"" + file + L"\"", "CFile::DeleteFileW",
          32},
         {[&] { ValidatePath(tooLong); }, L"Path was too long:" + tooLong},
         {[&] { ValidatePath(tooLong.substr(1)); }, L""},
         {[&] { CDirectory::CreateDirectory(path); }, L""},
         {[&] { ValidatePath(L" <x"); }, L"Path contains one or more invalid characters: <x"}});
    const auto scanner = std::async(std::launch::async, [&] { held.Reset(); }); // lets go at any time
    CHECK(CFile::DeleteFileW(file, 100));
}

TEST_CASE("a file name from outside is taken only when it is one in every sense")
{
    const std::wstring good = L"a,Patch 1.2.exe,.hidden,a..b,COM10,CONfig.exe,xNUL,\uD55C\xD83D\xDE00.msi";
    const std::wstring bad = L",.,..,a.,a ,..\\a,C:a,a::$DATA,a*,a?,\"a\",a<b,a>b,a|b,a\nb,a\x7F,a/b,"
                             L"con,Nul.txt,aux.a,PRN,com0.exe,LPT9,lpt\u00B9,CONIN$,conout$.a,NUL .b,a\0b"s;
    for (const std::wstring& name : Tests::Split(good, L','))
        CHECK_MESSAGE(IsPlainFileName(name), name);
    for (const std::wstring& name : Tests::Split(bad, L','))
        CHECK_MESSAGE(!IsPlainFileName(name), name);
}

TEST_CASE("where links aren't followed nothing is emptied, written or deleted through one")
{
    const Tests::CTempFolder folder;
    const std::wstring precious = folder.Path() + L"precious", link = folder.Path(L"a\\\\B"); // any spelling
    CDirectory::CreateDirectory(folder.Path(L"A"));
    Tests::WriteBytes(precious, "x");
    FollowNoLinksBelow(folder.Path());
    for (const DWORD how : {OPEN_EXISTING, OPEN_ALWAYS, CREATE_ALWAYS})
    {
        std::filesystem::create_hard_link(precious, link);
        CHECK(!OpenUserFile(link, GENERIC_WRITE, 0, how));
        CHECK(!DeleteUserFile(link));
        ::DeleteFileW(link.c_str());
        Tests::WriteBytes(link, "xy");
        CHECK(OpenUserFile(link, GENERIC_WRITE, 0, how));
        CHECK(CFile::Size(link) == (how == CREATE_ALWAYS ? 0 : 2));
        CHECK(DeleteUserFile(link));
        CHECK(static_cast<bool>(OpenUserFile(link, GENERIC_WRITE, 0, how)) == (how != OPEN_EXISTING));
        ::DeleteFileW(link.c_str());
    }
    CHECK(Tests::ReadBytes(precious) == "x");
    ::DeleteFileW(precious.c_str());
}

namespace
{
/// A new log file for a scope; the log then has none.
struct CLogFile
{
    CLogFile() { Open(true); }
    ~CLogFile() { CLog::Instance()._SetOutputFile(L"", false); }
    void Open(bool anew) { CLog::Instance()._SetOutputFile(Path, anew); }
    std::string Lines() const { return Tests::ReadBytes(Path).erase(0, 104); } // without the header

    const Tests::CTempFolder Folder;
    const std::wstring Path = Folder.Path(L"\u0416\u0443\u0440 \uD55C\xD83D\xDE00\\deep\\b.log");
};

void LogFromThreads(int linesEach)
{
    std::vector<std::future<void>> threads;
    for (int t = 0; t < 8; ++t)
        threads.push_back(std::async(std::launch::async, [=] {
            for (int i = 0; i < linesEach; ++i)
                LS_LOG_INFO("%d-%03d", t, i);
        }));
}
} // namespace

TEST_CASE("lines of any text and thread arrive whole behind the header; what can't be written is lost")
{
    CLogFile log;
    // What the code page lacks is replaced, and the rest arrives with its line feed.
    CLog::WriteText(LS_LOG_LOCATION(70), L"%s \u4E2D\uD55C\xD83D\xDE00\xD83D \0z"s);
    for (const std::size_t length : {65535u, 65536u}) // the longer one is dropped
        LS_LOG_INFO(L"%s", std::wstring(length, L'w').c_str());
    auto lines = Tests::Split(log.Lines(), '\n');
    REQUIRE(lines.size() == 3);
    CHECK(lines[0].starts_with("%s "));
    CHECK(lines[0].ends_with(" \0z\r"s));
    CHECK(lines[1] == std::string(65535, 'w') + "\r");
    // A ready text has no limit, and its line ends stay one.
    CLog::WriteText(LS_LOG_LOCATION(70), L"a\nb\r\n" + std::wstring(70000, L'w') + L"\r\n");
    CHECK(log.Lines().ends_with("a\r\nb\r\n" + std::string(70000, 'w') + "\r\n\r\n"));
    LogFromThreads(200);
    lines = Tests::Split(log.Lines(), '\n');
    CHECK(std::set(lines.begin(), lines.end()).size() == 1607);
    const Win32::CFileHandle held = HoldAlone(log.Path);
    CHECK_NOTHROW(log.Open(false));
    LS_LOG_INFO("lost");
}

TEST_CASE("alone-log: into the program's own" * doctest::skip())
{
    LogFromThreads(1);
}

TEST_CASE("full-log: goes on in the next part" * doctest::skip())
{
    CLogFile log;
    for (const auto& [name, size] : {std::pair{L"", 10000001}, {L".2", 10000000}})
    {
        Tests::WriteBytes(log.Path + name, "");
        std::filesystem::resize_file(log.Path + name, size);
    }
    CLog::WriteText(LS_LOG_LOCATION(70), L"fills the part");
    CLog::WriteText(LS_LOG_LOCATION(70), L"goes on");
    CHECK(CFile::Size(log.Path) == 10000001);
    CHECK(CFile::Size(log.Path + L".2") == 10000016);
    CHECK(Tests::ReadBytes(log.Path + L".3") == "goes on\r\n");
}

TEST_CASE("a full log goes on in its next part")
{
    CHECK(Tests::CChildProcess(L"full-log*", L"").ExitCode(60000) ==
          0); // of its own: the part's number stays
}

TEST_CASE("the first message of a process begins or goes on with the program's own log")
{
    const std::wstring path = Util::GetPerUserAppDataPath() + L"\\Larkspur\\Logs\\SystemTests.exe.log";
    ::DeleteFileW(path.c_str());
    for (const std::size_t processes : {1u, 2u})
    {
        CHECK(Tests::CChildProcess(L"alone-log*", L"").ExitCode() == 0);
        CHECK(Tests::ReadBytes(path).size() == 104 + processes * 8 * 7);
    }
}

TEST_CASE("a value is read whole whoever wrote it, or refused")
{
    const std::wstring sub = L"Software\\LsTests", path = L"HKCU\\" + sub, big(100000, L'\uD55C');
    ::RegDeleteTreeW(HKEY_CURRENT_USER, sub.c_str());
    const CRegistryKey key(path, false);
    key.SetString(L"", big);
    CHECK(CRegistryKey(L"hKey_Current_User\\" + sub, true).GetString(L"", L"") == big);
    const auto store = [&](DWORD type, const std::string& bytes) {
        const auto size = static_cast<DWORD>(bytes.size());
        ::RegSetKeyValueW(HKEY_CURRENT_USER, sub.c_str(), L"v", type, bytes.data(), size);
    };
    for (const std::string& bytes : {"%\0T\0%\0"s, "%\0T\0%\0\0\0"s, "%\0T\0%\0x"s}) // whatever its end
    {
        store(REG_EXPAND_SZ, bytes);
        CHECK(key.GetString(L"v", L"5") == L"%T%");
    }
    const std::wstring wrong = L"Unexpected type for registry value 'v'. REG_";
    Tests::CheckFailures(
        {{[&] { key.GetUint32(L"v", 5); }, wrong + L"DWORD expected."},
         {[&] { store(REG_DWORD, "\x01\x02\x03\xFF"); }, L""},
         {[&] { CHECK(key.GetUint32(L"v", 5) == 0xFF030201); }, L""},
         {[&] { key.GetString(L"v", L""); }, wrong + L"SZ or REG_EXPAND_SZ expected."},
         {[] { CRegistryKey(L"HKXX\\a", true); }, L"Base key in 'HKXX\\a'is not a predefined key."}});
    ::RegDeleteTreeW(HKEY_CURRENT_USER, sub.c_str()); // while it is open: its values count as missing
    CHECK(key.GetString(L"g", L"gone") == L"gone");
    CHECK(key.GetUint32(L"v", 6) == 6);
}
