// What somebody planted: libraries beside the program and in the folder it is started in, and links below the
// user's folders.
#include "Ls/System/String/Convert.h"
#include "Tests/Run/Sandbox.h"
#include "Tests/Support/LinkTo.h"
#include "Tests/Support/TempFolder.h"

#include <doctest/doctest.h>

using Tests::CSandbox;
namespace fs = std::filesystem;

TEST_CASE("no planted library is ever loaded, whatever its name")
{
    // What the program names itself, at its start or later, and what the system's libraries load in turn.
    // Left out is what Windows takes from its own folder in every process ("known DLLs", such as kernel32,
    // user32 and ole32), which Wine doesn't, and what Wine's libraries load in their turn by ways of their
    // own (bcrypt, crypt32, dbghelp, imagehlp, uxtheme, version).
    const char* const names[] = {
        // clang-format off
        "comctl32", "wininet", "wintrust", "rasapi32", "sensapi", "apphelp", "cryptbase", "cryptnet", "cryptsp",
        "dnsapi", "dwmapi", "gpapi", "iphlpapi", "mpr", "msasn1", "msi", "mswsock", "ncrypt",
        "netapi32", "profapi", "propsys", "rasman", "rsaenh", "rtutils", "secur32", "sspicli", "urlmon", "userenv",
        "usp10", "windowscodecs", "winhttp", "winmm", "winsta", "ws2_32", "wtsapi32",
        // clang-format on
    };
    CSandbox sandbox;
    std::vector<std::unique_ptr<Tests::CTemporaryValue>>
        nativeFirst; // Wine's own would come before any other
    for (const std::string name : names)
    {
        for (const fs::path& folder : {sandbox.Program, sandbox.Root})
            fs::copy_file(fs::absolute(LS_PLANTED_DLL), folder / (name + ".dll"));
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

TEST_CASE("an elevated run follows no link below the user's folders; an ordinary one follows its user's own")
{
    for (const bool elevated : {true, false})
        for (const bool folders : {true, false})
        {
            CAPTURE(elevated);
            CAPTURE(folders);
            CSandbox sandbox;
            sandbox.Elevated = elevated;
            const fs::path elsewhere = sandbox.Root / L"Elsewhere", own = sandbox.AppData / L"Larkspur";
            fs::create_directory(elsewhere);
            const auto countFiles = [&] {
                return std::distance(fs::recursive_directory_iterator(elsewhere), {});
            };
            std::vector<fs::path> precious;
            if (folders)
                Tests::LinkTo(elsewhere, own);
            else
                for (const fs::path& link : {sandbox.LogFile, sandbox.AnalyticsQueue(), own / L"Larkspur.ini",
                                             sandbox.DataFolder / L"Patch.exe.cache"})
                {
                    fs::create_directories(link.parent_path());
                    precious.push_back(elsewhere / std::to_wstring(precious.size()));
                    Tests::WriteBytes(precious.back().wstring(), "precious");
                    fs::create_hard_link(precious.back(), link);
                }
            const auto before = countFiles();
            const auto outcome = sandbox.Run(sandbox.From() + L" /noparking", L"/exit=0");
            CHECK(outcome.ExitCode == (elevated ? 1024 : 0));
            CHECK(outcome.Events == std::string(elevated ? "No" : "Yes"));
            CHECK((countFiles() == before) == (elevated || !folders));
            for (const fs::path& path : precious)
                if (elevated)
                    CHECK(Tests::ReadBytes(path.wstring()) == "precious");
            if (folders)
                ::RemoveDirectoryW(own.c_str()); // before the clean-up goes through it
        }
}
