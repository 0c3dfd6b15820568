#include "Tests/Support/WideText.h"
#include "Updater/Run/RunOptions.h"

#include <windows.h>

#include <shellapi.h>

#include <doctest/doctest.h>

namespace
{
/// Everything that isn't at its default, "Name=value" with "; " between.
std::wstring Describe(const RunOptions& options)
{
    std::wstring text;
    const auto add = [&](const std::wstring& item) { text += (text.empty() ? L"" : L"; ") + item; };
    if (options.ProductName != L"PlayDeck")
        add(L"ProductName=" + options.ProductName);
    const std::pair<const wchar_t*, const std::wstring*> texts[] = {
        {L"DP", &options.DP},
        {L"Locale", &options.Locale},
        {L"FromFilePath", &options.FromFilePath},
        {L"PatchURL", &options.PatchURL},
        {L"AppArgs", &options.AppArgs},
        {L"ParkPath", &options.ParkPath},
        {L"Session", &options.Session},
        {L"Partner", &options.Partner},
        {L"InstallerArgs", &options.InstallerArgs},
    };
    for (const auto& [name, value] : texts)
    {
        if (!value->empty())
            add(std::wstring(name) + L"=" + *value);
    }
    const std::pair<const wchar_t*, bool> flags[] = {
        {L"IsBlueStacks", options.IsBlueStacks},
        {L"ShowPrompt", options.ShowPrompt},
        {L"Notify", options.Notify},
        {L"no ShowProgress", !options.ShowProgress},
        {L"no UseParking", !options.UseParking},
        {L"EmitDownloadProgress", options.EmitDownloadProgress},
        {L"no Throttling", !options.Throttling},
    };
    for (const auto& [name, moved] : flags)
    {
        if (moved)
            add(name);
    }
    return text;
}

RunOptions Parse(const std::wstring& line)
{
    // The system's splitting has the runtime's rules.
    const std::wstring whole = L"Updater.exe " + line;
    int count = 0;
    wchar_t** arguments = ::CommandLineToArgvW(whole.c_str(), &count);
    REQUIRE(arguments);
    const RunOptions options = ParseRunOptions(whole, {arguments + 1, arguments + count});
    ::LocalFree(arguments);
    return options;
}
} // namespace

TEST_CASE("each command line gives its options")
{
    const struct
    {
        const wchar_t* Line;
        const wchar_t* Options;
    } table[] = {
        {L"", L""},
        {L"PlayDeck -prompt prompt ? /", L""},
        {L"/product=X", L"ProductName=X"},
        {L"/PRODUCT=MixedCase", L"ProductName=MixedCase"},
        {L"/product=", L"ProductName="},
        {L"\"/product=two words\"", L"ProductName=two words"},
        {L"/product=bluestacks", L"ProductName=bluestacks; IsBlueStacks"},
        {L"/product=BlueStacks /product=Other", L"ProductName=Other; IsBlueStacks"},
        {L"/product=BlueStacks2", L"ProductName=BlueStacks2"},
        {L"/product=A /product=PlayDeck", L""},
        {L"/dp=abc", L"DP=abc"},
        {L"/DP=", L""},
        {L"/dp abc", L"DP=abc"},
        {L"/dpx abc", L"DP=abc"},
        {L"/dp /prompt", L"DP=/prompt; ShowPrompt"},
        {L"/dp /dp=z", L"DP=z"},
        {L"/dp=a /dp", L""},
        {L"/dp /installerargs=/S", L"DP=/installerargs=/S; InstallerArgs=/S"},
        {L"/locale=de-DE /Locale=ko", L"Locale=ko"},
        {L"/from=\"C:\\a b\\c.exe\"", L"FromFilePath=C:\\a b\\c.exe"},
        {L"/patchurl=http://x/y?a=b", L"PatchURL=http://x/y?a=b"},
        {L"\"/appargs=/room 7\"", L"AppArgs=/room 7"},
        {L"/parkpath=P /session=S /partner=Q", L"ParkPath=P; Session=S; Partner=Q"},
        {L"/prompt /NOTIFY /NoProg /noparking /emitdownloadprogress /nothrottling",
         L"ShowPrompt; Notify; no ShowProgress; no UseParking; EmitDownloadProgress; no Throttling"},
        {L"/prompts /notify= /noprogress /noparkings /emitdownloadprogress1 /nothrottling=", L""},
        {L"/installerargs=/S /D=C:\\x", L"InstallerArgs=/S /D=C:\\x"},
        {L"/installerargs=/prompt /product=X /installerargs=y",
         L"InstallerArgs=/prompt /product=X /installerargs=y"},
        {L"/prompt /installerargs=\"a b\"  c ", L"InstallerArgs=\"a b\"  c ; ShowPrompt"},
        {L"/InstallerArgs=x /prompt", L""},
        {L"/InstallerArgs=x /installerargs=y", L"InstallerArgs=y"},
        {L"\"/session=a/installerargs=b\"", L"Session=a/installerargs=b; InstallerArgs=b\""},
    };
    for (const auto& [line, options] : table)
    {
        CAPTURE(std::wstring(line));
        CHECK(Describe(Parse(line)) == options);
    }
}
