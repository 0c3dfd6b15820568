#pragma once

#include "Ls/System/Net/MultiStreamDownload/HTTPDownload.h"
#include "Ls/System/Net/MultiStreamDownload/ProgressFile.h"
#include "Tests/Support/FaultServer.h"
#include "Tests/Support/TempFolder.h"

#include <windows.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace Tests
{
namespace Engine = LS::System::Net::MultiStreamDownload;
using Engine::DownloadStatus;

/// One download and the wait for its end. receiveMs is the time after which a silent server is given up.
class CDownloadRun
{
public:
    CDownloadRun(const std::string& url, const std::wstring& path, std::uint32_t retries = 5,
                 std::uint32_t receiveMs = 30000)
    {
        Engine::DownloadTimeOuts timeOuts;
        timeOuts.ReceiveMs = receiveMs;
        m_Download = LS::System::MakeRef<Engine::CHTTPDownload>(
            "DownloadTests", std::wstring(url.begin(), url.end()), path, &Take, this, retries, timeOuts);
    }
    CDownloadRun(const CDownloadRun&) = delete;

    /// False when the download has neither finished nor failed in that time.
    bool Wait(std::uint32_t timeOutMs = 60000)
    {
        std::unique_lock lock(m_Mutex);
        return m_Changed.wait_for(lock, std::chrono::milliseconds(timeOutMs), [&] { return m_Ended; });
    }

    /// Waits until that many bytes are on hand; false when it takes too long.
    bool WaitForBytes(std::uint32_t count, std::uint32_t timeOutMs = 20000)
    {
        std::unique_lock lock(m_Mutex);
        return m_Changed.wait_for(lock, std::chrono::milliseconds(timeOutMs),
                                  [&] { return m_BytesDone >= count; });
    }

    DownloadStatus Status() const { return m_Download->GetStatus(); }
    std::uint32_t Restarts() const { return m_Download->RestartCount(); }
    Engine::CHTTPDownload& Download() { return *m_Download; }
    void Drop() { m_Download.Reset(); }
    unsigned FinishedCalls() const { return m_FinishedCalls; }

private:
    static void Take(void* context, const DownloadStatus& status)
    {
        auto& run = *static_cast<CDownloadRun*>(context);
        const std::lock_guard lock(run.m_Mutex);
        run.m_BytesDone = status.BytesDone;
        run.m_FinishedCalls += status.Finished;
        run.m_Ended = run.m_Ended || status.Finished || status.Error;
        run.m_Changed.notify_all();
    }

    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    bool m_Ended = false;
    unsigned m_FinishedCalls = 0;
    std::uint32_t m_BytesDone = 0;
    /// Last, so that it goes first.
    LS::System::CRefPtr<Engine::CHTTPDownload> m_Download;
};

/// The messages of a failure from the outside in, with what differs from run to run replaced: the URL by "U",
/// header lines by "H", the path by "P".
inline std::string MessagesOf(const LS::System::CException* exception, const std::string& url,
                              const std::wstring& path)
{
    std::string text;
    const std::string narrowPath(path.begin(), path.end());
    for (; exception; exception = exception->Inner())
    {
        const std::wstring& wide = exception->Message();
        std::string message(wide.begin(), wide.end());
        if (const auto headers = message.find("Header:HTTP/"); headers != std::string::npos)
            message.replace(headers + 7, std::string::npos, "H");
        for (const auto& [from, to] : {std::pair(url, "U"), std::pair(narrowPath, "P")})
        {
            for (auto at = message.find(from); at != std::string::npos; at = message.find(from))
                message.replace(at, from.size(), to);
        }
        text += (text.empty() ? "" : " > ") + message;
    }
    return text;
}

/// "BEGIN-END" of each request, "-" for one without a range, in the order of their arrival; with sorted in
/// the order of the texts, for streams that ask side by side.
inline std::string RangesOf(const std::vector<HttpRequest>& requests, bool sorted = false)
{
    std::vector<std::string> ranges;
    for (const HttpRequest& request : requests)
        ranges.push_back((request.RangeBegin ? std::to_string(*request.RangeBegin) : "") + "-" +
                         (request.RangeEnd ? std::to_string(*request.RangeEnd) : ""));
    if (sorted)
        std::sort(ranges.begin(), ranges.end());
    std::string text;
    for (const std::string& range : ranges)
        text += (text.empty() ? "" : " ") + range;
    return text;
}

inline std::string Pattern(std::uint64_t begin, std::size_t size)
{
    std::string bytes(size, '\0');
    FillPattern(begin, bytes.data(), size);
    return bytes;
}

/// True when the file is the whole pattern file of that size.
inline bool IsPatternFile(const std::wstring& path, std::uint64_t size)
{
    std::ifstream file(std::filesystem::path(path), std::ios::binary);
    std::string bytes(1 << 20, '\0');
    std::uint64_t position = 0;
    while (file.read(bytes.data(), static_cast<std::streamsize>(bytes.size())), file.gcount() > 0)
    {
        const auto count = static_cast<std::size_t>(file.gcount());
        if (bytes.compare(0, count, Pattern(position, count)) != 0)
            return false;
        position += count;
    }
    return position == size && file.eof();
}

inline bool Exists(const std::wstring& path)
{
    return ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

/// Which of the files beside an output file exist: "out", "cache", "state", "0", "1", separated by blanks.
inline std::string FilesOf(const std::wstring& path)
{
    std::string text;
    for (const auto& [suffix, name] :
         {std::pair(L"", "out"), std::pair(L".cache", "cache"), std::pair(L".downloadstate", "state"),
          std::pair(L".0", "0"), std::pair(L".1", "1")})
    {
        if (Exists(path + suffix))
            text += (text.empty() ? "" : " ") + std::string(name);
    }
    return text;
}

/// The date of FileReply.
inline const std::string PatternDate = "Sat, 14 Nov 2026 05:56:03 GMT";

/// Writes the record of an interrupted download with that many streams.
inline void PutDownloadRecord(const std::wstring& path, std::uint32_t threads, std::uint32_t size)
{
    Engine::DownloadProgress(path, threads, size).Write();
}

/// Writes the record of a stream that has come to offset; an offset of 0 stands for no record.
inline void PutStreamRecord(const std::wstring& path, std::uint32_t index, std::uint32_t offset,
                            std::uint32_t size, std::uint32_t threads, const std::string& date = PatternDate)
{
    Engine::StreamRecord record;
    record.StreamIndex = index;
    record.Offset = offset;
    record.DownloadSize = size;
    record.ThreadsUsed = threads;
    record.SetLastModified(date);
    const auto bytes = Engine::Encode(record);
    WriteBytes(Engine::StreamFilePath(path, index),
               {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}
} // namespace Tests
