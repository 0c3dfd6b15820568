// The states of a network that Wine doesn't show are a table; what the system itself says can't be.
#include "Ls/System/Win32/UniqueHandle.h"
#include "Tests/Support/Caught.h"
#include "Updater/Run/OnlineCheck.h"

#include <windows.h>

#include <doctest/doctest.h>

TEST_CASE("online needs a connection whose kind of network is alive, or a configured one")
{
    constexpr std::uint32_t Modem = 1, Lan = 2, Configured = 64;
    const struct
    {
        NetworkState State;
        bool Online;
    } table[] = {
        {{Lan, true, 1}, true},
        {{Modem, true, 2}, true},
        {{Lan | Modem, true, 2}, true},
        {{Configured, true, 0}, true},
        {{0, true, 3}, false},
        {{Lan, true, 2}, false},
        {{Modem, true, 1}, false},
        {{Lan | Configured, true, 0}, false},
        {{Modem | Configured, true, 1}, false},
        {{Configured, false, 0}, false},
    };
    for (const auto& one : table)
    {
        CAPTURE(one.State.Connection);
        CAPTURE(one.State.Alive);
        CHECK(IsOnline(one.State) == one.Online);
    }
}

TEST_CASE("the override comes before what the system says")
{
    LS::System::Win32::CRegistryKeyHandle key;
    REQUIRE(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"Software\\Larkspur", 0, nullptr, 0, KEY_ALL_ACCESS,
                              nullptr, key.Receive(), nullptr) == ERROR_SUCCESS);
    const wchar_t* const name = L"ConnectionStatusOverride";
    const auto with = [&](DWORD value, DWORD type) {
        ::RegSetValueExW(key.Get(), name, 0, type, reinterpret_cast<const BYTE*>(&value), sizeof(value));
        return COnlineCheck().IsOnline();
    };
    CHECK(with(1, REG_DWORD));
    CHECK(!with(0, REG_DWORD));
    const bool noOverride = with(7, REG_DWORD);
    CHECK(Tests::Caught([&] { with(1, REG_BINARY); }));
    ::RegDeleteValueW(key.Get(), name);
    CHECK(COnlineCheck().IsOnline() == noOverride);
}
