#include "Updater/Dialog/Prompts.h"

#include "Updater/Language/Language.h"
#include "Updater/Resources/Resource.h"

#include <windows.h>

namespace
{
int Show(const CLanguage& language, std::uint16_t textId, UINT buttonsAndIcon)
{
    // The client that started the run has the foreground and waits for the answer.
    return ::MessageBoxW(nullptr, language.GetText(textId).c_str(), language.GetText(IDS_TITLE).c_str(),
                         buttonsAndIcon | MB_SETFOREGROUND);
}
} // namespace

namespace Prompts
{
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
