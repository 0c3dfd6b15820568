#pragma once

#include <windows.h>

#include <string>
#include <vector>

/// A test case of a test program.
struct Case
{
    std::string Name;
    /// Why it is left out here; empty when it isn't.
    std::string LeftOut;
};

struct Result
{
    bool Passed = false;
    unsigned Milliseconds = 0;
    /// All that was written: failed assertions, the program's log.
    std::string Output;
};

/// Test cases of the program but those that others start. Throws std::runtime_error when it can't tell.
std::vector<Case> ListCases(const std::wstring& program, const std::wstring& scratch, HANDLE stop);

/// Runs the case in a process of its own; with all that it starts it is ended when its time is over or the
/// event is set.
Result RunCase(const std::wstring& program, const Case& one, const std::wstring& scratch, HANDLE stop);
