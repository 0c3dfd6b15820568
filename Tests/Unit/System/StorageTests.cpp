// Files, folders, the log and the registry, all real. Links to folders elsewhere are left out: Wine shows
// them as plain folders. So is a refused access: a Wine process may do anything.
#include "Ls/System/Io/Directory.h"
#include "Ls/System/Io/File.h"
#include "Ls/System/Io/ValidatePath.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Util/PerUserAppDataPath.h"
#include "Ls/System/Win32/RegistryKey.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/ExceptionWatch.h"
#include "Tests/Support/TempFolder.h"

#include <future>
#include <set>

using namespace LS::System;
using namespace LS::System::IO;
using namespace std::string_literals;
using Util::CLog;
using Win32::CRegistryKey;

// clang-format off
static const auto Hold = [](const std::wstring& path, DWORD share) {
    return Win32::CFileHandle(::CreateFileW(path.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, 0, 0));
};

TEST_CASE("folders are made with parents and deleted with all but what begins with a dot; names are judged")
{
    const Tests::CTempFolder temp;
    const std::wstring folder = temp.Path(L"f"), sub = folder + L"\\s\\\uD55C", file = sub + L"\\\u0416 x",
                       kept = temp.Path(L"end\\.keep"), failure = L"Could not Delete \"", tooLong(261, L'a');
    for (const std::wstring& path : {temp.Path() + L"/a\\b/c", temp.Path() + L"\\end\\b\\", sub})
        CHECK((CDirectory::CreateDirectory(path).Path() == path && CDirectory::Exists(path)));
    for (const std::wstring& path : {file, folder + L"\\x.txt", kept}) Tests::WriteBytes(path, "x");
    for (const std::wstring& path : {kept + L"\\sub", L"Q:\\no\\drive"s, L"Q:\\"s, temp.Path(L"a*b")})
    {
        const auto told = Tests::Caught([&] { CDirectory::CreateDirectory(path); });
        CHECK((told && told->LastError() && told->Message() == LS::SystemErrorTextWide(told->LastError())));
    }
    CDirectory::Delete(folder + L"\\", false, false); // its files go, sub-folders and so the folder stay
    std::filesystem::resize_file(file, 0x180000001); // sparse
    CHECK((CFile::Size(file) == 0x180000001 && !CFile::Exists(sub) && !CDirectory::Exists(file)));
    CHECK((!CFile::Exists(folder + L"\\x.txt") && CDirectory::GetParent(kept).Path() == temp.Path(L"end")));
    for (const std::wstring& path : {file, sub, folder}) CFileSystemInfo(path).SetAttributes(1); // read-only
    Win32::CFileHandle held = Hold(kept, 0);
    const ULONGLONG begin = ::GetTickCount64();
    Tests::CheckFailures(
        {{[&] { CFile::DeleteFileW(kept, 4); }, failure + kept + L"\"", "IO::CFile::DeleteFileW", 32},
         {[&] { CHECK(::GetTickCount64() - begin >= 130); }, L""}, // 0, 50 and 100 ms, less the clock's tick
         {[&] { CDirectory::Delete(folder, true, false); }, failure + file + L"\""},
         {[&] { CDirectory::Delete(folder, true, true); }, L""},
         {[&] { CDirectory::Delete(folder, true, true); }, failure + folder + L"\""},
         {[&] { CDirectory::Delete(temp.Path(L"end"), true, false); }, L""},
         {[&] { CFile::Size(file); }, L"Could not get File Attribute Data: \"" + file + L"\""},
         {[&] { CFileSystemInfo(file).GetAttributes(); }, L"Error getting file Attributes:" + file},
         {[&] { CFileSystemInfo(kept).SetAttributes(0x400); }, L"Invalid attribute set"},
         {[&] { CDirectory::GetParent(file); }, L"Directory does not exist :" + file},
         {[&] { CDirectoryInfo{tooLong}; }, L"Path was too long :" + tooLong},
         {[&] { CDirectoryInfo{L"a<b"}; }, L"Path contains invalid characters"},
         {[&] { ValidatePath(L""); }, L"Empty path"},
         {[&] { ValidatePath(tooLong.substr(1)); ValidatePath(L"x<"); ValidatePath(L"\t\x13"); }, L""},
         {[&] { ValidatePath(tooLong); }, L"Path was too long:" + tooLong},
         {[&] { ValidatePath(L"\t "); }, L"Path contains only whitespace characters:\t "},
         {[&] { ValidatePath(L" <x"); }, L"Path contains one or more invalid characters: <x"}});
    CHECK((!CDirectory::Exists(folder) && CFile::Exists(kept) && !CDirectory::Exists(temp.Path(L"end\\b"))));
    const auto scanner = std::async(std::launch::async, [&] { held.Reset(); }); // lets go at any time
    CHECK((CFile::DeleteFileW(kept, 100) && !CFile::Exists(kept)));
    const std::wstring names = // what a server may name a file, and after the slash what not
        L"a,Patch 1.2.exe,.hidden,..a,a..b,COM10,CONS,CONfig.exe,xNUL,COM1x.exe,\uD55C\xD83D\xDE00.msi,"s +
        tooLong.substr(6) + L",/,.,..,a.,a ,a\\b,..\\a,C:a,a::$DATA,a*,a?,\"a\",a<b,a>b,a|b,a\nb,a\0b,a\x7F,"
        L"a/b,con,Nul.txt,aux.a,PRN,com0.exe,LPT9,lpt\u00B9,COM\u00B2.x,CONIN$,conout$.a,NUL .b,COM1 .a,,"s;
    bool plain = true;
    for (const std::wstring& name : Tests::Split(names + tooLong.substr(5), L','))
        CHECK_MESSAGE(IsPlainFileName(name) == (plain = plain && name != L"/"), name);
}

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

