#include "Ls/System/Net/MultiStreamDownload/WriteOutputThread.h"

#include "Ls/System/HandledException.h"
#include "Ls/System/Io/Link.h"
#include "Ls/System/Net/MultiStreamDownload/ThreadBody.h"
#include "Ls/System/String/DecimalText.h"
#include "Ls/System/ThrowException.h"
#include "Ls/System/Win32/ScopeExit.h"

#include <utility>

namespace LS::System::Net::MultiStreamDownload
{
namespace
{
constexpr int Tries = 3;
constexpr DWORD TryPauseMs = 50;
/// The stream looks this often whether its writer still lives.
constexpr std::uint32_t WaitForBufferMs = 50;
/// The stream looks this often whether the writer that it waits for has ended without a signal.
constexpr std::uint32_t WaitForStartMs = 100;
/// The writer looks this often whether it is to stop.
constexpr std::uint32_t WaitForBlockMs = 100;
} // namespace

CWriteOutputThread::CWriteOutputThread(const std::wstring& outputPath, std::uint32_t offset,
                                       std::uint32_t bufferCount, std::uint32_t bufferSize,
                                       const StreamRecord& values) :
    CThread(MakeRef<CThreadBody<CWriteOutputThread>>(*this)),
    m_StartedEvent(true, false), m_QueuedEvent(false, false), m_BufferFreeEvent(false, false),
    m_Pool(bufferCount), m_Offset(offset), m_Recorded(offset), m_CachePath(CacheFilePath(outputPath)),
    m_Progress(outputPath, values.StreamIndex)
{
    m_Progress.Values = values;
    for (Buffer& buffer : m_Pool)
        buffer.Bytes = std::make_unique<char[]>(bufferSize);
    // The thread must not find this object gone, when it comes up late or the waiting fails.
    Win32::CScopeExit stop([this]() noexcept { Stop(); });
    try
    {
        ThreadStart("");
    }
    catch (const CException& failure)
    {
        Stop();
        ThrowException(CException(failure, "WriteOutputThread failed to start worker thread", LS_HERE));
        return;
    }
    // Where a failed start was let pass there may be no thread, nor its signal. GetBuffer tells then.
    bool started = false;
    bool running = true;
    while (!started && running)
    {
        running = Wait(0) == WAIT_TIMEOUT;
        started = m_StartedEvent.Wait(running ? WaitForStartMs : 0) == WAIT_OBJECT_0;
    }
    if (!started)
        ThrowException(CException(L"WriteOutputThread failed to signal a successful start", LS_HERE));
    else
        stop.Release();
}

CWriteOutputThread::~CWriteOutputThread()
{
    SetShouldFinish(true);
    ::SetEvent(m_QueuedEvent.Handle());
    Stop();
}

std::uint32_t CWriteOutputThread::GetBuffer()
{
    std::uint32_t index = NoBuffer;
    try
    {
        index = WaitForBuffer();
    }
    catch (const CException& failure)
    {
        ThrowException(CException(failure, "GetBuffer Failed.", LS_HERE));
    }
    return index;
}

std::uint32_t CWriteOutputThread::WaitForBuffer()
{
    for (;;)
    {
        {
            const Win32::CLock lock(m_QueueLock);
            if (m_Ended)
                break;
            for (std::uint32_t index = 0; index < m_Pool.size(); ++index)
            {
                if (!std::exchange(m_Pool[index].InUse, true))
                    return index;
            }
            m_StreamWaits = true;
        }
        if (m_BufferFreeEvent.Wait(WaitForBufferMs) != WAIT_OBJECT_0 && Wait(0) == WAIT_OBJECT_0)
            break;
    }
    if (m_Failure)
        ThrowException(CException(*m_Failure, "WriteFileThread Failed.", LS_HERE));
    else
        ThrowException(CException(L"WriteOutputThread has exited unexpectedly", LS_HERE));
    return NoBuffer;
}

void CWriteOutputThread::QueueBuffer(std::uint32_t index, std::uint32_t length, bool endsFile)
{
    bool wake = false;
    {
        const Win32::CLock lock(m_QueueLock);
        m_Queue.push_back({index, length, endsFile});
        wake = std::exchange(m_WriterWaits, false);
    }
    if (wake)
        m_QueuedEvent.Set();
}

void CWriteOutputThread::GiveBack(std::uint32_t index) noexcept
{
    const Win32::CLock lock(m_QueueLock);
    m_Pool[index].InUse = false;
}

void CWriteOutputThread::Finish(bool cutBehind) noexcept
{
    {
        const Win32::CLock lock(m_QueueLock);
        m_Finish = true;
        m_CutBehind = cutBehind;
    }
    ::SetEvent(m_QueuedEvent.Handle());
    Wait(INFINITE);
}

std::uint32_t CWriteOutputThread::Execute(Win32::CThread& thread)
{
    try
    {
        WriteAll(thread);
    }
    catch (...)
    {
        // Without memory for it, it shows as a writer that has ended without having written everything.
        m_Failure = HandledException(LS_HERE);
    }
    // Whoever finalises the download deletes the record, perhaps before this object is gone.
    m_Progress.Close();
    m_File.Reset();
    {
        const Win32::CLock lock(m_QueueLock);
        m_Queue.clear();
        m_Ended = true;
    }
    // So that nobody stays blocked on this writer.
    ::SetEvent(m_BufferFreeEvent.Handle());
    ::SetEvent(m_StartedEvent.Handle());
    return 0;
}

void CWriteOutputThread::WriteAll(Win32::CThread& thread)
{
    if (!OpenCacheFile(thread))
        return;
    m_StartedEvent.Set();
    Filled filled{};
    while (!thread.ShouldFinish())
    {
        switch (NextFilled(filled))
        {
        case Next::Block:
            if (!WriteBlock(filled))
                return;
            FreeFront();
            break;
        case Next::Nothing:
            m_QueuedEvent.Wait(WaitForBlockMs);
            break;
        case Next::Finished:
            m_WroteAll = !m_CutBehind || CutBehind();
            return;
        }
    }
}

/// The file is shared with the other stream's writer, but not for deleting: what would come of it is a file
/// with holes. An existing one keeps its bytes, a resume goes on in them.
bool CWriteOutputThread::OpenCacheFile(Win32::CThread& thread)
{
    for (int failed = 0; !m_File && failed < Tries; ++failed)
    {
        if (failed > 0)
        {
            if (thread.ShouldFinish())
                break;
            ::Sleep(TryPauseMs);
        }
        m_File =
            IO::OpenUserFile(m_CachePath, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_ALWAYS);
    }
    if (!m_File)
    {
        ThrowException(
            CException(L"CreateFileW returned INVALID_FILE_VALUE.  FileName=" + m_CachePath, LS_HERE));
        return false;
    }
    if (!SeekToOffset())
    {
        ThrowException(CException(SeekFailure(), LS_HERE));
        return false;
    }
    return true;
}

/// A 32-bit position above 2 GiB needs the upper half of the distance, or it would count as negative.
bool CWriteOutputThread::SeekToOffset() noexcept
{
    LONG high = 0;
    ::SetLastError(NO_ERROR);
    return ::SetFilePointer(m_File.Get(), static_cast<LONG>(m_Offset), &high, FILE_BEGIN) !=
               INVALID_SET_FILE_POINTER ||
           ::GetLastError() == NO_ERROR;
}

std::wstring CWriteOutputThread::SeekFailure() const
{
    return L"SetFilePointer returned INVALID_SET_FILE_POINTER.  Offset=" + DecimalText(m_Offset) +
           L" FileName=" + m_CachePath;
}

CWriteOutputThread::Next CWriteOutputThread::NextFilled(Filled& filled)
{
    const Win32::CLock lock(m_QueueLock);
    if (!m_Queue.empty())
    {
        filled = m_Queue.front(); // it leaves the queue when it is on disk
        return Next::Block;
    }
    if (m_Finish)
        return Next::Finished;
    m_WriterWaits = true;
    return Next::Nothing;
}

bool CWriteOutputThread::WriteBlock(const Filled& filled)
{
    DWORD written = 0;
    for (int attempt = 1;; ++attempt)
    {
        if (::WriteFile(m_File.Get(), Bytes(filled.Index), filled.Length, &written, nullptr) &&
            written == filled.Length)
        {
            break;
        }
        const CException failure(L"WriteFile failed in WriteOutputThread. FileName=" + m_CachePath, LS_HERE);
        ::Sleep(TryPauseMs);
        if (!SeekToOffset())
        {
            ThrowException(CException(L"On Try " + DecimalText(attempt) + L", " + SeekFailure(), LS_HERE));
            return false;
        }
        if (attempt == Tries)
        {
            ThrowException(failure);
            return false;
        }
    }
    m_Offset += written;
    if (filled.EndsFile && !CutBehind())
        return false;
    m_Progress.Values.Offset = m_Offset;
    m_Progress.Write(*this);
    m_Recorded = m_Offset;
    return true;
}

void CWriteOutputThread::FreeFront()
{
    bool wake = false;
    {
        const Win32::CLock lock(m_QueueLock);
        m_Pool[m_Queue.front().Index].InUse = false;
        m_Queue.pop_front();
        wake = std::exchange(m_StreamWaits, false);
    }
    if (wake)
        m_BufferFreeEvent.Set();
}

bool CWriteOutputThread::CutBehind()
{
    LARGE_INTEGER size{};
    if (!::GetFileSizeEx(m_File.Get(), &size) || size.QuadPart <= m_Offset || ::SetEndOfFile(m_File.Get()))
        return true;
    ThrowException(CException(L"SetEndOfFile failed in WriteOutputThread. FileName=" + m_CachePath, LS_HERE));
    return false;
}
} // namespace LS::System::Net::MultiStreamDownload
