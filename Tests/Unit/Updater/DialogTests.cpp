// The progress dialog as a real window. What Wine can't show is left out: it has no counts of a process's GUI
// objects (its own table of GDI handles is counted instead), and its 32-bit half without 32-bit system
// libraries has no device contexts, so there are no icons, no measures of texts and no table in the 32-bit
// program. A program that can't make the dialog stands for a missing display too: the call fails in the same
// way.
#include "Ls/System/ExitCodeException.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Util/PerUserAppDataPath.h"
#include "Tests/Support/ProcessCounts.h"
#include "Tests/Support/Soak.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/WaitFor.h"
#include "Tests/Support/WideText.h"
#include "Updater/Dialog/UI.h"
#include "Updater/Language/StringTable.h"
#include "Updater/Resources/Resource.h"
#include "Updater/Run/ExitCodes.h"
#include "Updater/Settings/DebugSettings.h"

#include <windows.h>

#include <commctrl.h>
#include <winternl.h>

#include <doctest/doctest.h>

#include <atomic>
#include <climits>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

using namespace LS::System;
using namespace std::string_literals;
using Tests::WaitFor;

namespace
{
constexpr std::uint32_t AnHour = 3600000;

/// The dialog's times for one case.
class CTimes
{
public:
    CTimes(std::uint32_t pause, std::uint32_t minimum)
    {
        DebugSettings::UpdaterPauseBeforeDialogMs = pause;
        DebugSettings::UpdaterMinDialogShowTimeMs = minimum;
    }
    CTimes(const CTimes&) = delete;
    ~CTimes()
    {
        DebugSettings::UpdaterPauseBeforeDialogMs = 1000;
        DebugSettings::UpdaterMinDialogShowTimeMs = 500;
    }
};

/// The log's lines go to a folder of their own.
class CLogFolder
{
public:
    CLogFolder() { Util::CLog::Instance()._SetOutputFile(m_Folder.Path(L"Test.log"), true); }
    CLogFolder(const CLogFolder&) = delete;
    ~CLogFolder() { Util::CLog::Instance()._SetOutputFile(L"", false); }
    std::string Text() const
    {
        std::string text = Tests::ReadBytes(m_Folder.Path(L"Test.log"));
        std::erase(text, '\r');
        return text.substr(std::min<std::size_t>(104, text.size())); // behind the header
    }

private:
    Tests::CTempFolder m_Folder;
};

std::wstring UniqueTitle()
{
    static std::atomic<int> count;
    return L"Ls dialog " + std::to_wstring(::GetCurrentProcessId()) + L"-" + std::to_wstring(++count);
}

std::wstring TextOf(HWND window)
{
    wchar_t text[500] = {};
    ::SendMessageW(window, WM_GETTEXT, std::size(text), reinterpret_cast<LPARAM>(text));
    return text;
}

/// A CUI with its window, and what comes to the window.
class CShown
{
public:
    explicit CShown(bool visible = true) : m_UI(std::make_unique<CUI>(visible, m_Title, L"First"))
    {
        Window = ::FindWindowW(L"#32770", m_Title.c_str());
        REQUIRE(Window);
        Text = ::GetDlgItem(Window, IDC_MESSAGE_TEXT);
        Bar = ::GetDlgItem(Window, IDC_PROGRESS_BAR);
        ms_Watched = Window;
        ms_Shows = 0;
        Passed().clear();
        const DWORD thread = ::GetWindowThreadProcessId(Window, nullptr);
        m_Sent = ::SetWindowsHookExW(WH_CALLWNDPROC, &OnSent, nullptr, thread);
        m_Posted = ::SetWindowsHookExW(WH_GETMESSAGE, &OnPosted, nullptr, thread);
        REQUIRE(m_Sent);
        REQUIRE(m_Posted);
        REQUIRE(Turns(1)); // the hooks are noticed at the next message
    }
    CShown(const CShown&) = delete;
    ~CShown()
    {
        if (m_UI) // a case that failed must not wait for hours
        {
            DebugSettings::UpdaterMinDialogShowTimeMs = 0;
            m_UI->SetQuickExit();
        }
        Close();
        ::UnhookWindowsHookEx(m_Sent);
        ::UnhookWindowsHookEx(m_Posted);
    }

