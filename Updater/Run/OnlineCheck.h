#pragma once

#include <cstdint>
#include <optional>

/// What the system says about the network at one moment.
struct NetworkState
{
    /// INTERNET_CONNECTION_* flags of WinINet.
    std::uint32_t Connection = 0;
    /// IsNetworkAlive returned success.
    bool AliveKnown = false;
    /// Its NETWORK_ALIVE_* flags.
    std::uint32_t Alive = 0;
};

/// True when a connection of a kind is up and its network is alive; without either kind, when one is
/// configured and the network could be asked.
bool IsOnline(const NetworkState& state) noexcept;

/// Finds out whether the machine is online. WinINet is asked once a second at most: in between, its last
/// answer is used. An object belongs to one thread.
class COnlineCheck
{
public:
    /// "ConnectionStatusOverride" (REG_DWORD under "HKEY_LOCAL_MACHINE\Software\Larkspur": 0 offline, 1
    /// online) comes before all that the system says. Throws CException when that value is of another type.
    bool IsOnline();

private:
    std::uint32_t Connection();

    std::uint32_t m_LastAskedTicks = 0;
    /// Nothing until WinINet has been asked.
    std::optional<std::uint32_t> m_Connection;
};
