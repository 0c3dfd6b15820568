// Real files. A rotated log stays rotated for the rest of its process, so that test and the one without a
// standard output run in processes of their own.
#include "Ls/System/Io/Path.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Util/PerUserAppDataPath.h"
#include "Ls/System/Win32/UniqueHandle.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/WideText.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <doctest/doctest.h>

#include <cstdio>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

using namespace LS::System;
using namespace LS::System::Util;
using namespace std::string_literals;

namespace
{
constexpr std::size_t HeaderBytes = 104;

std::string Header()
{
    std::string dashes;
    while (dashes.size() < HeaderBytes)
        dashes += "-\0"s;
    return dashes;
}

/// A new log file for a scope; the log then has none.
class CLogFile
{
public:
    explicit CLogFile(const std::wstring& name = L"a.log") : m_Path(m_Folder.Path(name))
    {
        CLog::Instance()._SetOutputFile(m_Path, true);
    }
    CLogFile(const CLogFile&) = delete;
    ~CLogFile() { CLog::Instance()._SetOutputFile(L"", false); }

    const std::wstring& Path() const { return m_Path; }
    /// What follows the header.
    std::string Lines() const
    {
        const std::string bytes = Tests::ReadBytes(m_Path);
        return bytes.size() < HeaderBytes ? "" : bytes.substr(HeaderBytes);
    }

private:
    Tests::CTempFolder m_Folder;
    std::wstring m_Path;
};

/// Runs one skipped test of this program in a process of its own, without any standard stream; its exit code.
DWORD RunAlone(const wchar_t* test)
{
    std::wstring command = L"\"" + IO::ProgramPath() + L"\" --no-skip --test-case=\"" + test + L"\"";
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    PROCESS_INFORMATION process{};
    if (!::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, DETACHED_PROCESS, nullptr,
                          nullptr, &startup, &process))
        return ~0u;
    const Win32::CKernelHandle thread(process.hThread), handle(process.hProcess);
    ::WaitForSingleObject(handle.Get(), INFINITE);
    DWORD code = ~0u;
    ::GetExitCodeProcess(handle.Get(), &code);
    return code;
}

/// The debugger channel announces each text by an exception on the writing thread, inside the write.
std::string g_Debugger;
bool g_LogInside = false;

LONG CALLBACK SeeDebuggerText(EXCEPTION_POINTERS* exception)
{
    constexpr DWORD DebugText = 0x40010006;
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (record.ExceptionCode == DebugText)
    {
        g_Debugger += reinterpret_cast<const char*>(record.ExceptionInformation[1]);
        if (g_LogInside)
            LS_LOG_INFO(L"inside");
    }
    return EXCEPTION_CONTINUE_SEARCH;
}
} // namespace

TEST_CASE("a new file begins with 52 wide dashes; an old one has its first 104 bytes overwritten")
{
    const CLogFile log;
    CHECK(Tests::ReadBytes(log.Path()) == Header());

    const std::string old(200, 'o');
    Tests::WriteBytes(log.Path(), old);
    CLog::Instance()._SetOutputFile(log.Path(), false);
    CHECK(Tests::ReadBytes(log.Path()) == Header() + old.substr(HeaderBytes));
    LS_LOG_INFO("added");
    CHECK(Tests::ReadBytes(log.Path()) == Header() + old.substr(HeaderBytes) + "added\r\n");
    CLog::Instance()._SetOutputFile(log.Path(), true);
    CHECK(Tests::ReadBytes(log.Path()) == Header());
}

TEST_CASE("a line is the message and a line feed, from wide, narrow and ready texts, at levels up to 100")
{
    const CLogFile log(L"\u0416\u0443\u0440\u043D\u0430\u043B \uD55C\xD83D\xDE00\\deep\\b.log");
    LS_LOG_INFO(L"wide %s %S %d", L"w", "n", 1);
    LS_LOG_FAILURE("narrow %s %S %d", "n", L"w", 2);
    CLog::WriteText(LS_LOG_LOCATION(70), L"ready %s");
    CLog::Write(LS_LOG_LOCATION(100), L"level 100");
    CLog::Write(LS_LOG_LOCATION(101), L"level 101");
    CHECK(log.Lines() == "wide w n 1\r\nnarrow n w 2\r\nready %s\r\nlevel 100\r\n");
}

TEST_CASE("what the code page lacks is replaced, and the rest of the line arrives with its line feed")
{
    const CLogFile log;
    CLog::WriteText(LS_LOG_LOCATION(70), L"a \u4E2D\uD55C\xD83D\xDE00\xD83D z");
    LS_LOG_INFO("n \xED\x95\x9C\xFF z");
    CLog::WriteText(LS_LOG_LOCATION(70), L"null \0 inside"s);
    LS_LOG_INFO(L"next");
    const std::string lines = log.Lines();
    CHECK(lines.find("a ") == 0);
    CHECK(lines.find(" z\r\nn ") != std::string::npos);
    CHECK(lines.find(" z\r\nnull \0 inside\r\nnext\r\n"s) != std::string::npos);
}

TEST_CASE("a message of 65535 characters is written, a longer formatted one dropped")
{
    const CLogFile log;
    for (const std::size_t length : {65535u, 65536u})
    {
        LS_LOG_INFO("%s", std::string(length, 'n').c_str());
        LS_LOG_INFO(L"%s", std::wstring(length, L'w').c_str());
    }
    CHECK(log.Lines() == std::string(65535, 'n') + "\r\n" + std::string(65535, 'w') + "\r\n");
}

