#pragma once

#include <windows.h>

#include <rpc.h>

#include <string>

namespace LS::System
{
/// The RPC text form: lower case, hyphens, no braces. Throws CException "UuidToString failed".
std::wstring UUIDToString(const UUID& uuid);

/// A fresh UUID. Throws CException when the system can't make one.
UUID CreateUUID();
} // namespace LS::System
