// Real files. A rotated log stays rotated for the rest of its process, so that test runs in one of its own.
#include "Ls/System/Io/Path.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Util/PerUserAppDataPath.h"
#include "Ls/System/Win32/UniqueHandle.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/TempFolder.h"

#include <windows.h>

#include <process.h>

#include <set>
#include <thread>

using namespace LS::System;
using namespace LS::System::Util;
using namespace std::string_literals;

namespace
{
/// A new log file for a scope; the log then has none.
struct CLogFile
{
    explicit CLogFile(const std::wstring& name = L"a.log") : Path(Folder.Path(name)) { Open(true); }
    CLogFile(const CLogFile&) = delete;
    ~CLogFile() { CLog::Instance()._SetOutputFile(L"", false); }
    void Open(bool anew) { CLog::Instance()._SetOutputFile(Path, anew); }
    /// What follows the header of 52 wide dashes.
    std::string Lines() const
    {
        std::string header;
        while (header.size() < 104)
            header += "-\0"s;
        const std::string bytes = Tests::ReadBytes(Path);
        return bytes.substr(0, 104) == header ? bytes.substr(104) : "no header";
    }

    Tests::CTempFolder Folder;
    std::wstring Path;
};

void LogFromThreads(int threads, int linesEach)
{
    std::vector<std::thread> all;
    for (int t = 0; t < threads; ++t)
        all.emplace_back([=] {
            for (int i = 0; i < linesEach; ++i)
                LS_LOG_INFO("%d-%03d", t, i);
        });
    for (std::thread& thread : all)
        thread.join();
}

bool g_LogInside = false;

/// The debugger channel announces each text by an exception on the writing thread, inside the write.
LONG CALLBACK SeeDebuggerText(EXCEPTION_POINTERS* exception)
{
    if (exception->ExceptionRecord->ExceptionCode == 0x40010006 && g_LogInside)
        LS_LOG_INFO(L"inside");
    return EXCEPTION_CONTINUE_SEARCH;
}
} // namespace

TEST_CASE(
    "lines arrive whole from every kind of text, with a header, and an old file has its start overwritten")
{
    CLogFile log(L"\u0416\u0443\u0440\u043D\u0430\u043B \uD55C\xD83D\xDE00\\deep\\b.log");
    LS_LOG_INFO(L"wide %s %S %d", L"w", "n", 1);
    LS_LOG_FAILURE("narrow %s %S %d", "n", L"w", 2);
    CLog::Write(LS_LOG_LOCATION(100), L"level 100");
    CLog::Write(LS_LOG_LOCATION(101), L"level 101");
    // What the code page lacks is replaced, and the rest arrives with its line feed.
    CLog::WriteText(LS_LOG_LOCATION(70), L"%s \u4E2D\uD55C\xD83D\xDE00\xD83D \0z"s);
    LS_LOG_INFO("n \xED\x95\x9C\xFF z");
    for (const std::size_t length : {65535u, 65536u})
        LS_LOG_INFO(L"%s", std::wstring(length, L'w').c_str()); // the longer one is dropped
    const auto lines = Tests::Split(log.Lines(), '\n');
    REQUIRE(lines.size() == 7);
    CHECK(lines[0] + lines[1] + lines[2] == "wide w n 1\rnarrow n w 2\rlevel 100\r");
    CHECK((lines[3].rfind("%s ", 0) == 0 && lines[3].substr(lines[3].size() - 4) == " \0z\r"s));
    CHECK((lines[4].rfind("n ", 0) == 0 && lines[4].substr(lines[4].size() - 3) == " z\r"));
    CHECK(lines[5] == std::string(65535, 'w') + "\r");
    Tests::WriteBytes(log.Path, std::string(110, 'o'));
    log.Open(false);
    LS_LOG_INFO("added");
    CHECK(log.Lines() == "ooooooadded\r\n");
    log.Open(true);
    CHECK(log.Lines() == "");
}

TEST_CASE("many threads lose no line, and a message from inside a write on the same thread is dropped")
{
    const CLogFile log;
    LogFromThreads(8, 200);
    const auto lines = Tests::Split(log.Lines(), '\n');
    CHECK(std::set(lines.begin(), lines.end()).size() == 1601);
    CHECK(log.Lines().size() == 1600 * 7);
    void* handler = ::AddVectoredExceptionHandler(1, SeeDebuggerText);
    g_LogInside = true;
    LS_LOG_INFO(L"outside");
    g_LogInside = false;
    LS_LOG_INFO(L"after");
    ::RemoveVectoredExceptionHandler(handler);
    CHECK(log.Lines().substr(1600 * 7) == "outside\r\nafter\r\n");
}

TEST_CASE("a file that can't be opened loses its lines only; a folder that can't be made is thrown")
{
    CLogFile log;
    const auto open = [&](DWORD share) {
        return ::CreateFileW(log.Path.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, 0, nullptr);
    };
    {
        const Win32::CFileHandle held(open(0));
        LS_LOG_INFO("lost");
        CHECK_NOTHROW(log.Open(false)); // its header is lost, too
    }
    const Win32::CFileHandle reader(open(FILE_SHARE_READ | FILE_SHARE_WRITE));
    LS_LOG_INFO("read along");
    CHECK(log.Lines() == "read along\r\n");
    CHECK(Tests::Caught([&] { CLog::Instance()._SetOutputFile(log.Path + L"\\sub\\x.log", false); }));
}

TEST_CASE(
    "alone: the first message makes the program's own log, and a full one is followed by numbered parts" *
    doctest::skip())
{
    const std::wstring path = GetPerUserAppDataPath() + L"\\Larkspur\\Logs\\SystemTests.exe.log";
    ::DeleteFileW(path.c_str());
    LogFromThreads(8, 1);
    CHECK(Tests::ReadBytes(path).size() == 104 + 8 * 7);
    const CLogFile log;
    std::filesystem::resize_file(log.Path, 9999996);
    LS_LOG_INFO("ab"); // fills it to exactly 10000000
    LS_LOG_INFO("c");
    CHECK(std::filesystem::file_size(log.Path) == 10000003);
    LS_LOG_INFO("second");
    CHECK(Tests::ReadBytes(log.Path + L".2") == "second\r\n");
    std::filesystem::resize_file(log.Path + L".2", 10000001);
    LS_LOG_INFO("third");
    Tests::WriteBytes(log.Path, ""); // the number stays
    LS_LOG_INFO("more");
    CHECK(Tests::ReadBytes(log.Path + L".3") == "third\r\nmore\r\n");
}

TEST_CASE("first use and rotation, in a process of their own")
{
    const std::wstring program = IO::ProgramPath();
    CHECK(_wspawnl(_P_WAIT, program.c_str(), L"SystemTests", L"--no-skip", L"--test-case=alone*",
                   L"--out=nul", nullptr) == 0);
}
