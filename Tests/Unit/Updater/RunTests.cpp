// What a run is told: its command line, its INI files and whether the machine is online. The states of a
// network that Wine doesn't show are a table; what the system itself says can't be.
#include "Tests/Support/Caught.h"
#include "Tests/Support/TempFolder.h"
#include "Updater/Run/OnlineCheck.h"
#include "Updater/Run/RunOptions.h"
#include "Updater/Settings/IniFile.h"

#include <windows.h>

#include <shellapi.h>

namespace
{
/// Everything that isn't at its default.
std::wstring Describe(const std::wstring& line)
{
    // The system's splitting has the runtime's rules.
    const std::wstring whole = L"Updater.exe " + line;
    int count = 0;
    wchar_t** const arguments = ::CommandLineToArgvW(whole.c_str(), &count);
    const RunOptions options = ParseRunOptions(whole, {arguments + 1, arguments + count});
    ::LocalFree(arguments);
    const auto isSet = [](bool flag) { return std::wstring(flag ? L"yes" : L""); };
    const std::pair<const wchar_t*, std::wstring> items[] = {
        {L"product", options.ProductName == L"PlayDeck" ? L"" : L"'" + options.ProductName},
        {L"blue", isSet(options.IsBlueStacks)},
        {L"dp", options.DP},
        {L"locale", options.Locale},
        {L"from", options.FromFilePath},
        {L"url", options.PatchURL},
        {L"app", options.AppArgs},
        {L"park", options.ParkPath},
        {L"session", options.Session},
        {L"partner", options.Partner},
        {L"installer", options.InstallerArgs},
        {L"prompt", isSet(options.ShowPrompt)},
        {L"notify", isSet(options.Notify)},
        {L"noprog", isSet(!options.ShowProgress)},
        {L"nopark", isSet(!options.UseParking)},
        {L"emit", isSet(options.EmitDownloadProgress)},
        {L"nothrottle", isSet(!options.Throttling)}};
    std::wstring text;
    for (const auto& [name, value] : items)
        text += value.empty() ? L"" : name + (L"=" + value) + L";";
    return text;
}
} // namespace

TEST_CASE("each command line gives its options")
{
    const std::pair<const wchar_t*, const wchar_t*> table[] = {
        {L"PlayDeck -prompt prompt ? /", L""},
        {L"/PRODUCT=MixedCase", L"product='MixedCase;"},
        {L"\"/product=two words\"", L"product='two words;"},
        {L"/product=", L"product=';"},
        {L"/product=BlueStacks /product=Other", L"product='Other;blue=yes;"},
        {L"/product=bluestacks2", L"product='bluestacks2;"},
        {L"/dp=abc", L"dp=abc;"},
        {L"/DP= /dpx abc", L"dp=abc;"},
        {L"/dp /prompt", L"dp=/prompt;prompt=yes;"},
        {L"/dp /dp=z", L"dp=z;"},
        {L"/dp=a /dp", L""},
        {L"/dp /installerargs=/S", L"dp=/installerargs=/S;installer=/S;"},
        {L"/locale=de-DE /Locale=ko", L"locale=ko;"},
        {L"/from=\"C:\\a b\\c.exe\" /patchurl=http://x/y?a=b", L"from=C:\\a b\\c.exe;url=http://x/y?a=b;"},
        {L"\"/appargs=/room 7\" /parkpath=P /session=S /partner=Q",
         L"app=/room 7;park=P;session=S;partner=Q;"},
        {L"/prompt /NOTIFY /NoProg /noparking /emitdownloadprogress /nothrottling",
         L"prompt=yes;notify=yes;noprog=yes;nopark=yes;emit=yes;nothrottle=yes;"},
        {L"/prompts /notify= /noprogress /noparkings /emitdownloadprogress1 /nothrottling=", L""},
        {L"/installerargs=/prompt /product=X /installerargs=y",
         L"installer=/prompt /product=X /installerargs=y;"},
        {L"/prompt /installerargs=\"a b\"  c ", L"installer=\"a b\"  c ;prompt=yes;"},
        {L"/InstallerArgs=x /prompt", L""},
        {L"/InstallerArgs=x /installerargs=y", L"installer=y;"},
        {L"\"/session=a/installerargs=b\"", L"session=a/installerargs=b;installer=b\";"}};
    for (const auto& [line, options] : table)
        CHECK_MESSAGE(Describe(line) == options, std::wstring(line));
}

