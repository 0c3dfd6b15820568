#include "Ls/System/Net/RequestHandles.h"

#include <utility>

namespace LS::System::Net
{
namespace
{
using Win32::CLock;

// A call that was about to come back has done so after this long, and one that had only begun has reached its
// handle.
constexpr int GraceSteps = 10;
constexpr DWORD GraceStepMs = 25;
} // namespace

HINTERNET CRequestHandles::Enter() noexcept
{
    const CLock lock(m_Lock);
    m_InCall = !m_Broken;
    return m_InCall ? Request.Get() : nullptr;
}

void CRequestHandles::Leave() noexcept
{
    const CLock lock(m_Lock);
    m_InCall = false;
}

void CRequestHandles::Break() noexcept
{
    {
        const CLock lock(m_Lock);
        if (std::exchange(m_Broken, true) || !m_InCall)
            return;
    }
    AddRef();
    if (!::QueueUserWorkItem(&BreakLater, this, WT_EXECUTELONGFUNCTION))
        Release(); // then the time-outs end the call
}

DWORD WINAPI CRequestHandles::BreakLater(void* handles) noexcept
{
    auto* const self = static_cast<CRequestHandles*>(handles);
    self->CloseBlockedRequest();
    self->Release();
    return 0;
}

void CRequestHandles::CloseBlockedRequest() noexcept
{
    const auto inCall = [this] {
        const CLock lock(m_Lock);
        return m_InCall;
    };
    for (int step = 0; step < GraceSteps && inCall(); ++step)
        ::Sleep(GraceStepMs);

    CInternetHandle request; // closed outside the lock: that can take long
    const CLock lock(m_Lock);
    if (m_InCall)
        request = std::move(Request);
}

void CRequestHandles::ReleaseLater(CRefPtr<CRequestHandles> handles) noexcept
{
    CRequestHandles* const last = handles.Detach();
    if (last && !::QueueUserWorkItem(&ReleaseNow, last, WT_EXECUTELONGFUNCTION))
        last->Release();
}

DWORD WINAPI CRequestHandles::ReleaseNow(void* handles) noexcept
{
    static_cast<CRequestHandles*>(handles)->Release();
    return 0;
}
} // namespace LS::System::Net
