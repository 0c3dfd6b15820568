#include "Updater/Run/RunOptions.h"

#include <cwchar>
#include <optional>

namespace
{
constexpr std::wstring_view InstallerArgsSwitch = L"/installerargs=";

bool EqualsIgnoringCase(std::wstring_view left, std::wstring_view right)
{
    return left.size() == right.size() && _wcsnicmp(left.data(), right.data(), left.size()) == 0;
}

/// What follows the prefix (any case) in the argument; nothing when it begins otherwise.
std::optional<std::wstring> ValueOf(const std::wstring& argument, std::wstring_view prefix)
{
    if (!EqualsIgnoringCase(std::wstring_view(argument).substr(0, prefix.size()), prefix))
        return std::nullopt;
    return argument.substr(prefix.size());
}

/// Applies one argument; false when it ends the updater's own arguments. The first switch that matches wins,
/// so the order is part of the command line's meaning ("/dp=" before "/dp").
bool Apply(RunOptions& options, const std::wstring& argument, const std::wstring* next)
{
    if (const auto product = ValueOf(argument, L"/product="))
    {
        options.ProductName = *product;
        // Stays set when a later "/product=" names another product.
        if (EqualsIgnoringCase(*product, L"BlueStacks"))
            options.IsBlueStacks = true;
    }
    else if (const auto dp = ValueOf(argument, L"/dp="))
        options.DP = *dp;
    else if (ValueOf(argument, L"/dp"))
        options.DP = next ? *next : std::wstring(); // nothing follows: no value
    else if (const auto locale = ValueOf(argument, L"/locale="))
        options.Locale = *locale;
    else if (const auto from = ValueOf(argument, L"/from="))
        options.FromFilePath = *from;
    else if (const auto patchURL = ValueOf(argument, L"/patchURL="))
        options.PatchURL = *patchURL;
    else if (const auto appArgs = ValueOf(argument, L"/appargs="))
        options.AppArgs = *appArgs;
    else if (EqualsIgnoringCase(argument, L"/prompt"))
        options.ShowPrompt = true;
    else if (EqualsIgnoringCase(argument, L"/notify"))
        options.Notify = true;
    else if (EqualsIgnoringCase(argument, L"/noprog"))
        options.ShowProgress = false;
    else if (const auto parkPath = ValueOf(argument, L"/parkpath="))
        options.ParkPath = *parkPath;
    else if (EqualsIgnoringCase(argument, L"/noparking"))
        options.UseParking = false;
    else if (EqualsIgnoringCase(argument, L"/emitdownloadprogress"))
        options.EmitDownloadProgress = true;
    else if (const auto session = ValueOf(argument, L"/session="))
        options.Session = *session;
    else if (const auto partner = ValueOf(argument, L"/partner="))
        options.Partner = *partner;
    else if (EqualsIgnoringCase(argument, L"/nothrottling"))
        options.Throttling = false;
    else if (ValueOf(argument, InstallerArgsSwitch))
        return false;
    return true;
}
} // namespace

RunOptions ParseRunOptions(std::wstring_view commandLine, const std::vector<std::wstring>& arguments)
{
    RunOptions options;

    // The installer gets its arguments as they were typed, so they come from the raw command line. This
    // search minds the case, unlike the switch that ends the loop below.
    const auto tail = commandLine.find(InstallerArgsSwitch);
    if (tail != std::wstring_view::npos)
        options.InstallerArgs = commandLine.substr(tail + InstallerArgsSwitch.size());

    for (std::size_t i = 0; i < arguments.size(); ++i)
    {
        const std::wstring* next = i + 1 < arguments.size() ? &arguments[i + 1] : nullptr;
        if (!Apply(options, arguments[i], next))
            break;
    }
    return options;
}
