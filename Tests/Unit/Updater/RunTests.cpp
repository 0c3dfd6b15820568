// What a run is told: by its command line, the service and the network. The states of a
// network that Wine doesn't show are a table.
#include "Tests/Unit/Updater/Common.h"
#include "Updater/Query/UpdateAnswer.h"
#include "Updater/Run/OnlineCheck.h"
#include "Updater/Run/RunOptions.h"

#include <shellapi.h>

namespace
{
/// Everything that isn't at its default.
std::wstring Describe(const std::wstring& line)
{
    int count = 0;
    wchar_t** const arguments = ::CommandLineToArgvW((L"U " + line).c_str(), &count); // the runtime's rules
    const RunOptions o = ParseRunOptions(L"U " + line, {arguments + 1, arguments + count});
    ::LocalFree(arguments);
    std::wstring text = o.ProductName == L"PlayDeck" ? L"" : L"product=" + o.ProductName + L";";
    // clang-format off
    for (const auto& [name, set] : {std::pair{L"blue;", o.IsBlueStacks}, {L"prompt;", o.ShowPrompt},
        {L"notify;", o.Notify}, {L"noprog;", !o.ShowProgress}, {L"nopark;", !o.UseParking},
        {L"emit;", o.EmitDownloadProgress}, {L"nothrottle;", !o.Throttling}})
        text += set ? name : L"";
    for (const auto& [name, value] : {std::pair{L"dp=", o.DP}, {L"locale=", o.Locale},
        {L"from=", o.FromFilePath}, {L"url=", o.PatchURL}, {L"app=", o.AppArgs}, {L"park=", o.ParkPath},
        {L"session=", o.Session}, {L"partner=", o.Partner}, {L"installer=", o.InstallerArgs}})
        text += value.empty() ? L"" : name + value + L";";
    // clang-format on
    return text;
}
} // namespace

TEST_CASE("each command line gives its options")
{
    // clang-format off
    CheckTable<const wchar_t*, std::wstring>(Describe, {
        {L"PlayDeck -prompt prompt ? /", L""}, {L"\"/PRODUCT=Two Words\"", L"product=Two Words;"},
        {L"/product=", L"product=;"}, {L"/product=BlueStacks /product=Other", L"product=Other;blue;"},
        {L"/product=bluestacks2", L"product=bluestacks2;"}, {L"/DP= /dpx abc", L"dp=abc;"},
        {L"/dp=a /dp", L""}, {L"/dp /prompt", L"prompt;dp=/prompt;"}, {L"/dp /dp=z", L"dp=z;"},
        {L"/locale=de-DE /Locale=ko", L"locale=ko;"},
        {L"/from=\"C:\\a b\\c.exe\" /patchurl=http://x/y?a=b", L"from=C:\\a b\\c.exe;url=http://x/y?a=b;"},
        {L"\"/appargs=/room 7\" /parkpath=P /session=S /partner=Q",
        L"app=/room 7;park=P;session=S;partner=Q;"},
        {L"/prompt /NOTIFY /NoProg /noparking /emitdownloadprogress /nothrottling",
         L"prompt;notify;noprog;nopark;emit;nothrottle;"},
        {L"/prompts /notify= /noprogress /noparkings /emitdownloadprogress1 /nothrottling=", L""},
        {L"/installerargs=/prompt /product=X /installerargs=y",
        L"installer=/prompt /product=X /installerargs=y;"},
        {L"/prompt /installerargs=\"a b\"  c ", L"prompt;installer=\"a b\"  c ;"},
        {L"/InstallerArgs=x /prompt", L""}, {L"/InstallerArgs=x /installerargs=y", L"installer=y;"},
        {L"/dp /installerargs=", L"dp=/installerargs=;"},
        {L"\"/session=a/installerargs=b\"", L"session=a/installerargs=b;installer=b\";"}});
    // clang-format on
}

TEST_CASE("the patch URL is picked out of the answer, or the fault is named")
{
    const auto parse = [](const std::string& answer) {
        std::string url = "-";
        const std::int32_t code = ParseUpdateAnswer("<?xml?>" + answer, url);
        return code == 0 ? url : std::to_string(code) + url;
    };
    // clang-format off
    CheckTable<std::string, std::string>(parse, {
        {"<string xmlns=\"http://x/\">http://x/y.exe</string>", "http://x/y.exe"}, {"<string></string>", ""},
        {"<string> \r\n u&amp;amp;b </string>", " \r\n u&amp;amp;b "}, {"<string xmlns=\"http://x/\" />", ""},
        {"<string a=\"1\">one</string><string>two</string>", "two"}, // "<string>" is looked for first
        {"<a><string>one</string><string>two</string></a>", "one"}, {"<strings>one</strings>", "one"},
        {"<string>a<b/>c</string>", "a<b/>c"}, {"<string>a<b/>c", ""}, {"<String>u</String>", "774-"},
        {"<string xmlns=\"http://x/\"", "775-"}, {"<string a=\"1\">http://x/y.exe<", "776-"}});
    // clang-format on
}

TEST_CASE("online needs a connection whose kind of network is alive, or a configured one")
{
    constexpr std::uint32_t Modem = 1, Lan = 2, Configured = 64;
    // clang-format off
    CheckTable<NetworkState, bool>(IsOnline, {
        {{Lan, true, 1}, true}, {{Lan | Modem, true, 2}, true}, {{Configured, true, 0}, true},
        {{0, true, 3}, false}, {{Lan, true, 2}, false}, {{Modem | Configured, true, 1}, false},
        {{Lan | Configured, true, 0}, false}, {{Configured, false, 0}, false}});
    // clang-format on
}
