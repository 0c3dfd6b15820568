#pragma once

#include "Ls/System/Exception.h"

#include <string>

namespace LS::System
{
/// The one place that throws a CException; any thread may call it.
///
/// Debug values (REG_DWORD under HKLM\SOFTWARE\Larkspur\Debugging) change what happens:
/// "ShowThrowContinueDialog" asks a developer whether to continue, break or throw; "ForceBreak" breaks into
/// the debugger first; "ForceContinue" does not throw. So it CAN RETURN: code behind a call must leave the
/// object in a state that is safe to use or destroy.
void ThrowException(const CException& exception);

/// Format() texts of the two most recent exceptions of the process, for crash dumps and support.
struct RecentExceptions
{
    std::wstring Latest;
    std::wstring Previous;
};
RecentExceptions GetRecentExceptions();
} // namespace LS::System
