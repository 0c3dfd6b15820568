// The progress dialog as a real window. What Wine can't show is left out: it has no counts of a process's GUI
// objects (its own table of GDI handles is counted instead), and its 32-bit half without 32-bit system
// libraries has no device contexts, so there are no icons, no measures of texts and no table in the 32-bit
// program. A program that can't make the dialog stands for a missing display too: the call fails in the same
// way.
#include "Ls/System/ExitCodeException.h"
#include "Ls/System/Io/Path.h"
#include "Ls/System/Util/PerUserAppDataPath.h"
#include "Ls/System/Win32/Event.h"
#include "Tests/Support/ProcessCounts.h"
#include "Tests/Support/Soak.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/WaitFor.h"
#include "Tests/Support/WideText.h"
#include "Updater/Dialog/UI.h"
#include "Updater/Language/StringTable.h"
#include "Updater/Resources/Resource.h"
#include "Updater/Settings/DebugSettings.h"

#include <commctrl.h>
#include <winternl.h>

#include <climits>
#include <memory>
#include <thread>

using namespace LS::System;
using namespace std::string_literals;
using Tests::WaitFor;

namespace
{
constexpr std::uint32_t AnHour = 3600000;

std::wstring TextOf(HWND window)
{
    wchar_t text[500] = {};
    ::SendMessageW(window, WM_GETTEXT, std::size(text), reinterpret_cast<LPARAM>(text));
    return text;
}

/// A dialog with times of its own.
struct CShown
{
    CShown(std::uint32_t pause, std::uint32_t minimum, bool visible = true)
    {
        DebugSettings::UpdaterPauseBeforeDialogMs = pause;
        DebugSettings::UpdaterMinDialogShowTimeMs = minimum;
        static int count = 0;
        const std::wstring title =
            L"Ls dialog " + std::to_wstring(::GetCurrentProcessId()) + std::to_wstring(++count);
        UI = std::make_unique<CUI>(visible, title, L"First");
        Window = ::FindWindowW(L"#32770", title.c_str());
        REQUIRE(Window);
        Text = ::GetDlgItem(Window, IDC_MESSAGE_TEXT);
        Bar = ::GetDlgItem(Window, IDC_PROGRESS_BAR);
    }
    CShown(const CShown&) = delete;
    ~CShown()
    {
        DebugSettings::UpdaterMinDialogShowTimeMs = 0; // a case that failed must not wait for hours
        if (UI)
            UI->SetQuickExit();
        UI.reset();
        DebugSettings::UpdaterPauseBeforeDialogMs = 1000;
        DebugSettings::UpdaterMinDialogShowTimeMs = 500;
    }
    bool IsShown() const { return ::IsWindowVisible(Window); }
    bool BecomesGone() const
    {
        return WaitFor([&] { return !::IsWindow(Window); });
    }
    int Progress() const { return static_cast<int>(::SendMessageW(Bar, PBM_GETPOS, 0, 0)); }
    /// Whether the dialog goes on: three times through its loop.
    bool Turns() const
    {
        for (const wchar_t* text : {L"one", L"two", L"three"})
        {
            UI->SetText(text);
            if (!WaitFor([&] { return TextOf(Text) == text; }))
                return false;
        }
        return true;
    }

    std::unique_ptr<CUI> UI;
    HWND Window, Text, Bar;
};

/// GDI objects of this process; 0 when they can't be counted.
unsigned GdiObjects()
{
    if (const DWORD objects = ::GetGuiResources(::GetCurrentProcess(), GR_GDIOBJECTS))
        return objects;
    // Wine's table of handles, of 24 bytes with the type at 14, hangs on the process block.
    PROCESS_BASIC_INFORMATION process = {};
    ::NtQueryInformationProcess(::GetCurrentProcess(), ProcessBasicInformation, &process, sizeof(process),
                                nullptr);
    const char* const block = reinterpret_cast<const char*>(process.PebBaseAddress);
    const char* const table =
        *reinterpret_cast<const char* const*>(block + (sizeof(void*) == 8 ? 0xF8 : 0x94));
    unsigned count = 0;
    for (unsigned i = 0; table && i < 65536; ++i)
        count += table[i * 24 + 14] != 0;
    return count;
}

/// Whether this process has device contexts.
bool CanDraw()
{
    const HDC dc = ::GetDC(nullptr);
    const bool canDraw = ::GetDeviceCaps(dc, LOGPIXELSX) != 0;
    ::ReleaseDC(nullptr, dc);
    return canDraw;
}

/// Another process; ended with this object.
class CChild
{
public:
    explicit CChild(std::wstring command)
    {
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION process;
        REQUIRE(::CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                                 &startup, &process));
        m_Process.Reset(process.hProcess);
        ::CloseHandle(process.hThread);
    }
    /// One of the cases below that are for another instance of this program.
    static std::wstring Case(const wchar_t* name)
    {
        return L"\"" + IO::ProgramPath() + L"\" --no-skip --out=nul \"-tc=" + name + L"\"";
    }
    CChild(const CChild&) = delete;
    ~CChild() { ::TerminateProcess(m_Process.Get(), 1); }
    /// STILL_ACTIVE when it doesn't end.
    DWORD ExitCode(DWORD milliseconds = 60000) const
    {
        DWORD code = STILL_ACTIVE;
        ::WaitForSingleObject(m_Process.Get(), milliseconds);
        ::GetExitCodeProcess(m_Process.Get(), &code);
        return code;
    }

private:
    Win32::CKernelHandle m_Process;
};

