#include "Updater/Dialog/Prompts.h"

#include "Updater/Language/Texts.h"

#include <windows.h>

namespace
{
int Show(const wchar_t* text, UINT buttonsAndIcon)
{
    // The client that started the run has the foreground and waits for the answer.
    return ::MessageBoxW(nullptr, text, Texts::Title, buttonsAndIcon | MB_SETFOREGROUND);
}
} // namespace

namespace Prompts
{
bool AskToUpdate()
{
    return Show(Texts::AskToUpdate, MB_YESNO | MB_ICONQUESTION) == IDYES;
}

void TellToConnect()
{
    Show(Texts::ConnectToInternet, MB_OK | MB_ICONERROR);
}

void TellThatUpdateIsNeeded()
{
    Show(Texts::UpdateNeededForPage, MB_OK | MB_ICONINFORMATION);
}
} // namespace Prompts
