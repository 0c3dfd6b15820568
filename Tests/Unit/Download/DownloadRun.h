#pragma once

#include "Ls/System/Net/MultiStreamDownload/HTTPDownload.h"
#include "Ls/System/Util/Crc32.h"
#include "Ls/System/Win32/UniqueHandle.h"
#include "Tests/Support/Pattern.h"
#include "Tests/Support/TempFolder.h"

#include <doctest/doctest.h>

#include <algorithm>

// A download against a scripted server: what answers, what lay on disk before, what came of it.
namespace Tests
{
namespace Engine = LS::System::Net::MultiStreamDownload;
using Ending = HttpReply::Ending;
using Script = CFaultServer::Handler;

/// Of the file that the scripts serve unless they say otherwise, and of a block of the engine.
constexpr std::uint32_t Size = 300000, Block = 65536;

inline const auto Sized = [](std::uint64_t size) -> Script {
    return [=](auto& request) { return FileReply(request, size); };
};
inline const Script Whole = Sized(Size), Silent = [](auto&) { return HttpReply{.StallBeforeHead = true}; };

/// Nothing but a head.
inline const auto Bare = [](const std::string& status, const std::string& header = "X: Y") -> Script {
    return [=](auto&) { return HttpReply{.Head = HttpHead(status, {"Content-Length: 0", header})}; };
};

/// The good answer with this end after so many bytes of the body.
inline Script Cut(std::uint64_t after, Ending end, const Script& script = Whole)
{
    return [=](auto& request) {
        HttpReply reply = script(request);
        reply.CutAfter = after;
        reply.End = end;
        return reply;
    };
}

/// What a slow server sends: the first bytes at once, then so many every so many ms, up to the last ones.
inline Script Slow(std::uint64_t first, std::size_t bytes, std::uint32_t ms, const Script& script = Whole,
                   std::uint64_t last = UINT64_MAX)
{
    return [=](auto& request) {
        HttpReply reply = script(request);
        reply.TrickleBytes = bytes;
        reply.Body = [=, body = reply.Body](auto position, char* to, auto size) {
            ::Sleep(position < first || position >= last ? 0 : ms);
            body(position, to, size);
        };
        return reply;
    };
}

/// One download. inside runs within the status callback.
struct CDownloadRun
{
    CDownloadRun(const std::string& url, const std::wstring& path, std::uint32_t retries = 5,
                 const Engine::DownloadTimeOuts& timeOuts = {},
                 std::function<void(CDownloadRun& run, bool ended)> inside = {}) :
        Inside(std::move(inside))
    {
        const auto take = [](void* context, const Engine::DownloadStatus& status) {
            auto& run = *static_cast<CDownloadRun*>(context);
            run.FinishedCalls += status.Finished;
            // The first calls may come before the owner has the download in hand.
            if (run.Inside && WaitFor([&] { return run.InHand.load(); }))
                run.Inside(run, status.Finished || status.Error);
        };
        Download = LS::System::MakeRef<Engine::CHTTPDownload>(
            "DownloadTests", std::wstring(url.begin(), url.end()), path, take, this, retries, timeOuts);
        InHand = true;
    }
    Engine::DownloadStatus Status() const { return Download->GetStatus(); }
    bool Ended() const { return Status().Finished || Status().Error; }

    const std::function<void(CDownloadRun& run, bool ended)> Inside;
    std::atomic<unsigned> FinishedCalls{0};
    std::atomic<bool> InHand{false};
    /// Last, so that it goes first.
    LS::System::CRefPtr<Engine::CHTTPDownload> Download;
};

/// Opens the file with this sharing, or makes it.
inline const auto Hold = [](const std::wstring& path, DWORD share, DWORD how, DWORD access = GENERIC_READ) {
    return LS::System::Win32::CFileHandle(
        ::CreateFileW(path.c_str(), access, share, nullptr, how, 0, nullptr));
};

/// Which of the files beside an output file exist, in this order, each with a blank behind.
inline std::string FilesOf(const std::wstring& path)
{
    std::string text;
    for (const std::string name : {"", ".cache", ".downloadstate", ".0", ".1"})
        if (::GetFileAttributesW((path + std::wstring(name.begin(), name.end())).c_str()) != ~0U)
            text += (name.empty() ? "out" : name.substr(1)) + " ";
    return text;
}

/// A record byte for byte as it lies on disk.
inline std::string RecordBytes(std::initializer_list<std::uint32_t> numbers, const std::string& text = "")
{
    std::string bytes(reinterpret_cast<const char*>(numbers.begin()), numbers.size() * 4);
    bytes += text;
    const std::uint32_t check = LS::System::Util::Crc32(bytes.data(), bytes.size());
    return bytes.append(reinterpret_cast<const char*>(&check), sizeof(check));
}
/// Of a stream: the date's field has 50 bytes, and two that only fill follow it.
inline std::string StreamBytes(std::uint32_t index, std::uint32_t offset, std::uint32_t size,
                               std::uint32_t streams, std::string date = PatternDate)
{
    date.resize(52);
    return RecordBytes({1, index, offset, size, streams}, date);
}

/// Leaves the files of an interrupted download there, whose streams have come to these offsets (those below
/// their range have no record).
inline void Interrupt(const std::wstring& path, const std::vector<std::uint32_t>& offsets, std::uint32_t size)
{
    const auto streams = static_cast<std::uint32_t>(offsets.size());
    WriteBytes(path + L".downloadstate", RecordBytes({2, size, streams}));
    std::string cache;
    for (std::uint32_t i = 0, start = 0; i < streams; start = size / streams * ++i)
    {
        if (offsets[i] <= start)
            continue;
        WriteBytes(path + L"." + std::to_wstring(i), StreamBytes(i, offsets[i], size, streams));
        cache.resize(start, 'h');
        WriteBytes(path + L".cache", cache += Pattern(start, offsets[i] - start));
    }
}
} // namespace Tests