TEST_CASE("a message from inside a write on the same thread is dropped, and the next one isn't")
{
    const CLogFile log;
    void* handler = ::AddVectoredExceptionHandler(1, SeeDebuggerText);
    g_Debugger.clear();
    g_LogInside = true;
    LS_LOG_INFO(L"outside");
    g_LogInside = false;
    LS_LOG_INFO(L"after");
    CLog::Instance()._SetOutputFile(L"", false);
    LS_LOG_INFO(L"without a file");
    ::RemoveVectoredExceptionHandler(handler);
    CHECK(log.Lines() == "outside\r\nafter\r\n");
    CHECK(g_Debugger == "outside\nafter\nCLog::_SetOutputFile() : \nwithout a file\n");
}

TEST_CASE("each line is printed to standard output as well, also without a file")
{
    const Tests::CTempFolder temp;
    const std::wstring path = temp.Path(L"stdout");
    std::fflush(stdout);
    const int saved = _dup(_fileno(stdout));
    const int file = _wopen(path.c_str(), _O_CREAT | _O_WRONLY | _O_BINARY, 0600);
    REQUIRE(_dup2(file, _fileno(stdout)) == 0);
    CLog::Instance()._SetOutputFile(L"", false);
    LS_LOG_INFO(L"echo \uD55C.");
    _dup2(saved, _fileno(stdout));
    _close(file);
    _close(saved);
    const std::string bytes = Tests::ReadBytes(path);
    CHECK(bytes.find("echo ") == 0);
    CHECK(bytes.find(".\n") == bytes.size() - 2);
}

TEST_CASE("lines of many threads arrive whole and none is lost")
{
    const CLogFile log;
    constexpr int Threads = 8, LinesEach = 200;
    std::vector<std::thread> threads;
    threads.reserve(Threads);
    for (int t = 0; t < Threads; ++t)
    {
        threads.emplace_back([t] {
            for (int i = 0; i < LinesEach; ++i)
                LS_LOG_INFO("%d-%d-%s", t, i, std::string(100, static_cast<char>('a' + t)).c_str());
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::set<std::string> lines;
    const std::string text = log.Lines();
    for (std::size_t begin = 0, end; (end = text.find("\r\n", begin)) != std::string::npos; begin = end + 2)
        lines.insert(text.substr(begin, end - begin));
    CHECK(lines.size() == Threads * LinesEach);
    CHECK(lines.count("7-199-" + std::string(100, 'h')) == 1);
}

TEST_CASE("a file that can't be opened loses its lines only; a folder that can't be made is thrown")
{
    const CLogFile log;
    {
        const Win32::CFileHandle held(
            ::CreateFileW(log.Path().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        LS_LOG_INFO("lost");
        CHECK_NOTHROW(CLog::Instance()._SetOutputFile(log.Path(), false)); // its header is lost, too
    }
    LS_LOG_INFO("kept");
    CHECK(log.Lines() == "kept\r\n");
    const Win32::CFileHandle reader(::CreateFileW(log.Path().c_str(), GENERIC_READ,
                                                  FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                                  0, nullptr));
    LS_LOG_INFO("read along");
    CHECK(log.Lines() == "kept\r\nread along\r\n");
    CHECK(Tests::Caught([&] { CLog::Instance()._SetOutputFile(log.Path() + L"\\sub\\x.log", false); }));
}

TEST_CASE("alone: a full file is followed by numbered parts" * doctest::skip())
{
    const CLogFile log;
    const auto grow = [](const std::wstring& path, LONG size) {
        const Win32::CFileHandle file(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                                                    FILE_ATTRIBUTE_NORMAL, nullptr));
        ::SetFilePointer(file.Get(), size, nullptr, FILE_BEGIN);
        ::SetEndOfFile(file.Get());
    };
    grow(log.Path(), 9999996);
    LS_LOG_INFO("ab"); // fills it to exactly 10000000
    LS_LOG_INFO("c");
    CHECK(Tests::ReadBytes(log.Path()).size() == 10000003);
    LS_LOG_INFO("second");
    CHECK(Tests::ReadBytes(log.Path() + L".2") == "second\r\n");
    grow(log.Path() + L".2", 10000001);
    grow(log.Path() + L".3", 10000001);
    LS_LOG_INFO("fourth");
    CHECK(Tests::ReadBytes(log.Path() + L".4") == "fourth\r\n");
    // The number stays, also for another file.
    Tests::WriteBytes(log.Path(), "");
    LS_LOG_INFO("more");
    CHECK(Tests::ReadBytes(log.Path() + L".4") == "fourth\r\nmore\r\n");
    CLog::Instance()._SetOutputFile(log.Path() + L"x", true);
    LS_LOG_INFO("other");
    CHECK(Tests::ReadBytes(log.Path() + L"x") == Header());
    CHECK(Tests::ReadBytes(log.Path() + L"x.4") == "other\r\n");
}

TEST_CASE("alone: the first message makes the program's own log" * doctest::skip())
{
    const std::wstring path = GetPerUserAppDataPath() + L"\\Larkspur\\Logs\\SystemTests.exe.log";
    ::DeleteFileW(path.c_str());
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([] { LS_LOG_INFO("first"); });
    for (std::thread& thread : threads)
        thread.join();
    CHECK(_fileno(stdout) < 0); // nobody gave this process a standard output
    CHECK(Tests::ReadBytes(path).size() == HeaderBytes + 8 * std::strlen("first\r\n"));
    ::DeleteFileW(path.c_str());
}

TEST_CASE("in processes of their own: rotation, and first use without a standard output")
{
    CHECK(RunAlone(L"alone: a full file*") == 0);
    CHECK(RunAlone(L"alone: the first message*") == 0);
}
