#pragma once

#include "Ls/System/Net/MultiStreamDownload/HTTPDownload.h"
#include "Ls/System/Net/MultiStreamDownload/ProgressFile.h"
#include "Tests/Support/FaultServer.h"
#include "Tests/Support/TempFolder.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// A download against a scripted server: what answers, what lay on disk before, what came of it.
namespace Tests
{
namespace Engine = LS::System::Net::MultiStreamDownload;
using Ending = HttpReply::Ending;
using Script = CFaultServer::Handler;

/// Of the file that the scripts serve unless they say otherwise, and of a block of the engine.
constexpr std::uint32_t Size = 300000;
constexpr std::uint32_t Block = 65536;

inline Script Sized(std::uint64_t size)
{
    return [=](const HttpRequest& request) { return FileReply(request, size); };
}
inline const Script Whole = Sized(Size);

/// Nothing but a head.
inline Script Bare(const std::string& status, const std::string& header = "X: Y")
{
    return [=](const HttpRequest&) -> HttpReply {
        return {.Head = HttpHead(status, {"Content-Length: 0", header})};
    };
}

/// The good answer with this end after so many bytes of the body.
inline Script Cut(std::uint64_t after, Ending end, const Script& script = Whole)
{
    return [=](const HttpRequest& request) {
        HttpReply reply = script(request);
        reply.CutAfter = after;
        reply.End = end;
        return reply;
    };
}

inline HttpReply Silent(const HttpRequest&)
{
    return {.StallBeforeHead = true};
}

/// One download. receiveMs is the time after which a silent server is given up.
struct CDownloadRun
{
    CDownloadRun(const std::string& url, const std::wstring& path, std::uint32_t retries = 5,
                 std::uint32_t receiveMs = 30000)
    {
        Engine::DownloadTimeOuts timeOuts;
        timeOuts.ReceiveMs = receiveMs;
        Download = LS::System::MakeRef<Engine::CHTTPDownload>(
            "DownloadTests", std::wstring(url.begin(), url.end()), path, &Take, this, retries, timeOuts);
    }
    CDownloadRun(const CDownloadRun&) = delete;

    static void Take(void* context, const Engine::DownloadStatus& status)
    {
        static_cast<CDownloadRun*>(context)->FinishedCalls += status.Finished;
    }
    Engine::DownloadStatus Status() const { return Download->GetStatus(); }
    /// False when the download has neither finished nor failed after a minute.
    bool Wait() const
    {
        return WaitFor([&] { return Status().Finished || Status().Error; });
    }
    bool WaitForBytes(std::uint32_t count) const
    {
        return WaitFor([&] { return Status().BytesDone >= count; });
    }

    std::atomic<unsigned> FinishedCalls{0};
    /// Last, so that it goes first.
    LS::System::CRefPtr<Engine::CHTTPDownload> Download;
};

inline std::string Pattern(std::uint64_t begin, std::size_t size)
{
    std::string bytes(size, '\0');
    FillPattern(begin, bytes.data(), size);
    return bytes;
}

/// Which of the files beside an output file exist, in this order, separated by blanks.
inline std::string FilesOf(const std::wstring& path)
{
    std::string text;
    for (const std::wstring name : {L"", L".cache", L".downloadstate", L".0", L".1"})
    {
        if (::GetFileAttributesW((path + name).c_str()) != INVALID_FILE_ATTRIBUTES)
            text += (text.empty() ? "" : " ") +
                    (name.empty() ? "out" : std::string(name.begin() + 1, name.end()));
    }
    return text;
}

/// The date of FileReply.
inline const std::string PatternDate = "Sat, 14 Nov 2026 05:56:03 GMT";

inline void PutStreamRecord(const std::wstring& path, std::uint32_t index, std::uint32_t offset,
                            std::uint32_t size, std::uint32_t threads)
{
    Engine::StreamRecord record;
    record.StreamIndex = index;
    record.Offset = offset;
    record.DownloadSize = size;
    record.ThreadsUsed = threads;
    record.SetLastModified(PatternDate);

    const auto bytes = Engine::Encode(record);
    WriteBytes(Engine::StreamFilePath(path, index), std::string(bytes.begin(), bytes.end()));
}

/// Leaves the files of an interrupted download there, whose streams have come to these offsets (those below
/// their range have no record).
inline void Interrupt(const std::wstring& path, const std::vector<std::uint32_t>& offsets, std::uint32_t size)
{
    const auto threads = static_cast<std::uint32_t>(offsets.size());
    Engine::DownloadProgress(path, threads, size).Write();
    std::string cache;
    for (std::uint32_t i = 0; i < threads; ++i)
    {
        const std::uint32_t start = size / threads * i;
        if (offsets[i] <= start)
            continue;
        PutStreamRecord(path, i, offsets[i], size, threads);
        cache.resize(start, 'h');
        cache += Pattern(start, offsets[i] - start);
    }
    if (!cache.empty())
        WriteBytes(path + L".cache", cache);
}
} // namespace Tests
