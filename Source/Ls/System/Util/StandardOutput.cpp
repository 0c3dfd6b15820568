#include "Ls/System/Util/StandardOutput.h"

#include "Ls/System/Win32/UniqueHandle.h"

#include <io.h>

#include <algorithm>
#include <cstdio>

namespace LS::System::Util
{
namespace
{
constexpr std::size_t MostWaiting = 65536;
/// A reader that takes nothing for so long isn't waited for at the process's end. On a busy machine an honest
/// one may not come to it for some hundred ms.
constexpr DWORD DrainPatienceMs = 1000;
/// How much a reader takes before that counts as progress: a slow one needs long for a long line.
constexpr std::size_t PieceBytes = 512;

/// pieceTaken is called after each piece.
template <class PieceTaken>
bool WriteWhole(HANDLE output, const std::string& line, PieceTaken pieceTaken) noexcept
{
    for (std::size_t done = 0; done < line.size();)
    {
        DWORD written = 0;
        const auto size = static_cast<DWORD>(std::min(line.size() - done, PieceBytes));
        if (!::WriteFile(output, line.data() + done, size, &written, nullptr) || written == 0)
            return false;
        done += written;
        pieceTaken();
    }
    return true;
}
} // namespace

bool CStandardOutput::Open()
{
    if (m_State != State::Unknown)
        return m_State != State::None;
    m_State = State::None;
    // A program without a console has a standard output stream that leads nowhere: no descriptor.
    const int descriptor = _fileno(stdout);
    if (descriptor < 0)
        return false;
    m_Output = reinterpret_cast<HANDLE>(_get_osfhandle(descriptor));
    if (::GetFileType(m_Output) == FILE_TYPE_DISK)
    {
        m_State = State::File;
        return true;
    }
    // Not a thread of the class for threads, which stands above the log.
    const Win32::CKernelHandle thread(::CreateThread(nullptr, 0, &ThreadBody, this, 0, nullptr));
    if (!thread)
        return false;
    m_State = State::Threaded;
    return true;
}

void CStandardOutput::Put(const std::string& line)
{
    if (!Open())
        return;
    if (m_State == State::File)
    {
        WriteWhole(m_Output, line, [] {});
        return;
    }
    {
        const Win32::CLock lock(m_Lock);
        if (!m_Lines.empty() && m_Bytes + line.size() > MostWaiting)
            return;
        m_Lines.push_back(line);
        m_Bytes += line.size();
    }
    ::SetEvent(m_Given.Handle());
}

void CStandardOutput::Drain() noexcept
{
    while (m_State == State::Threaded)
    {
        {
            const Win32::CLock lock(m_Lock);
            if (m_Lines.empty())
                return;
        }
        if (::WaitForSingleObject(m_Taken.Handle(), DrainPatienceMs) != WAIT_OBJECT_0)
            return;
    }
}

DWORD WINAPI CStandardOutput::ThreadBody(void* self) noexcept
{
    static_cast<CStandardOutput*>(self)->WriteLines();
    return 0;
}

void CStandardOutput::WriteLines() noexcept
{
    for (;;)
    {
        const std::string* first = nullptr;
        {
            const Win32::CLock lock(m_Lock);
            if (!m_Lines.empty())
                first = &m_Lines.front(); // stays in its place while others are put behind it
        }
        if (!first)
        {
            ::WaitForSingleObject(m_Given.Handle(), INFINITE);
            continue;
        }
        const bool taken = WriteWhole(m_Output, *first, [this] { ::SetEvent(m_Taken.Handle()); });
        {
            const Win32::CLock lock(m_Lock);
            m_Bytes -= first->size();
            m_Lines.pop_front();
            if (!taken) // the reader has closed its end
                m_State = State::None;
        }
        ::SetEvent(m_Taken.Handle());
        if (!taken)
            return;
    }
}
} // namespace LS::System::Util
