// The progress dialog as a real window; its texts and its bar in a run are shown by the end-to-end tests. Its
// icon is not: Wine makes none where nothing is drawn.
#include "Tests/Support/WaitFor.h"
#include "Tests/Unit/Updater/Common.h"
#include "Updater/Dialog/ProgressBands.h"
#include "Updater/Dialog/UI.h"
#include "Updater/Resources/Resource.h"
#include "Updater/Settings/DebugSettings.h"

#include <commctrl.h>

using namespace LS::System;
using Tests::WaitFor;

namespace
{
constexpr std::uint32_t AnHour = 3600000;
constexpr wchar_t Title[] = L"Ls dialog \u0416";

/// A dialog with times of its own.
struct CDialog
{
    CDialog(std::uint32_t pause, std::uint32_t minimum, bool visible = true)
    {
        DebugSettings::UpdaterPauseBeforeDialogMs = pause;
        DebugSettings::UpdaterMinDialogShowTimeMs = minimum;
        UI = std::make_unique<CUI>(visible, Title, L"First");
        Window = ::FindWindowW(L"#32770", Title);
        REQUIRE(Window);
    }
    ~CDialog()
    {
        DebugSettings::UpdaterMinDialogShowTimeMs = 0; // a case that failed must not wait for hours
        UI->SetQuickExit();
    }
    bool IsShown() const { return ::IsWindowVisible(Window); }
    /// Whether text and bar become these.
    bool Shows(const std::wstring& text, int progress) const
    {
        wchar_t found[100] = {};
        return WaitFor([&] {
            ::GetDlgItemTextW(Window, IDC_MESSAGE_TEXT, found, 100);
            return found == text &&
                   ::SendDlgItemMessageW(Window, IDC_PROGRESS_BAR, PBM_GETPOS, 0, 0) == progress;
        });
    }
    /// Whether it takes what it is told.
    bool Takes(const wchar_t* text, int progress, int shown) const
    {
        UI->SetText(text);
        UI->SetProgress(progress);
        return Shows(text, shown);
    }

    std::unique_ptr<CUI> UI;
    HWND Window = nullptr;
};
} // namespace

TEST_CASE("messages from others do no harm")
{
    const CDialog dialog(0, 0);
    CHECK(WaitFor([&] { return dialog.IsShown(); }));
    // clang-format off
    for (const auto& [message, wParam] : {std::pair<UINT, WPARAM>{WM_CLOSE, 0}, {WM_SYSCOMMAND, SC_CLOSE},
        {WM_COMMAND, IDCANCEL}, {WM_KEYDOWN, VK_ESCAPE}, {WM_QUIT, 0}, {WM_INITDIALOG, 1}, {PBM_SETPOS, 64}})
        ::PostMessageW(dialog.Window, message, wParam, 0); // only the last is for others
    // clang-format on
    CHECK(dialog.Shows(L"First", 64));
    CHECK(dialog.Takes(L"\u0416 \uC5C5\uB370", 37, 37));
    CHECK(dialog.IsShown());
}

TEST_CASE("an installation fills the bar from 55 on; at its end it moves nothing any more")
{
    CheckTable<float, std::optional<int>>(InstallBand, {{0.0F, 55}, {99.0F, 100}, {100.0F, {}}});
}

TEST_CASE("a window is shown after its pause and stays for its minimum time, or isn't shown at all")
{
    // Visible, pause, minimum, quick exit. A window is gone at once when the run ends within the pause or it
    // is never seen; the minimum counts from the showing.
    // clang-format off
    const std::tuple<bool, std::uint32_t, std::uint32_t, bool> table[] = {{true, AnHour, AnHour, false},
        {false, 0, AnHour, false}, {true, 300, 400, false}, {true, 0, AnHour, true}};
    // clang-format on
    for (const auto& [visible, pause, minimum, quick] : table)
    {
        const DWORD made = ::GetTickCount();
        const CDialog dialog(pause, minimum, visible);
        const bool seen = visible && pause != AnHour;
        CHECK(dialog.Shows(L"First", 0));
        if (seen)
        {
            CHECK(WaitFor([&] { return dialog.IsShown(); }));
            CHECK(::GetTickCount() - made >= pause);
        }
        for (const auto& [progress, bar] : {std::pair{150, 100}, {99, 99}, {-5, 0}, {INT_MAX, 100}})
            CHECK(dialog.Takes(std::to_wstring(progress).c_str(), progress, bar));
        CHECK_THROWS_WITH(CUI(true, L"", L""), "514"); // and the first goes on
        CHECK(CUI::ms_pInstance == dialog.UI.get());
        CHECK(dialog.IsShown() == seen);
        dialog.UI->SetShouldFinish();
        if (quick)
        {
            DebugSettings::UpdaterMinDialogShowTimeMs = 1; // for a quick exit; else a dialog keeps its time
            CHECK(dialog.Takes(L"stays", 1, 1));
            CHECK(dialog.IsShown());
            dialog.UI->SetQuickExit();
        }
        CHECK(WaitFor([&] { return !::IsWindow(dialog.Window); }));
        if (seen && !quick)
            CHECK(::GetTickCount() - made >= pause + minimum);
        dialog.UI->SetProgress(1); // goes nowhere
    }
}
