// Libraries that somebody planted beside the program and in the folder it is started in.
#include "Ls/System/String/Convert.h"
#include "Tests/Run/Sandbox.h"

#include <doctest/doctest.h>

using Tests::CSandbox;
namespace fs = std::filesystem;

TEST_CASE("no planted library is ever loaded, whatever its name")
{
    // What the program names itself, at its start or later, and what the system's libraries load in turn.
    // Left out is what Windows takes from its own folder in every process ("known DLLs", such as kernel32,
    // user32 and ole32), which Wine doesn't. Wine's libraries load the last six in their turn by ways of
    // their own.
    std::vector<std::string> names = {
        // clang-format off
        "comctl32", "wininet", "wintrust", "rasapi32", "sensapi", "apphelp", "cryptbase", "cryptnet", "cryptsp",
        "dnsapi", "dwmapi", "gpapi", "iphlpapi", "mpr", "msasn1", "msi", "mswsock", "ncrypt",
        "netapi32", "profapi", "propsys", "rasman", "rsaenh", "rtutils", "secur32", "sspicli", "urlmon", "userenv",
        "usp10", "windowscodecs", "winhttp", "winmm", "winsta", "ws2_32", "wtsapi32",
        "bcrypt", "crypt32", "dbghelp", "imagehlp", "uxtheme", "version",
        // clang-format on
    };
    if (Tests::IsWine())
        names.resize(names.size() - 6);
    CSandbox sandbox;
    std::vector<std::unique_ptr<Tests::CTemporaryValue>>
        nativeFirst; // Wine's own would come before any other
    for (const std::string& name : names)
    {
        for (const fs::path& folder : {sandbox.Program, sandbox.Root})
            fs::copy_file(Tests::InKit(L"Planted.dll"), folder / (name + ".dll"));
        if (Tests::IsWine())
            nativeFirst.push_back(std::make_unique<Tests::CTemporaryValue>(
                HKEY_CURRENT_USER, L"Software\\Wine\\AppDefaults\\Updater.exe\\DllOverrides",
                LS::AnsiToWide(name), L"native,builtin"));
    }
    const auto outcome = sandbox.Run(L"/noparking", L"/exit=0");
    CHECK(outcome.ExitCode == 0);
    CHECK(outcome.Events == "Yes");
    for (const fs::path& folder : {sandbox.Program, sandbox.Root})
        for (const auto& entry : fs::directory_iterator(folder))
            CHECK_MESSAGE(entry.path().extension() != L".loaded", entry.path().string());
}
