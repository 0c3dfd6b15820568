// What a real run shows of its progress, read from outside: the dialog's texts in the user's language, where
// its bar stands in each band, and the registry value for an outside installer.
#include "Ls/System/Win32/RegistryKey.h"
#include "Tests/Run/Sandbox.h"
#include "Tests/Support/WaitFor.h"
#include "Tests/Support/WideText.h"

#include <commctrl.h>

#include <doctest/doctest.h>

using Tests::CSandbox;

namespace
{
constexpr int TextId = 1001, BarId = 1002;
const std::wstring StatusKey = L"Software\\Larkspur\\InstallerStatus";

/// What the dialog of that process shows; nothing while there is none.
struct Shown
{
    std::wstring Title, Text;
    int Progress = -1;
    bool Visible = false;
};

std::wstring TextOf(HWND window)
{
    wchar_t text[300] = {};
    DWORD_PTR length = 0;
    ::SendMessageTimeoutW(window, WM_GETTEXT, 300, reinterpret_cast<LPARAM>(text), SMTO_NORMAL, 5000,
                          &length);
    return text;
}

Shown Look(std::uint32_t processId)
{
    for (HWND dialog = nullptr; (dialog = ::FindWindowExW(nullptr, dialog, L"#32770", nullptr)) != nullptr;)
    {
        DWORD owner = 0;
        ::GetWindowThreadProcessId(dialog, &owner);
        const HWND bar = ::GetDlgItem(dialog, BarId);
        if (owner != processId || !bar)
            continue;
        DWORD_PTR position = 0;
        ::SendMessageTimeoutW(bar, PBM_GETPOS, 0, 0, SMTO_NORMAL, 5000, &position);
        return {TextOf(dialog), TextOf(::GetDlgItem(dialog, TextId)), static_cast<int>(position),
                ::IsWindowVisible(dialog) != FALSE};
    }
    return {};
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
        const auto updater = sandbox.StartAnswered(
            std::wstring(L"/locale=pt-pt /prompt /emitdownloadprogress ") + (visible ? L"" : L"/noprog"),
            L"/wait-event=LsRunRelease");
        const auto shows = [&](const wchar_t* text, int from, int to) {
            Shown shown;
            Tests::WaitFor([&] {
                updater->AnswerBoxes();
                shown = Look(updater->Id());
                return (shown.Text == text && shown.Progress >= from && shown.Visible == visible) ||
                       updater->HasEnded();
            });
            CHECK(shown.Text == text);
            CHECK(shown.Title == L"Atualização");
            CHECK(shown.Visible == visible);
            CHECK(shown.Progress >= from);
            CHECK(shown.Progress <= to);
        };
        shows(L"Verificando se há atualizações...", 20, 20); // the prompt waits for its answer
        updater->Answer = IDYES;
        shows(L"Baixando a atualização...", 29, 35);
        // About half, with six decimals; the streams count what is on disk.
        CHECK(Tests::WaitFor([&] {
            const std::wstring value = DownloadValue();
            const bool half = value.size() == 9 && value[2] == L'.' && std::stod(value) > 30;
            return half || !visible || updater->HasEnded();
        }));
        sandbox.Server().Release();
        shows(L"Aplicando a atualização...", 68, 68);
        ::SetEvent(release.Get());
        CHECK(updater->Finish().ExitCode == 0);
        CHECK(DownloadValue() == (visible ? L"100" : L""));
    }
}
