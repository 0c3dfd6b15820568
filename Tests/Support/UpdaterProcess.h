#pragma once

#include "Ls/System/Win32/UniqueHandle.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Tests
{
/// One updater, started as its client starts it: the client makes the three outcome events first, then runs
/// the program and waits on the events and on its end. One thread. The destructor ends an updater that
/// still runs.
class CUpdaterProcess
{
public:
    /// What the client saw.
    struct Outcome
    {
        /// Whole 32 bits. STILL_ACTIVE when the updater had to be ended because its time was over.
        std::uint32_t ExitCode = 0;
        std::uint32_t ProcessId = 0;
        /// Events seen, separated by blanks: "Yes", "Deny No", ... Of two that are set when the client
        /// looks, "Yes" is named before "Deny" and "Deny" before "No".
        std::string Events;
        /// Texts of the message boxes that were answered.
        std::vector<std::wstring> Boxes;
        /// From the start to the end of the process.
        std::uint32_t Milliseconds = 0;
    };

    /// Without elevated the program gets the limited half of the tests' own rights (see CanStart). What the
    /// program starts belongs to the job, too, if there is one. Throws std::runtime_error when the program
    /// can't be started.
    CUpdaterProcess(const std::wstring& program, const std::wstring& product, const std::wstring& arguments,
                    const std::wstring& workingFolder, bool elevated = true, HANDLE job = nullptr,
                    HANDLE output = nullptr);
    CUpdaterProcess(const CUpdaterProcess&) = delete;
    /// Whether these rights are there: where all users are administrators, the limited half isn't.
    static bool CanStart(bool elevated);
    ~CUpdaterProcess();

    /// Button pressed in every message box of the updater, OK where a box lacks it; IDCLOSE closes the
    /// window instead; 0: boxes stay open.
    int Answer = 0;

    /// Goes on until that event has been seen; false when the process ended or the time passed before.
    bool WaitForEvent(const std::string& name, std::uint32_t timeOutMs = LongestRunMs);
    /// Goes on until the process has ended.
    Outcome Finish(std::uint32_t timeOutMs = LongestRunMs);

    /// Ends it by force; nothing when it has ended.
    void End();

    bool HasEnded() const { return ::WaitForSingleObject(m_Process.Get(), 0) == WAIT_OBJECT_0; }
    HANDLE Process() const { return m_Process.Get(); }
    std::uint32_t Id() const { return m_Seen.ProcessId; }

    /// Only a hang takes this long.
    static constexpr std::uint32_t LongestRunMs = 120000;

private:
    /// Waits for one thing to happen, at most until the given tick; false when the process has ended.
    bool Step(ULONGLONG deadline);
    void AnswerBoxes();

    LS::System::Win32::CKernelHandle m_Deny, m_No, m_Yes;
    LS::System::Win32::CKernelHandle m_Process;
    ULONGLONG m_Start = 0;
    Outcome m_Seen;
    std::vector<HWND> m_Answered;
};
} // namespace Tests
