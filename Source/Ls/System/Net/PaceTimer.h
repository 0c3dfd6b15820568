#pragma once

#include "Ls/System/Net/ReceivePace.h"

#include <windows.h>

namespace LS::System::Net
{
class CRequestHandles;

/// Breaks an exchange off when a call of it has waited too long for too little; the thread that works with
/// the exchange makes the timer and ends it before it lets go of the handles. Without a timer (the system is
/// short of memory) only the end of each call shows a slow server.
class CPaceTimer
{
public:
    CPaceTimer(CRequestHandles& handles, const LeastPace& least) noexcept;
    CPaceTimer(const CPaceTimer&) = delete;
    CPaceTimer& operator=(const CPaceTimer&) = delete;
    /// The handles aren't used any more behind it.
    ~CPaceTimer();

private:
    HANDLE m_Timer = nullptr;
};
} // namespace LS::System::Net
