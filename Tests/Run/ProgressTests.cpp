// What a real run shows of its progress: whether its dialog is seen, where the bar stands in each band, and
// the registry value for an outside installer. What the window itself makes of it is tested with the dialog.
#include "Ls/System/Win32/RegistryKey.h"
#include "Tests/Run/Sandbox.h"
#include "Tests/Support/WaitFor.h"

#include <doctest/doctest.h>

using Tests::CSandbox;

namespace
{
const std::wstring StatusKey = L"Software\\Larkspur\\InstallerStatus";

/// With that control, by default the bar.
HWND FindDialog(std::uint32_t processId, int control = 1002)
{
    HWND dialog = nullptr;
    for (DWORD owner = 0; (dialog = ::FindWindowExW(nullptr, dialog, L"#32770", nullptr)) != nullptr;)
    {
        ::GetWindowThreadProcessId(dialog, &owner);
        if (owner == processId && ::IsWindowVisible(dialog) && ::GetDlgItem(dialog, control))
            break;
    }
    return dialog;
}

std::wstring DownloadValue()
{
    return LS::System::Win32::CRegistryKey(L"HKLM\\" + StatusKey, true).GetString(L"Download", L"");
}
} // namespace

TEST_CASE("the dialog tells where the run stands or isn't seen at all; a value is written, but never made")
{
    for (const bool visible : {true, false})
    {
        CAPTURE(visible);
        CSandbox sandbox;
        sandbox.SetDebug(L"UpdaterPauseBeforeDialogMs", 0u);
        sandbox.SetMachine(StatusKey, L"Install", std::wstring(L"30"));
        if (visible)
            sandbox.SetMachine(StatusKey, L"Download", std::wstring(L"waiting"));
        sandbox.File = [&](const Tests::HttpRequest& request) {
            return Tests::HalfReply(request, sandbox.Patch);
        };
        const LS::System::Win32::CKernelHandle release(::CreateEventW(nullptr, TRUE, FALSE, L"LsRunRelease"));
        const std::wstring options = visible ? L"/locale=en" : L"/locale=en /noprog";
        const auto updater =
            sandbox.StartAnswered(options + L" /emitdownloadprogress", L"/wait-event=LsRunRelease");
        // About half, with six decimals; the streams count what is on disk.
        CHECK(Tests::WaitFor([&] {
            const std::wstring value = DownloadValue();
            const bool half = value.size() == 9 && value[2] == L'.' && std::stod(value) > 30;
            return half || !visible || updater->HasEnded();
        }));
        const double percent = visible ? std::stod(DownloadValue()) : 0;
        const std::string half = "Progress=" + std::to_string(static_cast<int>(percent * 0.3 + 20.499));
        sandbox.Server().Release();
        for (const std::string& told : std::vector<std::string>{
                 "Progress=10\r\n", "Progress=20\r\n", "MessageText=Downloading update...", half + "\r\n",
                 "Progress=50\r\n", "MessageText=Applying update...", "Progress=68\r\n"})
        {
            CAPTURE(told);
            CHECK(sandbox.WaitForLog(*updater, told));
        }
        if (visible)
            CHECK(Tests::WaitFor([&] { return FindDialog(updater->Id()) || updater->HasEnded(); }));
        CHECK((FindDialog(updater->Id()) != nullptr) == visible);
        ::SetEvent(release.Get());
        CHECK(updater->Finish().ExitCode == 0);
        CHECK(DownloadValue() == (visible ? L"100" : L""));
    }
}

TEST_CASE("the dialog appears below a question that waits, and leaves it the keyboard")
{
    CSandbox sandbox;
    sandbox.SetDebug(L"UpdaterPauseBeforeDialogMs", 3000u);
    const auto updater = sandbox.StartAnswered(sandbox.From() + L" /prompt", L"/exit=0");
    const std::uint32_t id = updater->Id();
    CHECK(Tests::WaitFor([&] { return FindDialog(id, IDNO) || updater->HasEnded(); }));
    CHECK(Tests::WaitFor([&] { return FindDialog(id) || updater->HasEnded(); }));
    const HWND box = FindDialog(id, IDNO);
    REQUIRE(box);
    HWND below = box;
    while (below && below != FindDialog(id))
        below = ::GetWindow(below, GW_HWNDNEXT);
    CHECK(below);
    CHECK(::GetForegroundWindow() == box);
    updater->Answer = IDNO;
    CHECK(updater->Finish().ExitCode == 4);
}
