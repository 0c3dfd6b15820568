// A program that has the updater's dialog code but not its dialog: making the window fails as it does on a
// machine that has no desktop to show it on. Its log tells how far it came; it does not end by itself.
#include "Updater/Dialog/UI.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int)
{
    const CUI ui(true, L"Update", L"Checking for updates...");
    return 0;
}
