#pragma once

#include <windows.h>

/// From here on std::terminate, abort and SIGABRT end the process at once with 256, without a message box and
/// without exit handlers, on whatever thread they come up. The run time's own code for them, 3, means "no
/// update" to the client. (An access violation and the like end with the system's codes, which no outcome
/// has.)
void EndCrashesWithOwnCode() noexcept;

/// The event that tells the client of the end before that; null: none. It belongs to the caller, who takes it
/// back before it is closed.
void SetEventForCrash(HANDLE updateNo) noexcept;
