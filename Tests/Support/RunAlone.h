#pragma once

#include "Ls/System/Io/Path.h"

#include <process.h>

namespace Tests
{
/// Runs a test case of this program that is skipped otherwise (a pattern without blanks) in a process of its
/// own; true when it passed.
inline bool RunAlone(const wchar_t* pattern)
{
    return _wspawnl(_P_WAIT, LS::System::IO::ProgramPath().c_str(), L"Tests", L"--no-skip", L"--out=nul",
                    (std::wstring(L"--test-case=") + pattern).c_str(), nullptr) == 0;
}
} // namespace Tests