static const auto LogFromThreads = [](int linesEach) {
    std::vector<std::future<void>> threads;
    for (int t = 0; t < 8; ++t)
        threads.push_back(std::async(std::launch::async, [=] {
            for (int i = 0; i < linesEach; ++i) LS_LOG_INFO("%d-%03d", t, i);
        }));
};

TEST_CASE("lines of any text and thread arrive whole behind the header; what can't be written is lost")
{
    CLogFile log;
    LS_LOG_INFO(L"wide %s %S %d", L"w", "n", 1);
    LS_LOG_FAILURE("narrow %s %S %d", "n", L"w", 2);
    for (const int level : {100, 101}) CLog::Write(LS_LOG_LOCATION(level), L"level %d", level);
    // What the code page lacks is replaced, and the rest arrives with its line feed.
    CLog::WriteText(LS_LOG_LOCATION(70), L"%s \u4E2D\uD55C\xD83D\xDE00\xD83D \0z"s);
    for (const std::size_t length : {65535u, 65536u}) // the longer one is dropped
        LS_LOG_INFO(L"%s", std::wstring(length, L'w').c_str());
    auto lines = Tests::Split(log.Lines(), '\n');
    REQUIRE(lines.size() == 6);
    CHECK(lines[0] + lines[1] + lines[2] == "wide w n 1\rnarrow n w 2\rlevel 100\r");
    CHECK((lines[3].starts_with("%s ") && lines[3].ends_with(" \0z\r"s)));
    CHECK(lines[4] == std::string(65535, 'w') + "\r");
    Tests::WriteBytes(log.Path, std::string(110, 'o'));
    log.Open(false); // its 52 wide dashes overwrite the old file's start
    std::string header;
    while (header.size() < 104) header += "-\0"s;
    CHECK(Tests::ReadBytes(log.Path) == header + "oooooo");
    LogFromThreads(200);
    lines = Tests::Split(log.Lines(), '\n');
    CHECK((std::set(lines.begin(), lines.end()).size() == 1601 && log.Lines().size() == 6 + 1600 * 7));
    for (const DWORD share : {0, FILE_SHARE_READ | FILE_SHARE_WRITE})
    {
        const Win32::CFileHandle held = Hold(log.Path, share);
        CHECK_NOTHROW(log.Open(false));
        // The debugger channel announces each text by an exception on the writing thread, inside the write.
        const Tests::CExceptionWatch debugger(0x40010006, [](auto&) { return LS_LOG_INFO("in"), false; });
        LS_LOG_INFO("%lu", share);
    }
    CHECK(log.Lines().substr(6 + 1600 * 7) == "3\r\n");
    CHECK(Tests::Caught([&] { CLog::Instance()._SetOutputFile(log.Path + L"\\sub\\x.log", false); }));
}

TEST_CASE("alone-log: a full log is followed by numbered parts for the rest of the process" * doctest::skip())
{
    LogFromThreads(1); // into the program's own
    const CLogFile log;
    Tests::WriteBytes(log.Path + L".2", "");
    std::filesystem::resize_file(log.Path, 9999993);
    std::filesystem::resize_file(log.Path + L".2", 9999994);
    for (const auto& [part, size] :
         {std::pair{L"", 10000000}, {L"", 10000007}, {L".2", 10000001}, {L".3", 7}})
    {
        LS_LOG_INFO("12345");
        CHECK(std::filesystem::file_size(log.Path + part) == std::uintmax_t(size));
    }
    Tests::WriteBytes(log.Path, "");
    LS_LOG_INFO("12345");
    CHECK(Tests::ReadBytes(log.Path + L".3") == "12345\r\n12345\r\n"); // the number stays
}

