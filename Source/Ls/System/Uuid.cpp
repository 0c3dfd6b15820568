#include "Ls/System/Uuid.h"

#include "Ls/System/String/Convert.h"
#include "Ls/System/String/SystemErrorText.h"
#include "Ls/System/ThrowException.h"
#include "Ls/System/Win32/UniqueHandle.h"

namespace LS::System
{
namespace
{
struct RpcStringTraits
{
    using Type = RPC_CSTR;
    static Type None() noexcept { return nullptr; }
    static void Free(Type text) noexcept { ::RpcStringFreeA(&text); }
};
} // namespace

std::wstring UUIDToString(const UUID& uuid)
{
    UUID copy = uuid; // not every version of the system's header takes a const one
    Win32::CUniqueHandle<RpcStringTraits> text;
    const RPC_STATUS status = ::UuidToStringA(&copy, text.Receive());
    if (status != RPC_S_OK || !text)
    {
        ThrowException(CException(WithLastError(status, L"UuidToString failed"), LS_HERE));
        return {};
    }
    return AnsiToWide(reinterpret_cast<const char*>(text.Get()));
}

UUID CreateUUID()
{
    UUID uuid{};
    const RPC_STATUS status = ::UuidCreate(&uuid);
    // "Local only": made without a network card's address; unique on this machine, which is enough here.
    if (status != RPC_S_OK && status != RPC_S_UUID_LOCAL_ONLY)
        ThrowException(CException(WithLastError(status, L"UuidCreate failed"), LS_HERE));
    return uuid;
}
} // namespace LS::System