    CUI* operator->() const { return m_UI.get(); }
    void Close() { m_UI.reset(); }

    bool IsShown() const { return ::IsWindowVisible(Window); }
    bool IsGone() const { return !::IsWindow(Window); }
    int Progress() const { return static_cast<int>(::SendMessageW(Bar, PBM_GETPOS, 0, 0)); }
    /// Returns when the dialog has gone through its loop at least that often.
    bool Turns(int count) const
    {
        for (int i = 0; i < count; ++i)
        {
            const std::wstring text = L"Turn " + std::to_wstring(i);
            m_UI->SetText(text);
            if (!WaitFor([&] { return TextOf(Text) == text; }))
                return false;
        }
        return true;
    }

    static std::mutex& Lock()
    {
        static std::mutex lock;
        return lock;
    }
    /// Progress that the dialog passed on.
    static std::vector<WPARAM>& Passed()
    {
        static std::vector<WPARAM> passed;
        return passed;
    }

    HWND Window, Text, Bar;
    static inline std::atomic<int> ms_Shows;
    static inline std::atomic<DWORD> ms_ShownTicks, ms_DestroyedTicks;

private:
    static LRESULT CALLBACK OnSent(int code, WPARAM wParam, LPARAM lParam)
    {
        const auto& message = *reinterpret_cast<const CWPSTRUCT*>(lParam);
        if (message.hwnd == ms_Watched && message.message == WM_SHOWWINDOW && message.wParam)
        {
            ms_ShownTicks = ::GetTickCount();
            ++ms_Shows;
        }
        if (message.hwnd == ms_Watched && message.message == WM_DESTROY)
            ms_DestroyedTicks = ::GetTickCount();
        return ::CallNextHookEx(nullptr, code, wParam, lParam);
    }
    static LRESULT CALLBACK OnPosted(int code, WPARAM wParam, LPARAM lParam)
    {
        const auto& message = *reinterpret_cast<const MSG*>(lParam);
        if (wParam == PM_REMOVE && message.hwnd == ms_Watched && message.message == PBM_SETPOS)
        {
            const std::lock_guard lock(Lock());
            Passed().push_back(message.wParam);
        }
        return ::CallNextHookEx(nullptr, code, wParam, lParam);
    }