TEST_CASE("the first message of a process begins or goes on with the program's own log; rotation")
{
    const std::wstring path = Util::GetPerUserAppDataPath() + L"\\Larkspur\\Logs\\SystemTests.exe.log";
    ::DeleteFileW(path.c_str());
    for (const std::size_t processes : {1u, 2u})
        CHECK((!Tests::CChildProcess(L"alone-log*", L"").ExitCode() && Tests::ReadBytes(path).size() == 104 + processes * 8 * 7));
}

TEST_CASE("keys go by either name of their root; a value is read whole whoever wrote it, or refused")
{
    const std::wstring sub = L"Software\\LsTests", path = L"HKCU\\" + sub, big(100000, L'\uD55C');
    ::RegDeleteTreeW(HKEY_CURRENT_USER, sub.c_str());
    const CRegistryKey key(path, false), readOnly(path, true);
    key.SetString(L"", big);
    for (const wchar_t* root : {L"HKEY_CURRENT_USER\\", L"hkcu\\", L"hKey_Current_User\\"})
        CHECK(CRegistryKey(root + sub, true).GetString(L"", L"") == big);
    for (const std::wstring& name :
         Tests::Split(L"+HKLM,+hkey_local_machine\\,+HKCR,+HKCC,+HKU,+HKLM\\Software,-HKXX,-HKXX\\Software,-,"
                      L"-\\Software,-HKLMX\\a,-HKLM\\LsNone"s, L','))
        CHECK_MESSAGE(CRegistryKey::KeyExists(name.substr(1)) == (name[0] == L'+'), name);
    const std::tuple<DWORD, std::string, std::wstring> table[] = {
        {REG_SZ, "", L""}, {REG_EXPAND_SZ, "\0\0"s, L""}, {REG_EXPAND_SZ, "%\0T\0%\0\0\0"s, L"%T%"},
        {REG_SZ, "a\0\0\0"s, L"a"}, {REG_SZ, "a\0b\0"s, L"ab"}, {REG_SZ, "a\0b"s, L"a"}, {REG_SZ, "a", L""},
        {REG_DWORD, "\x01\x02\x03\xFF", L"4278387201"}, {REG_DWORD, "12", L"5"}, {REG_DWORD, "12345", L"5"},
        {REG_MULTI_SZ, "a\0\0\0\0\0"s, L"no"}, {REG_QWORD, "12345678", L"no"}, {REG_BINARY, "1234", L"no"}};
    const std::wstring create = L"RegCreateKeyEx failure creating registry key '";
    const std::wstring wrong = L"Unexpected type for registry value 'v'. REG_",
        sz = L"SZ or REG_EXPAND_SZ expected.";
    for (const auto& [type, bytes, text] : table)
    {
        const auto size = static_cast<DWORD>(bytes.size());
        ::RegSetKeyValueW(HKEY_CURRENT_USER, sub.c_str(), L"v", type, bytes.data(), size);
        const bool string = type == REG_SZ || type == REG_EXPAND_SZ, number = type == REG_DWORD;
        std::wstring read = L"no";
        Tests::CheckFailures(
            {{[&] { read = key.GetString(L"v", L"5"); }, string ? L"" : wrong + sz},
             {[&] { read = std::to_wstring(key.GetUint32(L"v", 5)); },
              number ? L"" : wrong + L"DWORD expected."}});
        CHECK(read == text);
    }
    Tests::CheckFailures(
        {{[] { CRegistryKey(L"HKXX\\a", true); }, L"Base key in 'HKXX\\a'is not a predefined key."},
         {[&] { CRegistryKey(path + L"1", true); }, create + path + L"1'.", "CRegistryKey::CRegistryKey", 2},
         {[&] { readOnly.SetString(L"x", L""); }, L"RegSetValueEx failure writing registry value 'x'"}});
    CHECK((key.ValueExists(L"v") && !key.ValueExists(L"none") && key.GetUint32(L"none", 5) == 5));
    const auto writer = std::async(std::launch::async, [&] { // what grows while it is read is read again
        for (int i = 0; i < 6000; ++i) key.SetString(L"g", std::wstring(i % 2 ? 3 : 5000, L'w'));
    });
    std::set<std::size_t> sizes = {3, 5000};
    while (writer.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
        sizes.insert(key.GetString(L"g", L"www").size());
    CHECK(sizes.size() == 2);
    ::RegDeleteTreeW(HKEY_CURRENT_USER, sub.c_str()); // while it is open: its values count as missing
    CHECK((key.GetString(L"g", L"gone") == L"gone" && key.GetUint32(L"v", 6) == 6));
}
// clang-format on