constexpr wchar_t ChildTitle[] = L"Ls dialog of another process", ChildMayEnd[] = L"LsDialogTests-end";
} // namespace

TEST_CASE("child: a dialog for others to look at" * doctest::skip())
{
    DebugSettings::UpdaterPauseBeforeDialogMs = 0;
    const Win32::CEvent end(ChildMayEnd, true, false);
    CUI ui(true, ChildTitle, L"First");
    ui.SetText(L"\u0416 \uC5C5\uB370\uC774\uD2B8 \u66F4\u65B0");
    ui.SetProgress(37);
    CHECK(end.Wait(60000) == WAIT_OBJECT_0);
}

TEST_CASE("another process reads from the controls what the program set, and can't close or harm the dialog")
{
    const Win32::CEvent end(ChildMayEnd, true, false);
    const CChild child(CChild::Case(L"child: a dialog for others*"));
    HWND dialog = nullptr;
    REQUIRE(WaitFor([&] { return (dialog = ::FindWindowW(L"#32770", ChildTitle)) != nullptr; }));
    const HWND text = ::GetDlgItem(dialog, IDC_MESSAGE_TEXT), bar = ::GetDlgItem(dialog, IDC_PROGRESS_BAR);
    const auto progress = [bar] { return ::SendMessageW(bar, PBM_GETPOS, 0, 0); };
    CHECK(WaitFor([&] { return TextOf(text) == L"\u0416 \uC5C5\uB370\uC774\uD2B8 \u66F4\u65B0"; }));
    CHECK(WaitFor([&] { return progress() == 37 && ::IsWindowVisible(dialog); }));
    CHECK(::SendMessageW(bar, PBM_GETRANGE, FALSE, 0) == 100);
    // Caption and frame, nothing to close, move by menu or resize it with.
    const auto style = static_cast<DWORD>(::GetWindowLongPtrW(dialog, GWL_STYLE));
    const DWORD needed = WS_POPUP | WS_CAPTION | DS_MODALFRAME | DS_SETFOREGROUND | DS_CENTER;
    CHECK((style & (needed | WS_SYSMENU | WS_THICKFRAME | WS_MINIMIZEBOX | WS_MAXIMIZEBOX)) == needed);
    for (const auto& [message, wParam] : {std::pair<UINT, WPARAM>{WM_CLOSE, 0},
                                          {WM_SYSCOMMAND, SC_CLOSE},
                                          {WM_COMMAND, IDCANCEL},
                                          {WM_KEYDOWN, VK_ESCAPE},
                                          {WM_QUIT, 0},
                                          {WM_INITDIALOG, 1}})
        ::PostMessageW(dialog, message, wParam, 0);
    ::PostMessageW(dialog, PBM_SETPOS, 64, 0); // passed on to the bar, whoever sends it
    CHECK(WaitFor([&] { return progress() == 64; }));
    CHECK(::IsWindowVisible(dialog));
    end.Set();
    CHECK(child.ExitCode() == 0);
}