    static inline std::atomic<HWND> ms_Watched;
    const std::wstring m_Title = UniqueTitle();
    std::unique_ptr<CUI> m_UI;
    HHOOK m_Sent, m_Posted;
};

/// GDI objects of this process; 0 when they can't be counted.
unsigned GdiObjects()
{
    if (const DWORD objects = ::GetGuiResources(::GetCurrentProcess(), GR_GDIOBJECTS))
        return objects;
    // Wine 8 always says 0. Its table of handles, of 24 bytes with the type at 14, hangs on the process
    // block.
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

/// Another instance of this program, running one of the cases below that are for it alone.
class CChild
{
public:
    explicit CChild(const std::wstring& testCase)
    {
        wchar_t program[MAX_PATH];
        ::GetModuleFileNameW(nullptr, program, MAX_PATH);
        std::wstring command = L"\""s + program + L"\" --no-skip \"-tc=" + testCase + L"\"";
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION process;
        REQUIRE(::CreateProcessW(program, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                                 &startup, &process));
        m_Process.Reset(process.hProcess);
        ::CloseHandle(process.hThread);
    }
    CChild(const CChild&) = delete;
    ~CChild() { ::TerminateProcess(m_Process.Get(), 1); }
    DWORD ExitCode() const
    {
        DWORD code = STILL_ACTIVE;
        ::WaitForSingleObject(m_Process.Get(), 120000);
        ::GetExitCodeProcess(m_Process.Get(), &code);
        return code;
    }

private:
    Win32::CKernelHandle m_Process;
};

constexpr wchar_t ChildTitle[] = L"Ls dialog of another process";
constexpr wchar_t ChildMayEnd[] = L"LsDialogTests-end";
} // namespace

TEST_CASE("child: a dialog for others to look at" * doctest::skip())
{
    const CTimes times(0, 0);
    const Win32::CEvent end(ChildMayEnd, true, false);
    CUI ui(true, ChildTitle, L"First");
    ui.SetText(L"\u0416 \uC5C5\uB370\uC774\uD2B8 \u66F4\u65B0");
    ui.SetProgress(37);
    const HWND dialog = ::FindWindowW(L"#32770", ChildTitle);
    if (CanDraw()) // Wine doesn't tell another process which icons a window has
    {
        CHECK(::SendMessageW(dialog, WM_GETICON, ICON_BIG, 0) != 0);
        CHECK(::SendMessageW(dialog, WM_GETICON, ICON_SMALL, 0) != 0);
    }
    CHECK(end.Wait(60000) == WAIT_OBJECT_0);
}

TEST_CASE("another process reads from the controls what the program set")
{
    const Win32::CEvent end(ChildMayEnd, true, false);
    const CChild child(L"child: a dialog for others*");
    HWND dialog = nullptr;
    REQUIRE(WaitFor([&] { return (dialog = ::FindWindowW(L"#32770", ChildTitle)) != nullptr; }));
    const HWND text = ::GetDlgItem(dialog, IDC_MESSAGE_TEXT), bar = ::GetDlgItem(dialog, IDC_PROGRESS_BAR);
    const auto progress = [bar] { return ::SendMessageW(bar, PBM_GETPOS, 0, 0); };
    CHECK(WaitFor([&] { return TextOf(text) == L"\u0416 \uC5C5\uB370\uC774\uD2B8 \u66F4\u65B0"; }));
    CHECK(WaitFor([&] { return progress() == 37; }));
    CHECK(WaitFor([&] { return ::IsWindowVisible(dialog) != FALSE; }));
    CHECK(TextOf(dialog) == ChildTitle);
    CHECK(::SendMessageW(bar, PBM_GETRANGE, TRUE, 0) == 0);
    CHECK(::SendMessageW(bar, PBM_GETRANGE, FALSE, 0) == 100);
    // Caption and frame, nothing to close, move by menu or resize it with.
    const LONG_PTR style = ::GetWindowLongPtrW(dialog, GWL_STYLE);
    CHECK((style & (WS_POPUP | WS_CAPTION | DS_MODALFRAME | DS_SETFOREGROUND | DS_CENTER)) ==
          (static_cast<LONG_PTR>(WS_POPUP) | WS_CAPTION | DS_MODALFRAME | DS_SETFOREGROUND | DS_CENTER));
    CHECK((style & (WS_SYSMENU | WS_THICKFRAME | WS_MINIMIZEBOX | WS_MAXIMIZEBOX)) == 0);
    CHECK((::GetWindowLongPtrW(bar, GWL_STYLE) & PBS_SMOOTH) != 0);

    // The dialog passes a position on to its bar, whoever sends it.
    ::PostMessageW(dialog, PBM_SETPOS, 63, 0);
    CHECK(WaitFor([&] { return progress() == 63; }));

    // Nothing that a user or another program does closes it or harms it.
    for (const auto& [message, wParam, lParam] : {std::tuple<UINT, WPARAM, LPARAM>{WM_CLOSE, 0, 0},
                                                  {WM_SYSCOMMAND, SC_CLOSE, 0},
                                                  {WM_COMMAND, IDCANCEL, 0},
                                                  {WM_KEYDOWN, VK_ESCAPE, 0},
                                                  {WM_QUIT, 0, 0},
                                                  {WM_INITDIALOG, 1, 1}})
        ::PostMessageW(dialog, message, wParam, lParam);
    ::PostMessageW(dialog, PBM_SETPOS, 64, 0);
    CHECK(WaitFor([&] { return progress() == 64; }));
    CHECK(::IsWindowVisible(dialog));

    end.Set();
    CHECK(child.ExitCode() == 0);
}

TEST_CASE("the window shows itself after the pause, and never in a run that ends before")
{
    {
        const CTimes times(AnHour, AnHour);
        const CShown dialog;
        CHECK(dialog.Turns(3));
        CHECK_FALSE(dialog.IsShown());
        dialog->SetShouldFinish();
        CHECK(WaitFor([&] { return dialog.IsGone(); })); // what was never seen needs no time to be seen
        CHECK(CShown::ms_Shows == 0);
    }
    for (const std::uint32_t pause : {0, 300})
    {
        const CTimes times(pause, 0);
        const DWORD begin = ::GetTickCount();
        const std::wstring title = UniqueTitle();
        const CUI ui(true, title, L"");
        CHECK(WaitFor([&] { return ::IsWindowVisible(::FindWindowW(L"#32770", title.c_str())) != FALSE; }));
        CHECK(::GetTickCount() - begin >= pause);
    }
}

TEST_CASE("a run without a progress window shows none")
{
    const CTimes times(0, AnHour);
    const CShown dialog(false);
    dialog->SetProgress(12);
    CHECK(dialog.Turns(3));
    CHECK(WaitFor([&] { return dialog.Progress() == 12; }));
    CHECK_FALSE(dialog.IsShown());
    dialog->SetShouldFinish();
    CHECK(WaitFor([&] { return dialog.IsGone(); }));
    CHECK(CShown::ms_Shows == 0);
}

TEST_CASE("a window that was shown stays for its minimum time")
{
    for (const std::uint32_t minimum : {0, 400})
    {
        CAPTURE(minimum);
        const CTimes times(AnHour, minimum);
        CShown dialog;
        const DWORD made = ::GetTickCount(); // the time counts from the showing, not from the making
        CHECK(WaitFor([&] { return ::GetTickCount() - made >= minimum; }));
        DebugSettings::UpdaterPauseBeforeDialogMs = 0;
        REQUIRE(WaitFor([&] { return dialog.IsShown(); }));
        dialog->SetShouldFinish();
        dialog.Close();
        CHECK(dialog.IsGone());
        CHECK(CShown::ms_Shows == 1);
        CHECK(CShown::ms_DestroyedTicks - CShown::ms_ShownTicks >= minimum);
    }
}

TEST_CASE("a quick exit doesn't wait for the time that the dialog began with")
{
    const CTimes times(AnHour, AnHour);
    CShown dialog;
    DebugSettings::UpdaterPauseBeforeDialogMs = 0;
    REQUIRE(WaitFor([&] { return dialog.IsShown(); }));
    dialog->SetShouldFinish();
    CHECK(dialog.Turns(3)); // while it stays it goes on
    CHECK(dialog.IsShown());
    DebugSettings::UpdaterMinDialogShowTimeMs = 1;
    CHECK(dialog.Turns(3)); // the running dialog keeps its time
    CHECK(dialog.IsShown());
    dialog->SetQuickExit();
    CHECK(WaitFor([&] { return dialog.IsGone(); }));
}

TEST_CASE("progress reaches the bar, cut at 100 and not at 0")
{
    const CTimes times(AnHour, 0);
    const CShown dialog;
    const struct
    {
        int Progress, Passed, Bar;
    } table[] = {{10, 10, 10}, {100, 100, 100}, {99, 99, 99},          {101, 100, 100},
                 {50, 50, 50}, {150, 100, 100}, {INT_MAX, 100, 100},   {20, 20, 20},
                 {-5, -5, 0},  {55, 55, 55},    {INT_MIN, INT_MIN, 0}, {0, 0, 0}};
    for (const auto& row : table)
    {
        CAPTURE(row.Progress);
        {
            const std::lock_guard lock(CShown::Lock());
            CShown::Passed().clear();
        }
        dialog->SetProgress(row.Progress);
        CHECK(WaitFor([&] { return dialog.Progress() == row.Bar; }));
        CHECK(WaitFor([&] {
            const std::lock_guard lock(CShown::Lock());
            return CShown::Passed() == std::vector<WPARAM>{static_cast<WPARAM>(row.Passed)};
        }));
    }
    dialog->SetShouldFinish();
    CHECK(WaitFor([&] { return dialog.IsGone(); }));
    dialog->SetProgress(1); // goes nowhere
    dialog->SetText(L"nowhere");
}

TEST_CASE("a second dialog is refused and leaves the first alone")
{
    const CTimes times(AnHour, 0);
    {
        const CShown first;
        CHECK(CUI::ms_pInstance == first.operator->());
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
        CHECK(CUI::ms_pInstance == first.operator->());
        CHECK(first.Turns(1));
    }
    CHECK(CUI::ms_pInstance == nullptr);
    const CShown next;
    CHECK(next.Turns(1));
}

TEST_CASE("four threads set text and progress while windows come and go")
{
    const CLogFolder log;
    const CTimes times(0, 0);
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
        CShown dialog;
        const auto big = reinterpret_cast<HICON>(::SendMessageW(dialog.Window, WM_GETICON, ICON_BIG, 0));
        const auto small = reinterpret_cast<HICON>(::SendMessageW(dialog.Window, WM_GETICON, ICON_SMALL, 0));
        CHECK((big && small && big != small) == CanDraw());
        std::atomic<int> calls = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&dialog, &calls, i] {
                for (int call = 0; call < 500; ++call, ++calls)
                {
                    dialog->SetText(std::to_wstring(i) + L"-" + std::to_wstring(call));
                    dialog->SetProgress(call % 120 - 5);
                }
            });
        const bool closes = round % 2 == 1;
        if (closes) // in the midst of it
        {
            CHECK(WaitFor([&] { return calls > 400; }));
            dialog->SetShouldFinish();
            CHECK(WaitFor([&] { return dialog.IsGone(); }));
        }
        for (std::thread& thread : threads)
            thread.join();
        if (!closes)
        {
            dialog->SetText(L"Last");
            CHECK(WaitFor([&] { return TextOf(dialog.Text) == L"Last"; }));
            CHECK(dialog.Turns(2));
            CHECK(WaitFor([&] {
                dialog->SetProgress(42); // again: a full queue drops it
                return dialog.Progress() == 42;
            }));
        }
        dialog.Close();
        CHECK(dialog.IsGone());
        ICONINFO info;
        CHECK_FALSE(::GetIconInfo(big, &info));
        CHECK_FALSE(::GetIconInfo(small, &info));
    }
    CHECK(Tests::ThreadCount() <= threadsBefore);
    CHECK(Tests::HandleCount() <= handlesBefore);
    CHECK(GdiObjects() <= gdiBefore);
}

