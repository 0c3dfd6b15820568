#include "Updater/Dialog/Prompts.h"

#include "Updater/Language/Language.h"
#include "Updater/Resources/Resource.h"

#include <windows.h>

#include <atomic>
#include <string>

namespace
{
std::atomic<bool> g_IsOpen = false;

int Show(const CLanguage& language, std::uint16_t textId, UINT buttonsAndIcon)
{
    const std::wstring text = language.GetText(textId), title = language.GetText(IDS_TITLE);
    g_IsOpen = true;
    // The client that started the run has the foreground and waits for the answer. The dialog may show itself
    // meanwhile: a box that is always on top isn't covered by it.
    const int answer =
        ::MessageBoxW(nullptr, text.c_str(), title.c_str(), buttonsAndIcon | MB_SETFOREGROUND | MB_TOPMOST);
    g_IsOpen = false;
    return answer;
}
} // namespace

namespace Prompts
{
bool IsOpen() noexcept
{
    return g_IsOpen;
}

bool AskToUpdate(const CLanguage& language)
{
    return Show(language, IDS_UPDATE_PROMPT, MB_YESNO | MB_ICONQUESTION) == IDYES;
}

void TellToConnect(const CLanguage& language)
{
    Show(language, IDS_OFFLINE, MB_OK | MB_ICONERROR);
}

void TellThatUpdateIsNeeded(const CLanguage& language)
{
    Show(language, IDS_UPDATE_NOTICE, MB_OK | MB_ICONINFORMATION);
}
} // namespace Prompts
