// The progress dialog as a real window. What Wine can't show is left out: it has no counts of a process's GUI
// objects (its own table of GDI handles is counted instead), and its 32-bit half without 32-bit system
// libraries has no device contexts, so there are no icons, no measures of texts and no table in the 32-bit
// program. A program that can't make the dialog stands for a missing display too: the call fails in the same
// way.
#include "Ls/System/Util/PerUserAppDataPath.h"
#include "Ls/System/Win32/Event.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/ProcessCounts.h"
#include "Tests/Support/Soak.h"
#include "Tests/Support/WaitFor.h"
#include "Tests/Unit/Updater/Common.h"
#include "Updater/Dialog/UI.h"
#include "Updater/Language/StringTable.h"
#include "Updater/Resources/Resource.h"
#include "Updater/Settings/DebugSettings.h"

#include <commctrl.h>

#include <thread>

using namespace LS::System;
using Tests::WaitFor;

extern "C" void* NTAPI RtlGetCurrentPeb();

namespace
{
constexpr std::uint32_t AnHour = 3600000;
constexpr wchar_t Title[] = L"Ls dialog \u0416", Sample[] = L"\u0416 \uC5C5\uB370",
                  MayEnd[] = L"LsDialogTests-end";

/// A dialog of this process with times of its own, or another process's.
struct CDialog
{
    CDialog() = default;
    CDialog(std::uint32_t pause, std::uint32_t minimum, bool visible = true)
    {
        DebugSettings::UpdaterPauseBeforeDialogMs = pause;
        DebugSettings::UpdaterMinDialogShowTimeMs = minimum;
        UI = std::make_unique<CUI>(visible, Title, L"First");
        REQUIRE(IsThere());
    }
    ~CDialog()
    {
        DebugSettings::UpdaterMinDialogShowTimeMs = 0; // a case that failed must not wait for hours
        if (UI)
            UI->SetQuickExit();
    }
    bool IsThere() { return (Window = ::FindWindowW(L"#32770", Title)) != nullptr; }
    bool IsShown() const { return ::IsWindowVisible(Window); }
    HWND Label() const { return ::GetDlgItem(Window, IDC_MESSAGE_TEXT); }
    HWND Bar() const { return ::GetDlgItem(Window, IDC_PROGRESS_BAR); }
    /// Whether text and bar become these.
    bool Shows(const std::wstring& text, int progress) const
    {
        wchar_t found[100] = {};
        return WaitFor([&] {
            ::SendMessageW(Label(), WM_GETTEXT, 100, reinterpret_cast<LPARAM>(found));
            return found == text && ::SendMessageW(Bar(), PBM_GETPOS, 0, 0) == progress;
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

/// GDI objects of this process; 0 when they can't be counted.
unsigned GdiObjects()
{
    // Wine's table of handles, of 24 bytes with the type at 14, hangs on the process block.
    const char* const table =
        static_cast<char**>(RtlGetCurrentPeb())[sizeof(void*) == 8 ? 0xF8 / 8 : 0x94 / 4];
    const unsigned objects = ::GetGuiResources(::GetCurrentProcess(), GR_GDIOBJECTS);
    unsigned count = 0;
    for (unsigned i = 0; table && objects == 0 && i < 65536; ++i)
        count += table[i * 24 + 14] != 0;
    return objects + count;
}

/// Whether this process can measure and have icons.
const auto CanDraw = [] { return ::GetDeviceCaps(::GetDC(nullptr), LOGPIXELSX) != 0; };
} // namespace

TEST_CASE("child: a dialog at this DPI" * doctest::skip())
{
    const Win32::CEvent end(MayEnd, true, false);
    const CDialog dialog(0, 0);
    RECT room;
    ::GetClientRect(dialog.Label(), &room);
    const HDC dc = ::GetDC(dialog.Label());
    ::SelectObject(dc, reinterpret_cast<HFONT>(::SendMessageW(dialog.Label(), WM_GETFONT, 0, 0)));
    const bool canDraw = CanDraw();
    CHECK((!canDraw || ::GetDeviceCaps(dc, LOGPIXELSX) == _wtoi(_wgetenv(L"LS_TEST_INPUT"))));
    for (const LANGID language : {1028, 1031, 1033, 1034, 1036, 1040, 1042, 1046, 2052, 3082})
        for (std::uint16_t id = IDS_TITLE; canDraw && id <= IDS_UPDATE_NOTICE; ++id)
        {
            RECT size = {0, 0, room.right, 0};
            const std::wstring content = LoadStringTableText(nullptr, id, language);
            ::DrawTextW(dc, content.c_str(), -1, &size, DT_CALCRECT | DT_WORDBREAK | DT_EXPANDTABS);
            // What is seen while it runs is one line.
            const LONG height = id <= IDS_APPLYING ? room.bottom / 2 : room.bottom;
            CHECK_MESSAGE((size.right > 0 && size.right <= room.right && size.bottom <= height), content);
        }
    // Not seen from another process under Wine.
    const LRESULT big = ::SendMessageW(dialog.Window, WM_GETICON, ICON_BIG, 0);
    const LRESULT little = ::SendMessageW(dialog.Window, WM_GETICON, ICON_SMALL, 0);
    CHECK((big && little && big != little) == canDraw);
    CHECK(dialog.Takes(Sample, 37, 37));
    CHECK(end.Wait(60000) == WAIT_OBJECT_0);
}

TEST_CASE("at each DPI every text fits; another process reads what was set and can do no harm")
{
    for (const wchar_t dpi : {96, 120, 144, 192})
    {
        // Wine's programs read it at their start; Windows needs a new session, so there only 96 is shown.
        const Tests::CTemporaryValue set(HKEY_CURRENT_USER, L"Control Panel\\Desktop", L"LogPixels",
                                         std::wstring(1, dpi), REG_DWORD);
        const Win32::CEvent end(MayEnd, true, false);
        const Tests::CChildProcess child(L"child: a dialog*", std::to_wstring(dpi));
        CDialog dialog;
        REQUIRE(WaitFor([&] { return dialog.IsThere(); }));
        CHECK((dialog.Shows(Sample, 37) && WaitFor([&] { return dialog.IsShown(); })));
        CHECK(::SendMessageW(dialog.Bar(), PBM_GETRANGE, FALSE, 0) == 100);
        // Caption and frame, nothing to close, move by menu or resize it with.
        const DWORD needed = WS_POPUP | WS_CAPTION | DS_MODALFRAME | DS_SETFOREGROUND | DS_CENTER;
        const DWORD all = needed | WS_SYSMENU | WS_THICKFRAME | WS_MINIMIZEBOX | WS_MAXIMIZEBOX;
        CHECK((static_cast<DWORD>(::GetWindowLongPtrW(dialog.Window, GWL_STYLE)) & all) == needed);
        // clang-format off
        for (const auto& [message, wParam] : {std::pair<UINT, WPARAM>{WM_CLOSE, 0}, {WM_SYSCOMMAND, SC_CLOSE},
            {WM_COMMAND, IDCANCEL}, {WM_KEYDOWN, VK_ESCAPE}, {WM_QUIT, 0}, {WM_INITDIALOG, 1},
            {PBM_SETPOS, 64}})
            ::PostMessageW(dialog.Window, message, wParam, 0); // only the last is for others
        // clang-format on
        CHECK((WaitFor([&] { return ::SendMessageW(dialog.Bar(), PBM_GETPOS, 0, 0) == 64; }) &&
               dialog.IsShown()));
        end.Set();
        CHECK(child.ExitCode() == 0);
    }
}

TEST_CASE("a window is shown after its pause and stays for its minimum time, or isn't shown at all")
{
    // Visible, pause, minimum, quick exit. A window is gone at once when the run ends within the pause or it
    // is never seen; the minimum counts from the showing.
    // clang-format off
    const std::tuple<bool, std::uint32_t, std::uint32_t, bool> table[] = {{true, AnHour, AnHour, false},
        {false, 0, AnHour, false}, {true, 300, 400, false}, {true, 0, 0, false}, {true, 0, AnHour, true}};
    // clang-format on
    for (const auto& [visible, pause, minimum, quick] : table)
    {
        const DWORD made = ::GetTickCount();
        const CDialog dialog(pause, minimum, visible);
        const bool seen = visible && pause != AnHour;
        CHECK(dialog.Shows(L"First", 0));
        CHECK((!seen || (WaitFor([&] { return dialog.IsShown(); }) && ::GetTickCount() - made >= pause)));
        for (const auto& [progress, bar] : {std::pair{10, 10}, {150, 100}, {99, 99}, {-5, 0}, {INT_MAX, 100}})
            CHECK((seen || dialog.Takes(std::to_wstring(progress).c_str(), progress, bar)));
        CHECK_THROWS_WITH(CUI(true, L"", L""), "514"); // and the first goes on
        CHECK((CUI::ms_pInstance == dialog.UI.get() && dialog.IsShown() == seen));
        dialog.UI->SetShouldFinish();
        if (quick)
        {
            DebugSettings::UpdaterMinDialogShowTimeMs = 1; // for a quick exit; else a dialog keeps its time
            CHECK((dialog.Takes(L"stays", 1, 1) && dialog.Takes(L"on", 2, 2) && dialog.IsShown()));
            dialog.UI->SetQuickExit();
        }
        CHECK(WaitFor([&] { return !::IsWindow(dialog.Window); }));
        CHECK((!seen || quick || ::GetTickCount() - made >= pause + minimum));
        dialog.UI->SetProgress(1); // goes nowhere
    }
}

TEST_CASE("four threads set text and progress while windows come and go")
{
    const auto held = [] { return std::array{Tests::HandleCount(), Tests::ThreadCount(), GdiObjects()}; };
    auto before = held();
    for (unsigned round = 0, rounds = Tests::Loops(4, 40); round <= rounds; ++round)
    {
        before = round == 1 ? held() : before; // the first round fills what the system keeps
        const CDialog dialog(0, 0);
        std::atomic<int> calls = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&dialog, &calls, i] {
                for (int call = 0; call < 1250; ++call, ++calls)
                {
                    dialog.UI->SetText(std::to_wstring(i) + L"-" + std::to_wstring(call));
                    dialog.UI->SetProgress(call % 120 - 5);
                }
            });
        const bool closes = round % 2 == 1; // in the midst of it
        CHECK((!closes || WaitFor([&] { return calls > 400; })));
        if (closes)
            dialog.UI->SetShouldFinish();
        CHECK((!closes || WaitFor([&] { return !::IsWindow(dialog.Window); })));
        for (std::thread& thread : threads)
            thread.join();
        CHECK((closes || dialog.Takes(L"Last", 42, 42)));
    }
    const auto after = held();
    for (std::size_t i = 0; i < after.size(); ++i)
        CHECK(after[i] < before[i] + 4); // contention may cost one, a leak costs one for each window
}

TEST_CASE("a dialog that can't be made is logged and keeps its program waiting")
{
    const std::wstring log = Util::GetPerUserAppDataPath() + L"\\Larkspur\\Logs\\NoDialog.exe.log";
    ::DeleteFileW(log.c_str());
    const Tests::CChildProcess child(LS::AnsiToWide(LS_NO_DIALOG_EXE));
    CHECK(WaitFor([&] { return Tests::ReadBytes(log).find("End : Return: 513") != std::string::npos; }));
    CHECK(Tests::ReadBytes(log).find("CreateDialog() returned NULL hWnd, throw out") != std::string::npos);
    // The dialog's thread has said its last word; the program waits on. How long can't be waited for.
    CHECK(child.ExitCode(1000) == STILL_ACTIVE);
}