TEST_CASE("the log tells the dialog's life")
{
    const CTimes times(AnHour, 0);
    const CLogFolder log;
    {
        CUI ui(true, UniqueTitle(), L"First");
        CHECK_THROWS_AS(CUI(true, L"", L""), CExitCodeException);
        ui.SetText(L"Second");
        ui.SetProgress(150);
        ui.SetQuickExit();
        ui.SetShouldFinish();
    }
    std::string text = log.Text();
    const std::string begin = "CMsgDialogThreadFunction::Execute() : Begin\n",
                      end = "CMsgDialogThreadFunction::Execute() : End : Return: 0\n";
    for (const std::string& line : {begin, end}) // on its own thread, so anywhere between the others
    {
        const auto position = text.find(line);
        REQUIRE(position != std::string::npos);
        text.erase(position, line.size());
    }
    CHECK(text ==
          "CUI::CUI() : Begin\nCUI::CUI()\n"
          "CUI::CUI() : Begin\nCUI::CUI() : Error ms_pInstance != NULL, throw out\n"
          "Only one instance allowed\n"
          "CUI::SetText() : MessageText=Second\nCUI::SetText() : End\n"
          "CUI::SetProgress() : Progress=150\nCUI::SetQuickExit()\nCUI::SetShouldFinish()\nCUI::~CUI()\n");
}

