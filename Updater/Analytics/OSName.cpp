#include "Updater/Analytics/OSName.h"

#include "Ls/System/String/Printf.h"

#include <windows.h>

std::wstring OSVersionText()
{
    OSVERSIONINFOEXW version{};
    version.dwOSVersionInfoSize = sizeof(version);
#ifdef _MSC_VER
#pragma warning(suppress : 4996) // what it says depends on the manifest, which is what the collector knows
#endif
    ::GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&version));
    return LS::Printf(L"%u.%u.%u.%u", version.dwMajorVersion, version.dwMinorVersion, version.dwBuildNumber,
                      static_cast<unsigned>(version.wServicePackMajor));
}

std::wstring OSNameOf(std::wstring_view version)
{
    struct KnownVersion
    {
        std::wstring_view Prefix;
        const wchar_t* Name;
    };
    constexpr KnownVersion KnownVersions[] = {
        {L"6.1.", L"Windows 7"}, {L"6.0.", L"Windows Vista"}, {L"5.", L"Windows XP"}};
    for (const KnownVersion& known : KnownVersions)
    {
        if (version.substr(0, known.Prefix.size()) == known.Prefix)
            return known.Name;
    }
    return L"Windows";
}