TEST_CASE("a run that ends within the pause, or without a progress window, shows none")
{
    for (const bool visible : {true, false})
    {
        const CShown dialog(visible ? AnHour : 0, AnHour, visible);
        dialog.UI->SetProgress(12);
        CHECK((dialog.Turns() && WaitFor([&] { return dialog.Progress() == 12; })));
        CHECK_FALSE(dialog.IsShown());
        dialog.UI->SetShouldFinish();
        CHECK(dialog.BecomesGone()); // what was never seen needs no time to be seen
        dialog.UI->SetProgress(1);   // goes nowhere
        dialog.UI->SetText(L"nowhere");
    }
    const DWORD begin = ::GetTickCount();
    const CShown dialog(300, 0);
    CHECK(WaitFor([&] { return dialog.IsShown(); }));
    CHECK(::GetTickCount() - begin >= 300);
}

TEST_CASE("a window that was shown stays for its minimum time, unless a quick exit is wanted")
{
    for (const std::uint32_t minimum : {0u, 400u, AnHour})
    {
        const CShown dialog(AnHour, minimum);
        const DWORD made = ::GetTickCount(); // the time counts from the showing, not from the making
        CHECK(WaitFor([&] { return ::GetTickCount() - made >= 400; }));
        const DWORD shown = ::GetTickCount();
        DebugSettings::UpdaterPauseBeforeDialogMs = 0;
        REQUIRE(WaitFor([&] { return dialog.IsShown(); }));
        dialog.UI->SetShouldFinish();
        if (minimum == AnHour)
        {
            DebugSettings::UpdaterMinDialogShowTimeMs = 1; // for a quick exit; else a dialog keeps its time
            CHECK((dialog.Turns() && dialog.IsShown()));   // while it stays it goes on
            dialog.UI->SetQuickExit();
        }
        CHECK(dialog.BecomesGone());
        CHECK((minimum == AnHour || ::GetTickCount() - shown >= minimum));
    }
}

TEST_CASE("progress reaches the bar, cut at 0 and 100; a second dialog is refused and leaves the first alone")
{
    const CShown dialog(AnHour, 0);
    for (const auto& [progress, bar] :
         {std::pair{10, 10}, {101, 100}, {99, 99}, {INT_MAX, 100}, {20, 20}, {-5, 0}, {55, 55}, {INT_MIN, 0}})
    {
        dialog.UI->SetProgress(progress);
        CHECK(WaitFor([&, wanted = bar] { return dialog.Progress() == wanted; }));
    }
    std::int32_t code = 0;
    try
    {
        const CUI second(true, L"", L"");
    }
    catch (const CExitCodeException& exception)
    {
        code = exception.ExitCode();
    }
    CHECK(code == 514);
    CHECK((CUI::ms_pInstance == dialog.UI.get() && dialog.Turns()));
}

TEST_CASE("four threads set text and progress while windows come and go")
{
    unsigned handlesBefore = 0, threadsBefore = 0, gdiBefore = 0;
    const unsigned rounds = Tests::Loops(4, 40);
    for (unsigned round = 0; round <= rounds; ++round) // the first one fills what the system keeps
    {
        if (round == 1)
        {
            handlesBefore = Tests::HandleCount();
            threadsBefore = Tests::ThreadCount();
            gdiBefore = GdiObjects();
        }
        CShown dialog(0, 0);
        const auto icon = [&](WPARAM size) {
            return reinterpret_cast<HICON>(::SendMessageW(dialog.Window, WM_GETICON, size, 0));
        };
        const HICON big = icon(ICON_BIG), little = icon(ICON_SMALL);
        CHECK((big && little && big != little) == CanDraw());
        std::atomic<int> calls = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&dialog, &calls, i] {
                for (int call = 0; call < 500; ++call, ++calls)
                {
                    dialog.UI->SetText(std::to_wstring(i) + L"-" + std::to_wstring(call));
                    dialog.UI->SetProgress(call % 120 - 5);
                }
            });
        if (round % 2 == 1) // closed in the midst of it
        {
            CHECK(WaitFor([&] { return calls > 400; }));
            dialog.UI->SetShouldFinish();
            CHECK(dialog.BecomesGone());
        }
        for (std::thread& thread : threads)
            thread.join();
        dialog.UI->SetText(L"Last");
        CHECK((round % 2 == 1 || WaitFor([&] { return TextOf(dialog.Text) == L"Last"; })));
        CHECK((round % 2 == 1 || WaitFor([&] {
                   dialog.UI->SetProgress(42); // again: a full queue drops it
                   return dialog.Progress() == 42;
               })));
        dialog.UI.reset();
        ICONINFO info;
        CHECK_FALSE((::IsWindow(dialog.Window) || ::GetIconInfo(big, &info) || ::GetIconInfo(little, &info)));
    }
    CHECK(Tests::ThreadCount() <= threadsBefore);
    CHECK(Tests::HandleCount() <= handlesBefore);
    CHECK(GdiObjects() <= gdiBefore);
}