TEST_CASE("a dialog that can't be made is logged and keeps its program waiting")
{
    const std::wstring log = Util::GetPerUserAppDataPath() + L"\\Larkspur\\Logs\\NoDialog.exe.log";
    ::DeleteFileW(log.c_str());
    std::wstring program = LS::AnsiToWide(LS_NO_DIALOG_EXE);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process;
    REQUIRE(::CreateProcessW(nullptr, program.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                             &process));
    const Win32::CKernelHandle handle(process.hProcess), thread(process.hThread);
    CHECK(WaitFor([&] { return Tests::ReadBytes(log).find("End : Return") != std::string::npos; }));
    // The dialog's thread has said its last word; the program waits on. How long can't be waited for.
    CHECK(::WaitForSingleObject(process.hProcess, 1000) == WAIT_TIMEOUT);
    ::TerminateProcess(process.hProcess, 1);
    ::WaitForSingleObject(process.hProcess, INFINITE);
    std::string text = Tests::ReadBytes(log);
    std::erase(text, '\r');
    CHECK(
        text.substr(std::min<std::size_t>(104, text.size())) ==
        "CUI::CUI() : Begin\nCMsgDialogThreadFunction::Execute() : Begin\n"
        "CRAIIDialog::CRAIIDialog() : ::CreateDialog() returned NULL hWnd, throw out\nCreateDialog failure\n"
        "CMsgDialogThreadFunction::Execute() : caught CExitCodeException : Error code is: 513\n"
        "CMsgDialogThreadFunction::Execute() : End : Return: 513\n");
}

