#include "Updater/Analytics/AnalyticsQueue.h"

#include "Ls/System/Exception.h"
#include "Ls/System/Io/Directory.h"
#include "Ls/System/Io/File.h"
#include "Ls/System/Io/Link.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Win32/MutexOwner.h"
#include "Updater/Analytics/QueueFile.h"

using namespace LS::System;

namespace
{
constexpr char QueueMutexName[] = "_LSAnalytics{98CA00B7-D428-47a8-8EBE-66ADA4179BB9}";
constexpr char UploadMutexName[] = "_LSAnalytics{98CA00B7-D428-47a8-8EBE-66ADA4179BB9}_uld";
constexpr wchar_t SubFolder[] = L"\\Larkspur\\Analytics";

/// The queue is held for milliseconds at a time. Whoever holds it longer than this hangs: the run goes on
/// without its record, and waits no more until the queue has been free again.
constexpr std::uint32_t QueueWaitMs = 5000;

/// How long a file that another program holds is waited for where a record would be lost or sent twice:
/// scanners hold a changed file for half a second or so, and two seconds stay below what the other processes
/// wait for the mutex meanwhile, and below the flush at a run's end. Whoever holds it longer costs a run this
/// once: until the file has been had again, the short patience has to do.
constexpr std::uint32_t LongPatienceMs = 2000;
} // namespace

CAnalyticsQueue::CAnalyticsQueue(const std::wstring& baseFolder, const std::wstring& olderBaseFolder,
                                 const std::wstring& fileName) :
    m_Folder(baseFolder + SubFolder),
    m_Path(m_Folder + L"\\" + fileName), m_QueueMutex(Win32::CMutex::Shared(QueueMutexName)),
    m_UploadMutex(Win32::CMutex::Shared(UploadMutexName))
{
    try
    {
        IO::CDirectory::CreateDirectory(m_Folder);
    }
    catch (const CException& exception)
    {
        LS_LOG_FAILURE(L"CAnalyticsQueue::CAnalyticsQueue() : no folder %s : %s", m_Folder.c_str(),
                       exception.ShortDescription().c_str());
    }
    if (IO::LinkInWay(m_Path))
        LS_LOG_FAILURE(L"CAnalyticsQueue::CAnalyticsQueue() : A link stands in the way, no queue : %s",
                       m_Path.c_str());
    if (!olderBaseFolder.empty())
        MoveOlderQueue(olderBaseFolder + SubFolder + L"\\" + fileName);
}

void CAnalyticsQueue::MoveOlderQueue(const std::wstring& olderPath)
{
    // Where links count, a queue behind one isn't taken: the move would reach it by its path.
    if (!IO::CFile::Exists(olderPath) || IO::LinkInWay(olderPath) || IO::LinkInWay(m_Path))
        return;
    // A queue that is in use here is never replaced; MoveFileEx refuses that itself. Under the mutex, since
    // a move to another volume is a copy that nobody may see half done.
    const Win32::CMutexOwner owner(m_QueueMutex, nullptr, QueueWaitMs);
    m_OtherHangs = !owner.Owns();
    if (owner.Owns() && ::MoveFileExW(olderPath.c_str(), m_Path.c_str(), MOVEFILE_COPY_ALLOWED))
        LS_LOG_INFO(L"CAnalyticsQueue::MoveOlderQueue() : moved from %s", olderPath.c_str());
}

/// Runs action on the contents; true when it could be run and returned true.
template <class Action>
bool CAnalyticsQueue::WithContents(const char* what, HANDLE stopEvent, std::uint32_t patienceMs,
                                   Action action)
{
    const Win32::CMutexOwner owner(m_QueueMutex, stopEvent, m_OtherHangs ? 0 : QueueWaitMs);
    if (owner.Owns())
    {
        m_OtherHangs = false;
        CQueueFile file(m_Path, m_FileIsHeld ? CQueueFile::ShortPatienceMs : patienceMs);
        m_FileIsHeld = !file.IsOpen() && (m_FileIsHeld || patienceMs == LongPatienceMs);
        if (file.IsOpen())
        {
            CQueueContents contents(file);
            if (action(contents))
                return true;
        }
    }
    else if (!stopEvent)
        m_OtherHangs = true;
    LS_LOG_FAILURE("CAnalyticsQueue::%s() : failed : owns=%d : LastError=%u", what, owner.Owns(),
                   ::GetLastError());
    return false;
}

bool CAnalyticsQueue::Append(const std::string& query)
{
    auto appended = CQueueContents::Appended::Failed;
    WithContents("Append", nullptr, LongPatienceMs, [&](CQueueContents& contents) {
        appended = contents.Append(query);
        return appended != CQueueContents::Appended::Failed;
    });
    return appended == CQueueContents::Appended::Yes;
}

CQueueContents::FirstRecord CAnalyticsQueue::GetFirst(HANDLE stopEvent)
{
    CQueueContents::FirstRecord record;
    WithContents("GetFirst", stopEvent, CQueueFile::ShortPatienceMs, [&](CQueueContents& contents) {
        record = contents.GetFirst();
        return record.Kind != CQueueContents::First::Failed;
    });
    return record;
}

bool CAnalyticsQueue::RemoveFirst(const QueueRecordKey& key)
{
    // A stop doesn't cut this wait short: the record has been sent and would be sent again.
    return WithContents("RemoveFirst", nullptr, LongPatienceMs,
                        [&](CQueueContents& contents) { return contents.RemoveFirst(key); });
}
