// Measures downloads, one per process, and prints one line "bench: name=value ...". How it is called, what is
// compared and the table are bench.py's matter.
//
//   bare URL PATH                 a loop that reads 64 KiB with WinINet and writes a file
//   engine URL PATH               the download engine as the program uses it
//   engine URL PATH STREAMS SIZE  the same, going on from the record of a run with that many streams
//   die URL PATH STREAMS SIZE     the same, killed by itself when half of SIZE has been received
//   parts URL PATH                microseconds per block of each step of a stream
#include <winsock2.h>

#include "Bench/Clock.h"
#include "Ls/System/Net/InternetHandle.h"
#include "Ls/System/Net/MultiStreamDownload/HTTPDownload.h"
#include "Ls/System/Net/MultiStreamDownload/ProgressFile.h"
#include "Ls/System/Net/MultiStreamDownload/WriteOutputThread.h"

#include <windows.h>

#include <psapi.h>

#include <atomic>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

using namespace LS::System;
using namespace LS::System::Net::MultiStreamDownload;
using Net::CInternetHandle;
using Win32::CFileHandle;

namespace
{
constexpr DWORD BlockBytes = 65536;

[[noreturn]] void Fail(const char* what)
{
    std::fprintf(stderr, "DownloadBench: %s (%lu)\n", what, ::GetLastError());
    std::exit(1);
}

double CpuSeconds()
{
    FILETIME created, ended, kernel, user;
    ::GetProcessTimes(::GetCurrentProcess(), &created, &ended, &kernel, &user);
    const auto ticks = [](const FILETIME& time) {
        return static_cast<double>(ULARGE_INTEGER{{time.dwLowDateTime, time.dwHighDateTime}}.QuadPart);
    };
    return (ticks(kernel) + ticks(user)) * 1e-7;
}

std::uint64_t PeakBytes()
{
    PROCESS_MEMORY_COUNTERS counters = {};
    ::GetProcessMemoryInfo(::GetCurrentProcess(), &counters, sizeof(counters));
    return counters.PeakWorkingSetSize;
}

void Report(std::uint64_t received, double seconds)
{
    std::printf("bench: received=%.0f seconds=%.6f cpu=%.3f peak=%.0f\n", static_cast<double>(received),
                seconds, CpuSeconds(), static_cast<double>(PeakBytes()));
}

/// A request on its own session, sent.
struct Request
{
    explicit Request(const std::wstring& url) :
        Session(::InternetOpenW(L"DownloadBench", INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0)),
        Handle(::InternetOpenUrlW(
            Session.Get(), url.c_str(), nullptr, 0,
            INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_KEEP_CONNECTION, 0))
    {
        if (!Handle)
            Fail("no answer");
    }
    CInternetHandle Session;
    CInternetHandle Handle;
};

CFileHandle NewFile(const std::wstring& path)
{
    CFileHandle file(::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                                   FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
        Fail("no file");
    return file;
}

void Write(const CFileHandle& file, const char* bytes, DWORD size)
{
    DWORD written = 0;
    if (!::WriteFile(file.Get(), bytes, size, &written, nullptr) || written != size)
        Fail("write");
}

/// Reads the whole answer in blocks.
std::uint64_t ReadAll(const std::wstring& url, const std::function<void(const char*, DWORD)>& take)
{
    const Request request(url);
    std::vector<char> block(BlockBytes);
    std::uint64_t received = 0;
    for (DWORD read = 0;; received += read)
    {
        if (!::InternetReadFile(request.Handle.Get(), block.data(), BlockBytes, &read))
            Fail("read");
        if (read == 0)
            return received;
        take(block.data(), read);
    }
}

void Bare(const std::wstring& url, const std::wstring& path)
{
    const double begin = Now();
    std::uint64_t received = 0;
    {
        const CFileHandle file = NewFile(path);
        received = ReadAll(url, [&](const char* bytes, DWORD size) { Write(file, bytes, size); });
    }
    Report(received, Now() - begin);
}

struct Watch
{
    HANDLE Ended = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    /// 0: never.
    std::uint32_t DieAt = 0;
};

void Take(void* context, const DownloadStatus& status)
{
    const Watch& watch = *static_cast<Watch*>(context);
    if (watch.DieAt != 0 && status.BytesRun >= watch.DieAt)
    {
        Report(status.BytesRun, 0);
        std::fflush(stdout);
        ::TerminateProcess(::GetCurrentProcess(), 0);
    }
    if (status.Finished || status.Error)
        ::SetEvent(watch.Ended);
}

void Engine(const std::wstring& url, const std::wstring& path, std::uint32_t streams, std::uint32_t size,
            bool die)
{
    if (streams != 0 && ::GetFileAttributesW(StateFilePath(path).c_str()) == INVALID_FILE_ATTRIBUTES)
        DownloadProgress(path, streams, size).Write();
    Watch watch;
    watch.DieAt = die ? size / 2 : 0;
    const double begin = Now();
    const auto download = MakeRef<CHTTPDownload>("DownloadBench", url, path, &Take, &watch, 5U);
    ::WaitForSingleObject(watch.Ended, INFINITE);
    const double seconds = Now() - begin;
    const DownloadStatus status = download->GetStatus();
    if (status.Error)
        Fail("the download has failed");
    Report(status.BytesRun, seconds);
}

std::string Part(const char* name, double seconds, std::uint64_t count)
{
    char text[64] = {};
    std::snprintf(text, sizeof(text), " %s=%.2f", name, seconds * 1e6 / static_cast<double>(count));
    return text;
}

class CIdleThread : public Win32::CThread
{
public:
    CIdleThread() : CThread({}) {}
};

/// What a stream spends on its writer per block, when blocks arrive every paceSeconds.
double HandOver(const std::wstring& path, double paceSeconds, int count)
{
    CWriteOutputThread writer(path, 0, 2, BlockBytes, {});
    double spent = 0;
    for (int i = 0; i < count; ++i)
    {
        const double begin = Now();
        const std::uint32_t buffer = writer.GetBuffer();
        double mark = Now();
        spent += mark - begin;
        for (const double until = mark + paceSeconds; mark < until;)
            mark = Now();
        writer.QueueBuffer(buffer, BlockBytes, false);
        spent += Now() - mark;
    }
    writer.Finish(false);
    return spent;
}

/// The coordinator's part, on a download whose server never answers.
double Callback(const std::wstring& path, int count)
{
    WSADATA data = {};
    ::WSAStartup(MAKEWORD(2, 2), &data);
    const SOCKET silent = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int size = sizeof(address);
    if (::bind(silent, reinterpret_cast<sockaddr*>(&address), size) != 0 || ::listen(silent, 1) != 0 ||
        ::getsockname(silent, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        Fail("no socket");
    DownloadTimeOuts timeOuts;
    timeOuts.ReceiveMs = 3000;
    const auto download = MakeRef<CHTTPDownload>(
        "DownloadBench", L"http://127.0.0.1:" + std::to_wstring(ntohs(address.sin_port)) + L"/", path,
        nullptr, nullptr, 5U, timeOuts);
    const double begin = Now();
    for (int i = 0; i < count; ++i)
        download->DownloadThreadCallback(0, false, false, false, BlockBytes, BlockBytes, nullptr);
    const double seconds = Now() - begin;
    ::closesocket(silent);
    return seconds;
}

void Parts(const std::wstring& url, const std::wstring& path)
{
    constexpr int count = 4000;
    double begin = Now();
    const std::uint64_t blocks = ReadAll(url, [](const char*, DWORD) {}) / BlockBytes;
    const double read = Now() - begin;
    std::string parts = Part("read", read, blocks);
    parts += Part("handover", HandOver(path, read / static_cast<double>(blocks), count), count);
    {
        const CFileHandle file = NewFile(path);
        const std::vector<char> block(BlockBytes);
        begin = Now();
        for (int i = 0; i < count; ++i)
            Write(file, block.data(), BlockBytes);
        parts += Part("write", Now() - begin, count);
    }
    {
        CIdleThread thread;
        StreamProgress progress(path, 0);
        begin = Now();
        for (int i = 0; i < count; ++i)
            progress.Write(thread);
        parts += Part("record", Now() - begin, count);
    }
    parts += Part("callback", Callback(path + L".callback", count), count);
    std::printf("bench:%s\n", parts.c_str());
    for (const wchar_t* suffix : {L"", L".0", L".cache", L".callback.downloadstate"})
        ::DeleteFileW((path + suffix).c_str());
}
} // namespace

int wmain(int count, wchar_t** arguments)
{
    const std::wstring mode = count > 3 ? arguments[1] : L"";
    const auto number = [&](int index) {
        return index < count ? static_cast<std::uint32_t>(std::wcstoul(arguments[index], nullptr, 10)) : 0;
    };
    if (mode == L"bare")
        Bare(arguments[2], arguments[3]);
    else if (mode == L"engine" || mode == L"die")
        Engine(arguments[2], arguments[3], number(4), number(5), mode == L"die");
    else if (mode == L"parts")
        Parts(arguments[2], arguments[3]);
    else
        Fail("no such mode");
    return 0;
}
