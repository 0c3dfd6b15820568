#include "Ls/System/Win32/UniqueHandle.h"
#include "Tests/Support/WideText.h"
#include "Updater/Dialog/ProgressBands.h"
#include "Updater/Launch/InstallProgress.h"
#include "Updater/Launch/LaunchCommands.h"

#include <windows.h>

#include <doctest/doctest.h>

#include <limits>
#include <optional>

TEST_CASE("paths and command lines of the launch are as their readers expect them")
{
    const std::pair<std::wstring, std::wstring> table[] = {
        {PatchFolder(L"C:\\a b\\c.exe"), L"C:\\a b\\"},
        {PatchFolder(L"c.exe"), L"c.exe\\"},
        {ParkCopyPath(L"C:\\data\\", L"0a-1b"), L"C:\\data\\\\Park-{0a-1b}.exe"},
        {PatchParameters(L"C:\\p q", L""), L"/park=\"C:\\p q\""},
        {PatchParameters(L"C:\\p", L" /S \"x y\""), L"/park=\"C:\\p\"  /S \"x y\""},
        {ClientPath(L"C:\\PF"), L"C:\\PF\\Larkspur Games\\App\\PlayDeck-ls.exe"},
        {ParkCommandLine(L"C:\\c.exe", L"ko", L"", L""),
         L"/Execute \"C:\\c.exe\" /LaunchParams \"/noupdate! /userlocale ko /dp \" /EventTerminate "
         L"\"Global\\LSPARKTERM\" /EventExecute \"Global\\LSPARKEXEC\""},
        {ParkCommandLine(L"C", L"", L"", L"d"),
         L"/Execute \"C\" /LaunchParams \"/noupdate! /userlocale  /dp d\" /EventTerminate "
         L"\"Global\\LSPARKTERM\" /EventExecute \"Global\\LSPARKEXEC\""},
        {ParkCommandLine(L"C", L"de", L"/room 7", L"d"),
         L"/Execute \"C\" /LaunchParams \"/noupdate! /userlocale de /room 7\" /EventTerminate "
         L"\"Global\\LSPARKTERM\" /EventExecute \"Global\\LSPARKEXEC\""},
        {ParkTerminateCommandLine(), L"/EventTerminate \"Global\\LSPARKTERM\" /SignalTerminate"},
    };
    for (const auto& [made, expected] : table)
        CHECK(made == expected);
}

TEST_CASE("download and installation fill their bands")
{
    const std::pair<float, int> download[] = {{0.0F, 20},  {1.6F, 20},  {1.7F, 21},  {5.0F, 21},
                                              {50.0F, 35}, {99.9F, 50}, {100.0F, 50}};
    for (const auto& [percent, progress] : download)
        CHECK(DownloadBand(percent) == progress);

    constexpr float infinite = std::numeric_limits<float>::infinity();
    const std::pair<float, std::optional<int>> install[] = {
        {0.0F, 55},
        {30.0F, 68},
        {99.9F, 100},
        {100.0F, std::nullopt},
        {infinite, std::nullopt},
        {std::numeric_limits<float>::quiet_NaN(), std::nullopt},
        {-10.0F, 51},
    };
    for (const auto& [percent, progress] : install)
    {
        CAPTURE(percent);
        CHECK(InstallBand(percent) == progress);
    }
    CHECK(*InstallBand(-infinite) < 0);
    CHECK(*InstallBand(-3.0e38F) < 0);
}

TEST_CASE("the installation's percentage is read from its registry value, whatever stands there")
{
    const wchar_t* const keyPath = L"Software\\Larkspur\\InstallerStatus";
    ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, keyPath);
    CHECK(ReadInstallPercent() == 0.0F); // no key at all

    LS::System::Win32::CRegistryKeyHandle key;
    REQUIRE(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, keyPath, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                              key.Receive(), nullptr) == ERROR_SUCCESS);
    CHECK(ReadInstallPercent() == 100.0F); // no value
    const std::pair<std::wstring, float> table[] = {
        {L"30", 30.0F},     {L"99.9", 99.9F},
        {L" 12.5%", 12.5F}, {L"-5", -5.0F},
        {L"1e2", 100.0F},   {L"text", 0.0F},
        {L"", 0.0F},        {std::wstring(5000, L'7') + L"x", std::numeric_limits<float>::infinity()},
    };
    for (const auto& [text, percent] : table)
    {
        CAPTURE(text);
        ::RegSetValueExW(key.Get(), L"Install", 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                         static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
        CHECK(ReadInstallPercent() == percent);
    }
    const DWORD number = 30;
    ::RegSetValueExW(key.Get(), L"Install", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number),
                     sizeof(number));
    CHECK(ReadInstallPercent() == 0.0F);
    ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, keyPath);
}