TEST_CASE("a dialog that can't be made is logged and keeps its program waiting")
{
    const std::wstring log = Util::GetPerUserAppDataPath() + L"\\Larkspur\\Logs\\NoDialog.exe.log";
    ::DeleteFileW(log.c_str());
    const CChild child(LS::AnsiToWide(LS_NO_DIALOG_EXE));
    CHECK(WaitFor([&] { return Tests::ReadBytes(log).find("End : Return: 513") != std::string::npos; }));
    CHECK(Tests::ReadBytes(log).find("CreateDialog() returned NULL hWnd, throw out") != std::string::npos);
    // The dialog's thread has said its last word; the program waits on. How long can't be waited for.
    CHECK(child.ExitCode(1000) == STILL_ACTIVE);
}

TEST_CASE("child: the layout at this DPI" * doctest::skip())
{
    const CShown dialog(0, 0);
    const auto dpi = reinterpret_cast<UINT(WINAPI*)(HWND)>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"user32.dll"), "GetDpiForWindow")));
    CHECK(dpi(dialog.Window) == static_cast<UINT>(_wtoi(_wgetenv(L"LS_TEST_DPI"))));
    // A place in dialog units, in pixels: corner and size are rounded each for itself.
    const auto isAt = [&dialog](HWND control, RECT units) {
        RECT place, wanted = units;
        ::GetWindowRect(control, &place);
        ::MapWindowPoints(nullptr, dialog.Window, reinterpret_cast<POINT*>(&place), 2);
        ::MapDialogRect(dialog.Window, &wanted);
        wanted = {wanted.left, wanted.top, wanted.left + wanted.right, wanted.top + wanted.bottom};
        return ::EqualRect(&place, &wanted) != FALSE;
    };
    CHECK(isAt(dialog.Text, {19, 19, 277, 28}));
    CHECK(isAt(dialog.Bar, {19, 48, 278, 9}));
    RECT client, all{0, 0, 316, 71}, text;
    ::GetClientRect(dialog.Window, &client);
    ::GetClientRect(dialog.Text, &text);
    ::MapDialogRect(dialog.Window, &all);
    CHECK(::EqualRect(&client, &all));
    const HDC dc = ::GetDC(dialog.Text);
    ::SelectObject(dc, reinterpret_cast<HFONT>(::SendMessageW(dialog.Text, WM_GETFONT, 0, 0)));
    for (const LANGID language : {1028, 1031, 1033, 1034, 1036, 1040, 1042, 1046, 2052, 3082})
        for (std::uint16_t id = IDS_TITLE; CanDraw() && id <= IDS_UPDATE_NOTICE; ++id)
        {
            CAPTURE(language);
            CAPTURE(id);
            RECT size = {0, 0, text.right, 0};
            const std::wstring content = LoadStringTableText(nullptr, id, language);
            ::DrawTextW(dc, content.c_str(), -1, &size, DT_CALCRECT | DT_WORDBREAK | DT_EXPANDTABS);
            CHECK((size.right > 0 && size.right <= text.right));
            // What is seen while it runs is one line.
            CHECK(size.bottom <= (id <= IDS_APPLYING ? text.bottom / 2 : text.bottom));
        }
    ::ReleaseDC(dialog.Text, dc);
}

TEST_CASE("the layout holds and every text fits, at each DPI")
{
    constexpr wchar_t Key[] = L"Control Panel\\Desktop", Value[] = L"LogPixels";
    for (const DWORD dpi : {96, 120, 144, 192})
    {
        CAPTURE(dpi);
        // Wine's programs read it at their start; Windows needs a new session, so there only 96 is shown.
        ::RegSetKeyValueW(HKEY_CURRENT_USER, Key, Value, REG_DWORD, &dpi, sizeof(dpi));
        ::SetEnvironmentVariableW(L"LS_TEST_DPI", std::to_wstring(dpi).c_str());
        CHECK(CChild(CChild::Case(L"child: the layout*")).ExitCode() == 0);
    }
    ::RegDeleteKeyValueW(HKEY_CURRENT_USER, Key, Value);
}