TEST_CASE("INI values are found by the exact text of their section and key, and cut as the system cuts them")
{
    const Tests::CTempFolder temp;
    const std::wstring path = temp.Path(L"\u0416 \uD55C.ini"), longest(518, L'f');
    std::wstring text =
        L"\xFEFF[User]\r\nVisitorID = {A-1} \r\nEmpty=\r\nQuoted=\"q\"\r\n[\uC124]\r\n\u044F=\uAD6D\r\n"
        L"[User]\r\nVisitorID=second\r\nLate=x\r\n[None]\r\n[Long]\r\nv=" +
        longest + L"f\r\n";
    for (int i = 0; i < 1000; ++i)
        text += L"key" + std::to_wstring(i) + L"=x\r\n";
    Tests::WriteBytes(path, {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t)});
    CIniFile ini;
    ini.LoadFile(path);
    const std::wstring missing = L"Desired value not found";
    const std::tuple<const wchar_t*, const wchar_t*, std::wstring> table[] = {
        {L"User", L"VisitorID", L"{A-1}"}, {L"User", L"Empty", L""}, {L"User", L"Quoted", L"q"},
        {L"\uC124", L"\u044F", L"\uAD6D"}, {L"Long", L"v", longest}, {L"user", L"VisitorID", missing},
        {L"User", L"visitorid", missing},  {L"User", L"", missing},  {L"None", L"VisitorID", missing},
        {L"Long", L"key999", missing},     {L"", L"", missing}};
    for (const auto& [section, key, value] : table)
    {
        std::wstring found;
        const std::wstring message =
            Tests::CaughtMessage([&, s = section, k = key] { found = ini.GetValue(s, k); });
        CHECK(found + message == value);
    }
    CHECK((ini.ContainsSectionName(L"None") && !ini.ContainsSectionName(L"none")));
    Tests::CheckFailures(
        {{[&] { ini.LoadFile(temp.Path(L"missing.ini")); }, L"File does not exist in CIniFile::LoadFile"},
         {[&] { ini.GetValue(L"User", L"Quoted"); }, missing}}); // the copy is empty now
}

TEST_CASE(
    "online needs a connection whose kind of network is alive, or a configured one; the override comes first")
{
    constexpr std::uint32_t Modem = 1, Lan = 2, Configured = 64;
    const std::pair<NetworkState, bool> table[] = {{{Lan, true, 1}, true},
                                                   {{Modem, true, 2}, true},
                                                   {{Lan | Modem, true, 2}, true},
                                                   {{Configured, true, 0}, true},
                                                   {{0, true, 3}, false},
                                                   {{Lan, true, 2}, false},
                                                   {{Modem, true, 1}, false},
                                                   {{Lan | Configured, true, 0}, false},
                                                   {{Modem | Configured, true, 1}, false},
                                                   {{Configured, false, 0}, false}};
    for (const auto& [state, online] : table)
        CHECK_MESSAGE(IsOnline(state) == online, state.Connection << " " << state.Alive);
    const wchar_t *const key = L"Software\\Larkspur", *const name = L"ConnectionStatusOverride";
    const auto with = [&](DWORD value, DWORD type) {
        ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, name, type, &value, sizeof(value));
        return COnlineCheck().IsOnline();
    };
    CHECK((with(1, REG_DWORD) && !with(0, REG_DWORD)));
    const bool noOverride = with(7, REG_DWORD);
    CHECK(Tests::Caught([&] { with(1, REG_BINARY); }));
    ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key, name);
    CHECK(COnlineCheck().IsOnline() == noOverride);
}
