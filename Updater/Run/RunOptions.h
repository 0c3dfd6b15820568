#pragma once

#include <string>
#include <string_view>
#include <vector>

/// What the command line asks of one run. Values are as given: not trimmed, unquoted or checked.
struct RunOptions
{
    std::wstring ProductName = L"PlayDeck";
    bool IsBlueStacks = false;
    std::wstring DP;
    std::wstring Locale;
    std::wstring FromFilePath;
    std::wstring PatchURL;
    std::wstring AppArgs;
    bool ShowPrompt = false;
    bool Notify = false;
    bool ShowProgress = true;
    std::wstring ParkPath;
    bool UseParking = true;
    bool EmitDownloadProgress = false;
    std::wstring Session;
    std::wstring Partner;
    bool Throttling = true;
    /// Raw tail of the command line, quotes and all.
    std::wstring InstallerArgs;
};

/// Fills the options. commandLine is the raw command line, arguments its split form without the program's
/// name. Never fails: what isn't known is ignored.
RunOptions ParseRunOptions(std::wstring_view commandLine, const std::vector<std::wstring>& arguments);
