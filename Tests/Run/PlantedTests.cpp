// What somebody planted: libraries beside the program and in the folder it is started in, and links below the
// user's folders.
#include "Ls/System/String/Convert.h"
#include "Tests/Run/Sandbox.h"
#include "Tests/Support/StartProcess.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/WaitFor.h"

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

/// A link to a folder, of the system below: Wine makes none itself. It shows one by its final path, not as
/// the mark of a junction or a symbolic link, and follows it where Windows opens the link itself.
static void LinkTo(const fs::path& folder, const fs::path& link)
{
    const auto unixPath = reinterpret_cast<char*(CDECL*)(LPCWSTR)>(
        ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name"));
    Tests::StartProcess(L"\\\\?\\unix\\bin\\ln -s \"" + fs::path(unixPath(folder.c_str())).wstring() +
                        L"\" \"" + fs::path(unixPath(link.parent_path().c_str())).wstring() + L"/" +
                        link.filename().wstring() + L"\"");
    REQUIRE(Tests::WaitFor([&] { return fs::exists(link); }));
}

TEST_CASE("an elevated run follows no link below the user's folders; an ordinary one follows its user's own")
{
    for (const bool elevated : {true, false})
    {
        CAPTURE(elevated);
        CSandbox sandbox;
        sandbox.Elevated = elevated;
        const fs::path elsewhere = sandbox.Root / L"Elsewhere", folder = sandbox.DataFolder.parent_path();
        fs::create_directories(elsewhere);
        fs::create_directories(folder.parent_path());
        LinkTo(elsewhere, folder);
        std::vector<std::wstring> precious;
        for (const fs::path& link :
             {sandbox.LogFile, sandbox.AnalyticsQueue(), sandbox.AppData / L"Larkspur" / L"Larkspur.ini"})
        {
            fs::create_directories(link.parent_path());
            precious.push_back((sandbox.Root / std::to_wstring(precious.size())).wstring());
            Tests::WriteBytes(precious.back(), "precious");
            fs::create_hard_link(precious.back(), link);
        }
        const auto outcome = sandbox.Run(sandbox.From() + L" /noparking", L"/exit=0");
        CHECK(outcome.ExitCode == (elevated ? 1024 : 0));
        CHECK(outcome.Events == std::string(elevated ? "No" : "Yes"));
        CHECK(fs::is_empty(elsewhere) == elevated);
        for (const std::wstring& path : precious)
            CHECK((!elevated || Tests::ReadBytes(path) == "precious"));
        ::RemoveDirectoryW(folder.c_str()); // before the clean-up goes through it
    }
}