TEST_CASE("child: the layout at this DPI" * doctest::skip())
{
    const CTimes times(0, 0);
    const CShown dialog;
    CHECK(WaitFor([&] { return dialog.IsShown(); }));

    // The system knows that the program scales with each monitor.
    const HMODULE user = ::GetModuleHandleW(L"user32.dll");
    const auto context = reinterpret_cast<void*(WINAPI*)()>(
        reinterpret_cast<void*>(::GetProcAddress(user, "GetThreadDpiAwarenessContext")));
    const auto awareness = reinterpret_cast<int(WINAPI*)(void*)>(
        reinterpret_cast<void*>(::GetProcAddress(user, "GetAwarenessFromDpiAwarenessContext")));
    const auto dpi = reinterpret_cast<UINT(WINAPI*)(HWND)>(
        reinterpret_cast<void*>(::GetProcAddress(user, "GetDpiForWindow")));
    REQUIRE((context && awareness && dpi));
    CHECK(awareness(context()) == 2); // per monitor; Wine 8 knows no finer difference
    CHECK(dpi(dialog.Window) == static_cast<UINT>(_wtoi(_wgetenv(L"LS_TEST_DPI"))));

    // A place in dialog units, in pixels: corner and size are rounded each for itself.
    const auto units = [&dialog](LONG left, LONG top, LONG width, LONG height) {
        RECT rectangle = {left, top, width, height};
        ::MapDialogRect(dialog.Window, &rectangle);
        return RECT{rectangle.left, rectangle.top, rectangle.left + rectangle.right,
                    rectangle.top + rectangle.bottom};
    };
    const auto place = [&dialog](HWND control) {
        RECT rectangle;
        ::GetWindowRect(control, &rectangle);
        ::MapWindowPoints(nullptr, dialog.Window, reinterpret_cast<POINT*>(&rectangle), 2);
        return rectangle;
    };
    const RECT text = place(dialog.Text), bar = place(dialog.Bar);
    const RECT textUnits = units(19, 19, 277, 28), barUnits = units(19, 48, 278, 9),
               all = units(0, 0, 316, 71);
    CHECK(::EqualRect(&text, &textUnits));
    CHECK(::EqualRect(&bar, &barUnits));
    RECT client;
    ::GetClientRect(dialog.Window, &client);
    CHECK(::EqualRect(&client, &all));
    CHECK(text.bottom <= bar.top);
    CHECK(bar.bottom < client.bottom);
    CHECK(bar.right < client.right);

    // Every text in the control as it is.
    const HDC dc = ::GetDC(dialog.Text);
    if (CanDraw())
    {
        ::SelectObject(dc, reinterpret_cast<HFONT>(::SendMessageW(dialog.Text, WM_GETFONT, 0, 0)));
        for (const LANGID language : {1028, 1031, 1033, 1034, 1036, 1040, 1042, 1046, 2052, 3082})
        {
            for (std::uint16_t id = IDS_TITLE; id <= IDS_UPDATE_NOTICE; ++id)
            {
                CAPTURE(language);
                CAPTURE(id);
                RECT needed = {0, 0, text.right - text.left, 0};
                ::DrawTextW(dc, LoadStringTableText(nullptr, id, language).c_str(), -1, &needed,
                            DT_CALCRECT | DT_WORDBREAK | DT_EXPANDTABS);
                CHECK(needed.right > 0);
                CHECK(needed.right <= text.right - text.left);
                CHECK(needed.bottom <= text.bottom - text.top);
                if (id <= IDS_APPLYING) // what is seen while it runs is one line
                    CHECK(needed.bottom <= (text.bottom - text.top) / 2);
            }
        }
    }
    ::ReleaseDC(dialog.Text, dc);
}

