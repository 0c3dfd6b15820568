#include "Updater/AnalyticsQueue.h"

#include "Ls/System/Exception.h"
#include "Ls/System/Io/Directory.h"
#include "Ls/System/Io/File.h"
#include "Ls/System/Util/Log.h"
#include "Updater/MutexOwner.h"
#include "Updater/QueueFile.h"

using namespace LS::System;

namespace
{
constexpr char QueueMutexName[] = "_LSAnalytics{98CA00B7-D428-47a8-8EBE-66ADA4179BB9}";
constexpr char UploadMutexName[] = "_LSAnalytics{98CA00B7-D428-47a8-8EBE-66ADA4179BB9}_uld";
constexpr wchar_t SubFolder[] = L"\\Larkspur\\Analytics";

/// The queue is held for milliseconds at a time. Whoever holds it longer than this hangs, and the run goes on
/// without its record.
constexpr std::uint32_t QueueWaitMs = 5000;
} // namespace

CAnalyticsQueue::CAnalyticsQueue(const std::wstring& baseFolder, const std::wstring& olderBaseFolder,
                                 const std::wstring& fileName) :
    m_Folder(baseFolder + SubFolder),
    m_Path(m_Folder + L"\\" + fileName), m_QueueMutex(std::string(QueueMutexName), false),
    m_UploadMutex(std::string(UploadMutexName), false)
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
    if (!olderBaseFolder.empty())
        MoveOlderQueue(olderBaseFolder + SubFolder + L"\\" + fileName);
}

void CAnalyticsQueue::MoveOlderQueue(const std::wstring& olderPath)
{
    if (!IO::CFile::Exists(olderPath))
        return;
    // A queue that is in use here is never replaced; MoveFileEx refuses that itself. Under the mutex, since
    // a move to another volume is a copy that nobody may see half done.
    const CMutexOwner owner(m_QueueMutex, nullptr, QueueWaitMs);
    if (owner.Owns() && ::MoveFileExW(olderPath.c_str(), m_Path.c_str(), MOVEFILE_COPY_ALLOWED))
        LS_LOG_INFO(L"CAnalyticsQueue::MoveOlderQueue() : moved from %s", olderPath.c_str());
}

bool CAnalyticsQueue::Append(const std::string& query)
{
    const CMutexOwner owner(m_QueueMutex, nullptr, QueueWaitMs);
    if (owner.Owns())
    {
        CQueueFile file(m_Path);
        const auto appended =
            file.IsOpen() ? CQueueContents(file).Append(query) : CQueueContents::Appended::Failed;
        if (appended != CQueueContents::Appended::Failed)
            return appended == CQueueContents::Appended::Yes;
    }
    LS_LOG_FAILURE(L"CAnalyticsQueue::Append() : event lost : owns=%d : LastError=%u", owner.Owns(),
                   ::GetLastError());
    return false;
}

CQueueContents::FirstRecord CAnalyticsQueue::GetFirst(HANDLE stopEvent)
{
    const CMutexOwner owner(m_QueueMutex, stopEvent, QueueWaitMs);
    if (owner.Owns())
    {
        CQueueFile file(m_Path);
        CQueueContents::FirstRecord record;
        if (file.IsOpen())
            record = CQueueContents(file).GetFirst();
        if (record.Kind != CQueueContents::First::Failed)
            return record;
    }
    LS_LOG_FAILURE(L"CAnalyticsQueue::GetFirst() : owns=%d : LastError=%u", owner.Owns(), ::GetLastError());
    return {};
}

bool CAnalyticsQueue::RemoveFirst(const QueueRecordKey& key)
{
    // A stop doesn't cut this wait short: the record has been sent and would be sent again.
    const CMutexOwner owner(m_QueueMutex, nullptr, QueueWaitMs);
    if (owner.Owns())
    {
        CQueueFile file(m_Path);
        if (file.IsOpen() && CQueueContents(file).RemoveFirst(key))
            return true;
    }
    LS_LOG_FAILURE(L"CAnalyticsQueue::RemoveFirst() : owns=%d : LastError=%u", owner.Owns(),
                   ::GetLastError());
    return false;
}
