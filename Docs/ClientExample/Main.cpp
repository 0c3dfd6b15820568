// A client that starts the updater and learns the outcome. This is the example of Client.md; the demo runs
// it.
//   ClientExample UPDATER PRODUCT OPTIONS...
// The options go to the updater as they are. The exit code is the updater's.
#include <windows.h>

#include <cstdio>
#include <string>

namespace
{
/// Made before the updater runs, so that nothing it sets is missed. Windows sets it back when a wait sees it.
HANDLE OutcomeEvent(const wchar_t* beginning, const std::wstring& product)
{
    return ::CreateEventW(nullptr, FALSE, FALSE, (beginning + product).c_str());
}

/// What follows the program's own name and the first two arguments, untouched: quotes matter to the updater.
const wchar_t* Options()
{
    const wchar_t* text = ::GetCommandLineW();
    for (int skipped = 0; skipped < 3; ++skipped)
    {
        for (bool quoted = false; *text && (quoted || *text != L' '); ++text)
            quoted = quoted != (*text == L'"');
        while (*text == L' ')
            ++text;
    }
    return text;
}
} // namespace

int wmain(int count, wchar_t** arguments)
{
    if (count < 3)
    {
        std::puts("usage: ClientExample UPDATER PRODUCT OPTIONS...");
        return 2;
    }
    const std::wstring updater = arguments[1], product = arguments[2];

    const HANDLE yes = OutcomeEvent(L"{FCBD3DBA-DB17-4EC5-999E-5CF45A722924}-UpdateYes-", product);
    const HANDLE deny = OutcomeEvent(L"{F7960AE2-D719-4F0D-9A10-B207F8DACB24}-UpdateDeny-", product);
    const HANDLE no = OutcomeEvent(L"{FCBD3DBA-DB17-4EC5-999E-5CF45A722924}-UpdateNo-", product);

    std::wstring commandLine = L"\"" + updater + L"\" \"/product=" + product + L"\" " + Options();
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES; // none: its log doesn't belong into this program's output
    PROCESS_INFORMATION process = {};
    if (!yes || !deny || !no ||
        !::CreateProcessW(updater.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                          &startup, &process))
    {
        std::printf("the updater can't be started, error %lu\n", ::GetLastError());
        return 2;
    }
    ::CloseHandle(process.hThread);

    // The process comes last: of what is set already the first in the list is seen first.
    const HANDLE all[] = {yes, deny, no, process.hProcess};
    for (DWORD seen; (seen = ::WaitForMultipleObjects(4, all, FALSE, INFINITE)) != WAIT_OBJECT_0 + 3;)
    {
        if (seen == WAIT_OBJECT_0)
            std::puts("UpdateYes: a patch is about to run; a client that is to be replaced ends now");
        else if (seen == WAIT_OBJECT_0 + 1)
            std::puts("UpdateDeny: the user doesn't want the update");
        else if (seen == WAIT_OBJECT_0 + 2)
            std::puts("UpdateNo: nothing was updated; the client goes on");
        else
            break; // the wait itself failed
        std::fflush(stdout);
    }

    DWORD code = 0;
    ::GetExitCodeProcess(process.hProcess, &code);
    std::printf("the updater has ended, exit code %lu\n", code);
    for (const HANDLE handle : all)
        ::CloseHandle(handle);
    return static_cast<int>(code);
}