TEST_CASE("the layout holds and every text fits, at each DPI")
{
    constexpr wchar_t Key[] = L"Control Panel\\Desktop", Value[] = L"LogPixels";
    DWORD before = 0, size = sizeof(before);
    const bool hadValue = ::RegGetValueW(HKEY_CURRENT_USER, Key, Value, RRF_RT_REG_DWORD, nullptr, &before,
                                         &size) == ERROR_SUCCESS;
    for (const DWORD dpi : {96, 120, 144, 192})
    {
        CAPTURE(dpi);
        // Wine's programs read it at their start; Windows needs a new session, so there only 96 is shown.
        ::RegSetKeyValueW(HKEY_CURRENT_USER, Key, Value, REG_DWORD, &dpi, sizeof(dpi));
        ::SetEnvironmentVariableW(L"LS_TEST_DPI", std::to_wstring(dpi).c_str());
        CHECK(CChild(L"child: the layout*").ExitCode() == 0);
    }
    if (hadValue)
        ::RegSetKeyValueW(HKEY_CURRENT_USER, Key, Value, REG_DWORD, &before, sizeof(before));
    else
        ::RegDeleteKeyValueW(HKEY_CURRENT_USER, Key, Value);
}

TEST_CASE("the program's file says whose it is and has an icon of every size")
{
    wchar_t program[MAX_PATH];
    ::GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::vector<char> version(::GetFileVersionInfoSizeW(program, nullptr));
    REQUIRE(::GetFileVersionInfoW(program, 0, static_cast<DWORD>(version.size()), version.data()));
    void* value = nullptr;
    UINT size = 0;
    REQUIRE(::VerQueryValueW(version.data(), L"\\", &value, &size));
    const auto& numbers = *static_cast<const VS_FIXEDFILEINFO*>(value);
    CHECK(numbers.dwFileVersionMS == 0x00010001);
    CHECK(numbers.dwFileVersionLS == 0x0001000D);
    for (const auto& [name, text] : {std::pair{L"CompanyName", L"Larkspur, Inc."},
                                     {L"FileDescription", L"Larkspur Updater"},
                                     {L"FileVersion", L"1.1.1.13"}})
    {
        REQUIRE(::VerQueryValueW(version.data(), (L"\\StringFileInfo\\040904B0\\"s + name).c_str(), &value,
                                 &size));
        CHECK(static_cast<const wchar_t*>(value) == std::wstring(text));
    }

    const HMODULE module = ::GetModuleHandleW(nullptr);
    const HRSRC group = ::FindResourceExW(module, RT_GROUP_ICON, MAKEINTRESOURCEW(IDI_UPDATER), 1033);
    REQUIRE(group);
    const auto* const bytes = static_cast<const BYTE*>(::LockResource(::LoadResource(module, group)));
    std::set<int> sizes;
    for (unsigned i = 0; i < bytes[4]; ++i) // a directory of 14 bytes each, behind 6
        sizes.insert(bytes[6 + i * 14] == 0 ? 256 : bytes[6 + i * 14]);
    CHECK(sizes == std::set<int>{16, 20, 24, 32, 40, 48, 64, 128, 256});
}
