// What a run is told by its command line and the network, and the end of one that crashes. The states of a
// network that Wine doesn't show are a table.
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Platform.h"
#include "Tests/Unit/Updater/Common.h"
#include "Updater/Run/CrashEnd.h"
#include "Updater/Run/OnlineCheck.h"
#include "Updater/Run/OutcomeEvents.h"
#include "Updater/Run/RunOptions.h"
#include "Updater/Settings/DebugSettings.h"
#include "Updater/Settings/Hosts.h"

#include <shellapi.h>

#include <cstdlib>

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
        {L"/product=BlueStacks /product=Other", L"product=Other;blue;"}, {L"/DP= /dpx abc", L"dp=abc;"},
        {L"/dp=a /dp", L""}, {L"/dp /prompt", L"prompt;dp=/prompt;"}, {L"/dp /dp=z", L"dp=z;"},
        {L"/from=\"C:\\a b\\c.exe\" /patchurl=http://x/y?a=b", L"from=C:\\a b\\c.exe;url=http://x/y?a=b;"},
        {L"\"/appargs=/room 7\" /parkpath=P /session=S /partner=Q",
        L"app=/room 7;park=P;session=S;partner=Q;"},
        {L"/Prompt /NOTIFY /NoProg /noParking /EmitDownloadProgress /NoThrottling",
        L"prompt;notify;noprog;nopark;emit;nothrottle;"},
        {L"/PRODUCT=blueSTACKS /DP=a /Locale=b /FROM=c /PatchUrl=d /AppArgs=e /ParkPath=f /SESSION=g /Partner=h",
        L"product=blueSTACKS;blue;dp=a;locale=b;from=c;url=d;app=e;park=f;session=g;partner=h;"},
        {L"/prompts /notify= /noprogress /noparkings /emitdownloadprogress1 /nothrottling=", L""},
        {L"/installerargs=/prompt /product=X /installerargs=y",
        L"installer=/prompt /product=X /installerargs=y;"},
        {L"/InstallerArgs=x /prompt", L""}, {L"/InstallerArgs=x /installerargs=y", L"installer=y;"},
        {L"\"/session=a/installerargs=b\"", L"session=a/installerargs=b;installer=b\";"}});
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

TEST_CASE("a client that opens the events late isn't told what hasn't come out yet")
{
    COutcomeEvents events;
    events.Create(L"LsEvents");
    for (const std::wstring name : {L"{FCBD3DBA-DB17-4EC5-999E-5CF45A722924}-UpdateNo-LsEvents",
                                    L"{FCBD3DBA-DB17-4EC5-999E-5CF45A722924}-UpdateYes-LsEvents",
                                    L"{F7960AE2-D719-4F0D-9A10-B207F8DACB24}-UpdateDeny-LsEvents"})
    {
        CAPTURE(name);
        const LS::System::Win32::CKernelHandle event(::OpenEventW(SYNCHRONIZE, FALSE, name.c_str()));
        CHECK(::WaitForSingleObject(event.Get(), 0) == WAIT_TIMEOUT);
    }
}

TEST_CASE("a debug value steers its time; a host of the wrong kind is as none" * Tests::NeedsAdministrator())
{
    const std::wstring key = L"SOFTWARE\\Larkspur\\Debugging";
    const Tests::CTemporaryValue install(HKEY_LOCAL_MACHINE, key, L"UpdaterMinInstallTimeMs", 7),
        update(HKEY_LOCAL_MACHINE, key, L"UpdateHost", 9);
    DebugSettings::Read();
    CHECK(std::exchange(DebugSettings::UpdaterMinInstallTimeMs, 0) == 7);
    CHECK(Hosts::UpdateHost() == LS_UPDATE_HOST);
}

TEST_CASE("crash: as its input says" * doctest::skip())
{
    const LS::System::Win32::CKernelHandle event(::OpenEventW(EVENT_MODIFY_STATE, FALSE, L"LsCrashTold"));
    EndCrashesWithOwnCode();
    SetEventForCrash(event.Get());
    if (::GetEnvironmentVariableW(L"LS_TEST_INPUT", nullptr, 0) == sizeof("abort"))
        std::abort();
    []() noexcept { return std::wstring().at(9); }(); // throws
}

TEST_CASE("a crash tells the client and has no outcome's code")
{
    const LS::System::Win32::CKernelHandle told(::CreateEventW(nullptr, FALSE, FALSE, L"LsCrashTold"));
    for (const std::wstring way : {L"abort", L"terminate"})
    {
        CAPTURE(way);
        CHECK(Tests::CChildProcess(L"crash*", way).ExitCode() == 256);
        CHECK(::WaitForSingleObject(told.Get(), 0) == WAIT_OBJECT_0);
    }
}
