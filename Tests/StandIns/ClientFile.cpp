// Stands in for the client program that an updater replaces; only its version resource is read.
#include <windows.h>

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int)
{
    return 0;
}
