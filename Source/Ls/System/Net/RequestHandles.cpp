#include "Ls/System/Net/RequestHandles.h"

#include <algorithm>
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
    m_Pace.CallBegins(::GetTickCount());
    return m_InCall ? Request.Get() : nullptr;
}

void CRequestHandles::Leave(DWORD received) noexcept
{
    const CLock lock(m_Lock);
    m_InCall = false;
    const DWORD now = ::GetTickCount();
    m_Pace.CallEnds(now, received);
    m_TooSlow = m_TooSlow || m_Pace.IsTooSlow(now);
}

/// Runs call(request), which may block and sets received (may be null) to the bytes that it brings. False
/// without a call when the exchange is broken off.
template <class Call>
BOOL CRequestHandles::CallBlocking(const Call& call, const DWORD* received) noexcept
{
    const HINTERNET request = Enter();
    if (!request)
    {
        Leave(0);
        ::SetLastError(ERROR_INTERNET_OPERATION_CANCELLED);
        return FALSE;
    }
    const BOOL done = call(request);
    const DWORD error = ::GetLastError();
    Leave(done && received ? *received : 0);
    ::SetLastError(error);
    return done;
}

BOOL CRequestHandles::Send() noexcept
{
    {
        const CLock lock(m_Lock);
        m_Pace.BeginStretch();
    }
    const BOOL sent = CallBlocking(
        [](HINTERNET request) { return ::HttpSendRequestA(request, nullptr, 0, nullptr, 0); }, nullptr);
    if (!GiveUpIfTooSlow())
        return FALSE;
    const CLock lock(m_Lock);
    m_Pace.BeginStretch();
    return sent;
}

BOOL CRequestHandles::Read(void* data, DWORD size, DWORD& read) noexcept
{
    for (read = 0; read < size;)
    {
        DWORD got = 0;
        if (!ReadPiece(static_cast<char*>(data) + read, size - read, got))
        {
            GiveUpIfTooSlow();
            return FALSE;
        }
        if (got == 0)
            break;
        read += got;
        if (!GiveUpIfTooSlow())
            return FALSE;
    }
    return TRUE;
}

/// At least a byte, but at the end; everything that is asked for of a fast server.
BOOL CRequestHandles::ReadPiece(char* data, DWORD size, DWORD& got) noexcept
{
    if (!m_Pace.IsFast()) // changed by this thread alone
    {
        DWORD ready = 0;
        if (!CallBlocking(
                [&](HINTERNET request) { return ::InternetQueryDataAvailable(request, &ready, 0, 0); },
                nullptr))
            return FALSE;
        // Nothing: the reading tells whether that is the end or a failure.
        if (ready != 0)
            size = std::min(size, ready);
    }
    return CallBlocking([&](HINTERNET request) { return ::InternetReadFile(request, data, size, &got); },
                        &got);
}

/// False, with the last error of a time-out, when the server has been given up.
BOOL CRequestHandles::GiveUpIfTooSlow() noexcept
{
    if (!IsTooSlow())
        return TRUE;
    ::SetLastError(ERROR_INTERNET_TIMEOUT);
    return FALSE;
}

bool CRequestHandles::IsTooSlow() noexcept
{
    const CLock lock(m_Lock);
    return m_TooSlow;
}

void CRequestHandles::BreakIfTooSlow() noexcept
{
    {
        const CLock lock(m_Lock);
        if (!m_InCall || !m_Pace.IsTooSlow(::GetTickCount()))
            return;
        m_TooSlow = true;
    }
    Break();
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
