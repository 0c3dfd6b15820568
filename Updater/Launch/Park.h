#pragma once

#include <windows.h>

#include <string>

/// This run's copy of Park, the program that keeps the client's place while the client is replaced. The copy
/// lies in the product's data folder under a name of its own and stays there: Park outlives the updater.
class CPark
{
public:
    /// Copies Park from parkPath or, when that is empty, from the updater's folder or its "PatchTools".
    /// Throws CExitCodeException 1792 when there is none and 1793 when it can't be copied.
    CPark(const std::wstring& parkPath, const std::wstring& productName);
    CPark(const CPark&) = delete;
    CPark& operator=(const CPark&) = delete;
    /// A Park that still waits for a patch won't see one: it is told to give up.
    ~CPark();

    const std::wstring& CopyPath() const noexcept { return m_CopyPath; }

    /// Park waits from here on. Throws CExitCodeException 1794.
    /// owner as of StartThroughShell.
    void Start(const std::wstring& commandLine, HWND owner);
    /// It was started, and what it waits for is still open.
    bool IsWaiting() const noexcept { return m_IsWaiting; }
    /// The patch runs: Park has all that it needs.
    void LetGo() noexcept { m_IsWaiting = false; }
    /// Tells the waiting Park to give up, whatever comes of it. Takes a second.
    void Terminate() noexcept;

private:
    std::wstring m_DataDir;
    std::wstring m_CopyPath;
    bool m_IsWaiting = false;
};
