#include "Ls/System/Net/PaceTimer.h"

#include "Ls/System/Net/RequestHandles.h"

#include <algorithm>

namespace LS::System::Net
{
namespace
{
/// A slow server is noticed by this part of its time later, at most.
constexpr std::uint32_t LooksPerTime = 8;

void CALLBACK Look(void* handles, BOOLEAN /*timedOut*/)
{
    static_cast<CRequestHandles*>(handles)->BreakIfTooSlow();
}
} // namespace

CPaceTimer::CPaceTimer(CRequestHandles& handles, const LeastPace& least) noexcept
{
    const DWORD period = std::max<DWORD>(least.Ms / LooksPerTime, 1);
    if (!::CreateTimerQueueTimer(&m_Timer, nullptr, &Look, &handles, period, period, WT_EXECUTEDEFAULT))
        m_Timer = nullptr;
}

CPaceTimer::~CPaceTimer()
{
    if (m_Timer)
        ::DeleteTimerQueueTimer(nullptr, m_Timer, INVALID_HANDLE_VALUE); // waits for a look that goes on
}
} // namespace LS::System::Net
