// The progress dialog of a real run, read from outside: its texts in the user's language, where its bar
// stands in each band, and when it is to be seen at all.
#include "Tests/Run/Sandbox.h"
#include "Tests/Support/WaitFor.h"
#include "Tests/Support/WideText.h"

#include <commctrl.h>

#include <doctest/doctest.h>

using Tests::CSandbox;

namespace
{
constexpr int TextId = 1001, BarId = 1002;

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
} // namespace

TEST_CASE("the dialog tells where the run stands, in the user's language, or isn't seen at all")
{
    const struct
    {
        const wchar_t* Options;
        std::uint32_t PauseMs;
        bool Visible;
        const wchar_t *Title, *Checking, *Downloading, *Applying;
    } cases[] = {
        {L"/locale=pt-pt", 0, true, L"Atualização", L"Verificando se há atualizações...",
         L"Baixando a atualização...", L"Aplicando a atualização..."},
        {L"/noprog /locale=en", 0, false, L"Update", L"Checking for updates...", L"Downloading update...",
         L"Applying update..."},
        {L"/locale=ru", 600000, false, L"Update", L"Checking for updates...", L"Downloading update...",
         L"Applying update..."},
    };
    for (const auto& one : cases)
    {
        CAPTURE(std::wstring(one.Options));
        CSandbox sandbox;
        sandbox.SetDebug(L"UpdaterPauseBeforeDialogMs", one.PauseMs);
        sandbox.SetMachine(L"Software\\Larkspur\\InstallerStatus", L"Install", std::wstring(L"30"));
        sandbox.Query = [](const Tests::HttpRequest&) {
            Tests::HttpReply reply = Tests::TextReply("");
            reply.StallBeforeHead = true;
            return reply;
        };
        std::unique_ptr<Tests::CUpdaterProcess> updater;
        const auto shows = [&](const wchar_t* text, int from, int to) {
            Shown shown;
            Tests::WaitFor([&] {
                shown = Look(updater->Id());
                return (shown.Text == text && shown.Progress >= from && shown.Visible == one.Visible) ||
                       updater->HasEnded();
            });
            CHECK(shown.Text == text);
            CHECK(shown.Title == one.Title);
            CHECK(shown.Visible == one.Visible);
            CHECK(shown.Progress >= from);
            CHECK(shown.Progress <= to);
        };
        updater = sandbox.Start(one.Options); // the query stalls: this run ends with 770
        shows(one.Checking, 10, 10);
        updater->Finish();

        sandbox.Query = Tests::Answer(Tests::UpdateXml(sandbox.PatchUrl()));
        sandbox.File = [&](const Tests::HttpRequest& request) {
            Tests::HttpReply reply = Tests::BytesReply(request, sandbox.Patch);
            reply.CutAfter = reply.BodyLength / 2;
            reply.End = Tests::HttpReply::Ending::Stall;
            return reply;
        };
        const LS::System::Win32::CKernelHandle release(::CreateEventW(nullptr, TRUE, FALSE, L"LsRunRelease"));
        updater = sandbox.StartAnswered(one.Options, L"/wait-event=LsRunRelease");
        shows(one.Downloading, 29, 35);
        sandbox.Server().Release();
        shows(one.Applying, 68, 68);
        ::SetEvent(release.Get());
        CHECK(updater->Finish().ExitCode == 0);
    }
}
