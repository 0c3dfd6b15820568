#pragma once

#include "Ls/System/Net/MultiStreamDownload/ProgressFile.h"
#include "Ls/System/Win32/CriticalSection.h"
#include "Ls/System/Win32/Event.h"
#include "Ls/System/Win32/Thread.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace LS::System::Net::MultiStreamDownload
{
/// Writes one stream's bytes to the cache file while the stream reads on. The stream takes a free buffer,
/// fills it and queues it; the writer writes the buffers in that order at the running offset, records the
/// new offset after each, and frees the buffer. So a record never tells of bytes that aren't on disk.
///
/// Belongs to one stream thread, which makes and destroys it and calls everything here.
class CWriteOutputThread : public Win32::CThread
{
public:
    /// Starts the writer and returns when the cache file is open at offset, or could not be opened (GetBuffer
    /// tells then). values are those of the stream's record. Throws CException "WriteOutputThread failed to
    /// start worker thread" or "WriteOutputThread failed to signal a successful start".
    CWriteOutputThread(const std::wstring& outputPath, std::uint32_t offset, std::uint32_t bufferCount,
                       std::uint32_t bufferSize, const StreamRecord& values);
    /// What is queued but not written is dropped, unless Finish was called.
    ~CWriteOutputThread() override;

    static constexpr std::uint32_t NoBuffer = UINT32_MAX;

    /// Waits for a free buffer and takes it: its index. Throws CException "GetBuffer Failed." around
    /// "WriteFileThread Failed." or "WriteOutputThread has exited unexpectedly" when the writer has ended
    /// (NoBuffer when the debug switch lets that pass).
    std::uint32_t GetBuffer();
    /// The bytes of a buffer that the caller has taken.
    char* Bytes(std::uint32_t index) noexcept { return m_Pool[index].Bytes.get(); }
    /// The first length bytes are to be written. endsFile: they are the file's last, and what an older,
    /// longer download of the same name has left behind them is cut off before the record says that all is
    /// there.
    void QueueBuffer(std::uint32_t index, std::uint32_t length, bool endsFile);
    /// Nothing has been filled in.
    void GiveBack(std::uint32_t index) noexcept;

    /// No more buffers will come: waits until the queue is written and the thread has ended. With
    /// cutBehind, what the file holds behind the last byte is cut off, for a file whose end shows only now.
    void Finish(bool cutBehind) noexcept;

    // After Finish.
    /// Everything that was queued is on disk.
    bool WroteAll() const noexcept { return m_WroteAll; }
    /// Why not; may be empty.
    CRefPtr<const CException> Failure() const { return m_Failure; }
    /// Position behind the last byte that the progress file tells of: where another attempt goes on.
    std::uint32_t Recorded() const noexcept { return m_Recorded; }

    /// The thread's body.
    std::uint32_t Execute(Win32::CThread& thread);

private:
    struct Buffer
    {
        std::unique_ptr<char[]> Bytes;
        bool InUse = false;
    };
    struct Filled
    {
        std::uint32_t Index;
        std::uint32_t Length;
        bool EndsFile;
    };

    /// What the writer is to do next.
    enum class Next
    {
        Block,
        Nothing,
        Finished
    };

    std::uint32_t WaitForBuffer();
    void WriteAll(Win32::CThread& thread);
    bool OpenCacheFile(Win32::CThread& thread);
    bool SeekToOffset() noexcept;
    std::wstring SeekFailure() const;
    Next NextFilled(Filled& filled);
    bool WriteBlock(const Filled& filled);
    void FreeFront();
    bool CutBehind();

    Win32::CEvent m_StartedEvent;
    Win32::CEvent m_QueuedEvent;
    Win32::CEvent m_BufferFreeEvent;

    /// Guards what follows, up to m_Ended.
    mutable Win32::CCriticalSection m_QueueLock;
    std::deque<Filled> m_Queue;
    std::vector<Buffer> m_Pool;
    bool m_Finish = false;
    bool m_CutBehind = false;
    /// Somebody waits, or is about to wait, on the event: only then it is signalled, since each signal is a
    /// kernel call and mostly nobody waits.
    bool m_WriterWaits = false;
    bool m_StreamWaits = false;
    /// The thread does nothing more.
    bool m_Ended = false;

    std::uint32_t m_Offset;
    std::uint32_t m_Recorded;
    std::wstring m_CachePath;
    Win32::CFileHandle m_File;
    StreamProgress m_Progress;
    CRefPtr<const CException> m_Failure;
    bool m_WroteAll = false;
};
} // namespace LS::System::Net::MultiStreamDownload
