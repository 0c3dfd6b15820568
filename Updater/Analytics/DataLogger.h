#pragma once

#include "Ls/Analytics/DataCollector.h"
#include "Ls/System/ReferenceCounted.h"
#include "Updater/Analytics/AnalyticsQueue.h"
#include "Updater/Analytics/AnalyticsSender.h"

#include <cstdint>
#include <string>

/// The run's analytics client: knows who and what the run is about, puts each event into the persistent queue
/// and has it sent in the background. Belongs to the driver's thread. An event that can't be stored or sent
/// is no error; a refused one is: the collector's exceptions reach the caller (CRunAnalytics keeps them from
/// the run).
class CDataLogger
{
public:
    /// Gathers all that every event tells, opens the queue and starts sending what earlier runs left in it.
    /// dp is part of what the client hands over and goes into no event. session may not be empty. Throws
    /// CException.
    CDataLogger(const std::wstring& partner, const std::wstring& dp, const std::wstring& session);
    CDataLogger(const CDataLogger&) = delete;
    CDataLogger& operator=(const CDataLogger&) = delete;
    /// Stops sending at once; see FinalFlush.
    ~CDataLogger();

    /// Category "Update", action "NoAction", label eventName, value 1.
    void UpdateEvent(const std::wstring& eventName);
    /// The number stands in for the fixed parts: as the action in decimal, signed as exit codes are logged,
    /// and as the value, its 32 bits unsigned.
    void UpdateEvent(const std::wstring& eventName, std::int32_t number);
    /// Category "ErrorInfo", action errorName, label detail, value the calling thread's last error.
    void ErrorEvent(const std::wstring& errorName, const std::wstring& detail);

    /// Lets the queue drain for 5000 ms at most; what isn't sent by then is left to a later run, and so is
    /// what is added afterwards.
    void FinalFlush();

    static std::wstring GetOSVersion();
    /// "OEMOrigin" of section "Main" in the machine's "Larkspur\Larkspur.ini". Throws CException
    /// "SHGetFolderPathW failure".
    static std::wstring GetOEMOrigin();
    /// See FindOrMakeVisitorId.
    static std::wstring GetVisitorID();

private:
    void AddEvent(const std::wstring& category, const std::wstring& action, const std::wstring& label,
                  std::uint32_t value);

    LS::Analytics::CDataCollector m_Collector;
    LS::System::CRefPtr<CAnalyticsQueue> m_Queue;
    LS::System::CRefPtr<CAnalyticsSender> m_Sender;
};
