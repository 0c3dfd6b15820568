#include "Updater/Run/OnlineCheck.h"

#include "Ls/System/Win32/RegistryKey.h"
#include "Ls/System/Win32/SystemLibrary.h"

#include <windows.h>

#include <wininet.h>

using namespace LS::System::Win32;

namespace
{
// From sensapi.h, which not every Windows SDK for cross-compiling has a library for.
constexpr std::uint32_t NetworkAliveLan = 1;
constexpr std::uint32_t NetworkAliveWan = 2;

constexpr std::uint32_t AskAgainAfterMs = 1000;

/// 0 offline, 1 online, anything else: no override.
std::uint32_t StatusOverride()
{
    const std::wstring keyPath = L"HKEY_LOCAL_MACHINE\\Software\\Larkspur";
    constexpr std::uint32_t none = 2;
    if (!CRegistryKey::KeyExists(keyPath))
        return none;
    return CRegistryKey(keyPath, true).GetUint32(L"ConnectionStatusOverride", none);
}

void AskNetworkAlive(NetworkState& state)
{
    using Function = BOOL(WINAPI*)(LPDWORD);
    const CSystemLibrary library(L"sensapi.dll");
    const auto isNetworkAlive = library.GetFunction<Function>("IsNetworkAlive");
    DWORD flags = 0;
    if (isNetworkAlive && isNetworkAlive(&flags))
    {
        state.AliveKnown = true;
        state.Alive = flags;
    }
}
} // namespace

bool IsOnline(const NetworkState& state) noexcept
{
    const bool lan = (state.Connection & INTERNET_CONNECTION_LAN) != 0;
    const bool modem = (state.Connection & INTERNET_CONNECTION_MODEM) != 0;
    const bool configured = (state.Connection & INTERNET_CONNECTION_CONFIGURED) != 0;
    if (lan && (state.Alive & NetworkAliveLan) != 0)
        return true;
    if (modem && (state.Alive & NetworkAliveWan) != 0)
        return true;
    return configured && !lan && !modem && state.AliveKnown;
}

bool COnlineCheck::IsOnline()
{
    const std::uint32_t statusOverride = StatusOverride();
    if (statusOverride <= 1)
        return statusOverride == 1;

    NetworkState state;
    AskNetworkAlive(state);
    state.Connection = Connection();
    return ::IsOnline(state);
}

std::uint32_t COnlineCheck::Connection()
{
    const std::uint32_t now = ::GetTickCount();
    if (!m_Connection || now - m_LastAskedTicks >= AskAgainAfterMs)
    {
        // The flags are filled in also when the answer is "not connected".
        DWORD flags = 0;
        char name[256] = {};
        ::InternetGetConnectedStateExA(&flags, name, sizeof(name), 0);
        m_Connection = flags;
        m_LastAskedTicks = now;
    }
    return *m_Connection;
}
