#pragma once

#include "Ls/System/Object.h"
#include "Ls/System/ReferenceCounted.h"
#include "Ls/System/Win32/Mutex.h"
#include "Updater/Analytics/QueueContents.h"

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <string>

/// The persistent queue of query strings, shared by all threads and processes of one user session. Every call
/// opens the file anew under the queue's mutex, so a process that ends holds nothing up, and nothing is held
/// while a query string is on its way. Any thread may call.
///
/// What can't be done is logged and told by the result: analytics never fail a run. Only a failing wait and
/// a want of memory throw.
class CAnalyticsQueue : public LS::System::CReferenceCounted, public LS::System::CObject
{
public:
    /// The file is "<baseFolder>\Larkspur\Analytics\<fileName>". One that lies under olderBaseFolder instead
    /// (may be empty), where there is none here yet, is moved here. Throws CException when the mutexes can't
    /// be opened.
    CAnalyticsQueue(const std::wstring& baseFolder, const std::wstring& olderBaseFolder,
                    const std::wstring& fileName);

    const std::wstring& Path() const noexcept { return m_Path; }

    /// False when the record isn't in the queue; a full queue refuses it without a word.
    bool Append(const std::string& query);

    /// For the one that owns UploadMutex. The wait for the queue ends early when stopEvent is set; that is
    /// Failed.
    CQueueContents::FirstRecord GetFirst(HANDLE stopEvent);
    bool RemoveFirst(const QueueRecordKey& key);

    /// Owned while a query string is being uploaded, from the reading of the record to its removal.
    const LS::System::Win32::CMutex& UploadMutex() const noexcept { return m_UploadMutex; }

private:
    void MoveOlderQueue(const std::wstring& olderPath);
    template <class Action>
    bool WithContents(const char* what, HANDLE stopEvent, std::uint32_t patienceMs, Action action);

    const std::wstring m_Folder;
    const std::wstring m_Path;
    const LS::System::Win32::CMutex m_QueueMutex;
    const LS::System::Win32::CMutex m_UploadMutex;
    /// Another process holds the queue's mutex and doesn't give it back.
    std::atomic<bool> m_OtherHangs{false};
    /// Another program holds the file and doesn't let go of it.
    std::atomic<bool> m_FileIsHeld{false};
};
