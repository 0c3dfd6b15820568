// Shows what people see of the updater, one window after the other, for pictures to be taken: for each it
// prints a name and the window's place ("dialog-de-de 100 100 480 150"), and goes on when it reads a line.
// Without an argument it shows the dialog in each language and the message boxes in German; with one, the
// dialog in that locale only. Exit code 1 when a text doesn't fit its control.
#include "Ls/System/ReferenceCounted.h"
#include "Tests/Support/WaitFor.h"
#include "Updater/Dialog/UI.h"
#include "Updater/Language/Language.h"
#include "Updater/Resources/Resource.h"
#include "Updater/Settings/DebugSettings.h"

#include <windows.h>

#include <commctrl.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

using LS::System::MakeRef;

namespace
{
/// The text of a message box stands in a control of this id.
constexpr int BoxTextId = 0xFFFF;

bool g_AllFits = true;

/// Whether a static control holds its whole text.
bool Fits(HWND control)
{
    wchar_t text[500] = {};
    ::SendMessageW(control, WM_GETTEXT, std::size(text), reinterpret_cast<LPARAM>(text));
    RECT is, needed;
    ::GetClientRect(control, &is);
    needed = {0, 0, is.right, 0};
    const HDC dc = ::GetDC(control);
    const HGDIOBJ before =
        ::SelectObject(dc, reinterpret_cast<HFONT>(::SendMessageW(control, WM_GETFONT, 0, 0)));
    ::DrawTextW(dc, text, -1, &needed, DT_CALCRECT | DT_WORDBREAK | DT_EXPANDTABS);
    ::SelectObject(dc, before);
    ::ReleaseDC(control, dc);
    return text[0] && needed.right <= is.right && needed.bottom <= is.bottom;
}

void Shoot(const std::wstring& name, HWND window, int textId)
{
    Tests::WaitFor([&] { return ::IsWindowVisible(window) != FALSE; });
    if (!Fits(::GetDlgItem(window, textId)))
    {
        g_AllFits = false;
        std::fprintf(stderr, "%ls: the text doesn't fit\n", name.c_str());
    }
    ::RedrawWindow(window, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW | RDW_ALLCHILDREN);
    RECT place;
    ::GetWindowRect(window, &place);
    std::printf("%ls %ld %ld %ld %ld\n", name.c_str(), place.left, place.top, place.right - place.left,
                place.bottom - place.top);
    std::fflush(stdout);
    char line[16];
    std::fgets(line, sizeof(line), stdin);
}

void ShootDialog(const std::wstring& locale)
{
    const auto language = MakeRef<CLanguage>(locale);
    const std::wstring title = language->GetText(IDS_TITLE), text = language->GetText(IDS_DOWNLOADING);
    CUI ui(true, title, language->GetText(IDS_CHECKING));
    ui.SetText(text);
    ui.SetProgress(50);
    const HWND window = ::FindWindowW(L"#32770", title.c_str());
    Tests::WaitFor([&] {
        wchar_t is[500] = {};
        ::GetDlgItemTextW(window, IDC_MESSAGE_TEXT, is, static_cast<int>(std::size(is)));
        return is == text && ::SendDlgItemMessageW(window, IDC_PROGRESS_BAR, PBM_GETPOS, 0, 0) == 50;
    });
    Shoot(L"dialog-" + locale, window, IDC_MESSAGE_TEXT);
}

void ShootBox(const std::wstring& locale, const wchar_t* name, std::uint16_t textId, UINT buttonsAndIcon)
{
    const auto language = MakeRef<CLanguage>(locale);
    const std::wstring title = language->GetText(IDS_TITLE);
    std::thread box([&] {
        ::MessageBoxW(nullptr, language->GetText(textId).c_str(), title.c_str(),
                      buttonsAndIcon | MB_SETFOREGROUND);
    });
    HWND window = nullptr;
    Tests::WaitFor([&] { return (window = ::FindWindowW(L"#32770", title.c_str())) != nullptr; });
    Shoot(std::wstring(L"box-") + name + L"-" + locale, window, BoxTextId);
    const int button = (buttonsAndIcon & MB_YESNO) == MB_YESNO ? IDYES : IDOK;
    ::PostMessageW(window, WM_COMMAND, MAKEWPARAM(button, BN_CLICKED),
                   reinterpret_cast<LPARAM>(::GetDlgItem(window, button)));
    box.join();
}
} // namespace

int wmain(int count, wchar_t** arguments)
{
    DebugSettings::UpdaterPauseBeforeDialogMs = 0;
    DebugSettings::UpdaterMinDialogShowTimeMs = 0;
    std::vector<std::wstring> locales = {L"en-us", L"de-de", L"es-es", L"es-mx", L"fr-fr",
                                         L"it-it", L"ko-kr", L"pt-br", L"zh-cn", L"zh-tw"};
    const std::wstring boxes = count > 2 ? arguments[2] : count > 1 ? L"" : L"de-de";
    if (count > 1)
        locales = {arguments[1]};
    for (const std::wstring& locale : locales)
        ShootDialog(locale);
    if (!boxes.empty())
    {
        ShootBox(boxes, L"prompt", IDS_UPDATE_PROMPT, MB_YESNO | MB_ICONQUESTION);
        ShootBox(boxes, L"offline", IDS_OFFLINE, MB_ICONERROR);
        ShootBox(boxes, L"notice", IDS_UPDATE_NOTICE, MB_ICONINFORMATION);
    }
    return g_AllFits ? 0 : 1;
}
