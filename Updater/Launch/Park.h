#pragma once

#include <string>

/// This run's copy of Park, the program that keeps the client's place while the client is replaced. The copy
/// lies in the product's data folder under a name of its own and stays there: Park outlives the updater.
class CPark
{
public:
    /// Copies Park from parkPath or, when that is empty, from the updater's folder or its "PatchTools".
    /// Throws CExitCodeException 1792 when there is none and 1793 when it can't be copied.
    CPark(const std::wstring& parkPath, const std::wstring& productName);

    const std::wstring& CopyPath() const noexcept { return m_CopyPath; }

    /// Throws CExitCodeException 1794.
    void Start(const std::wstring& commandLine) const;
    /// Tells the started Park to give up, whatever comes of it.
    void Terminate() const;

private:
    std::wstring m_DataDir;
    std::wstring m_CopyPath;
};
