#pragma once

#include "Ls/System/Net/InternetHandle.h"
#include "Ls/System/Net/ReceivePace.h"
#include "Ls/System/ReferenceCounted.h"
#include "Ls/System/Win32/CriticalSection.h"

namespace LS::System::Net
{
/// The WinINet handles of one exchange with a server. One thread works with them; any other may break off a
/// call that blocks.
///
/// Only the request is ever closed while somebody else works with it, and only once that thread has been
/// inside a call for a while, so that WinINet surely holds it: a handle that is closed just before its use
/// may be someone else's by then. The connection and the session go with the last reference, when neither
/// side is in a call: WinINet may walk from a handle to those below it without a lock (Wine does).
class CRequestHandles : public CReferenceCounted
{
public:
    CRequestHandles() = default;
    CRequestHandles(const CRequestHandles&) = delete;
    CRequestHandles& operator=(const CRequestHandles&) = delete;

    // The working thread's, which makes them and uses them for whatever doesn't wait for the network. Freed
    // from the last to the first.
    CInternetHandle Session;
    CInternetHandle Connection;
    CInternetHandle Request;

    /// Before the first of the two below.
    void SetLeastPace(const LeastPace& least) noexcept { m_Pace = CReceivePace(least); }
    /// Sends the request and waits for the head of the answer. FALSE, with the system's last error, as the
    /// system fails, when the exchange is broken off, or (ERROR_INTERNET_TIMEOUT) when the head came too
    /// slowly.
    BOOL Send() noexcept;
    /// Fills data with the next size bytes of the body; fewer only at its end, 0 when there are none. FALSE
    /// as of Send; what came before the failure is in data all the same.
    BOOL Read(void* data, DWORD size, DWORD& read) noexcept;
    /// Whether the server has been given up because it brings too little. The working thread's.
    bool IsTooSlow() noexcept;

    /// Any thread; returns at once. Breaks off a call that has waited too long for too little.
    void BreakIfTooSlow() noexcept;
    /// Any thread; returns at once. From now on no call begins. One that blocks is freed by closing the
    /// request (which not every system takes for a reason: there the time-outs end it).
    void Break() noexcept;

    /// Lets go of a last reference without waiting for it: within an answer the system may first read on to
    /// the answer's end (Wine does, a KiB at a time).
    static void ReleaseLater(CRefPtr<CRequestHandles> handles) noexcept;

private:
    /// Null when the exchange is broken off.
    HINTERNET Enter() noexcept;
    void Leave(DWORD received) noexcept;
    template <class Call>
    BOOL CallBlocking(const Call& call, const DWORD* received) noexcept;
    BOOL ReadPiece(char* data, DWORD size, DWORD& got) noexcept;
    BOOL GiveUpIfTooSlow() noexcept;
    void CloseBlockedRequest() noexcept;
    static DWORD WINAPI BreakLater(void* handles) noexcept;
    static DWORD WINAPI ReleaseNow(void* handles) noexcept;

    Win32::CCriticalSection m_Lock;
    // Guarded by the lock, as Request is during a call.
    bool m_Broken = false;
    bool m_InCall = false;
    bool m_TooSlow = false;
    CReceivePace m_Pace{LeastPace()};
};
} // namespace LS::System::Net
