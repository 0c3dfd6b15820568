#include "Kit/Machine.h"

#include "Kit/TrustedPublishers.h"
#include "Ls/System/String/Convert.h"
#include "Ls/System/String/Printf.h"
#include "Tests/Support/StartProcess.h"

#include <shlobj.h>

#include <stdexcept>

namespace fs = std::filesystem;
using LS::System::Win32::CRegistryKeyHandle;

namespace
{
constexpr wchar_t StatePath[] = L"Software\\LsTestKit";
constexpr wchar_t Kept[] = L".kept-by-test-kit";

struct Key
{
    HKEY Root;
    std::wstring Path;
    REGSAM View = 0;
};

bool Is64BitWindows()
{
    BOOL wow = FALSE;
    ::IsWow64Process(::GetCurrentProcess(), &wow);
    return sizeof(void*) == 8 || wow;
}

/// Those of the machine only for an administrator: without one no test comes to them.
std::vector<Key> Keys()
{
    std::vector<Key> keys = {{HKEY_CURRENT_USER, L"Software\\Larkspur"},
                             {HKEY_CURRENT_USER, L"Software\\LsTests"}};
    if (Tests::IsWine()) // Windows has no such key, and the tests make none there
        keys.push_back({HKEY_CURRENT_USER, L"Software\\Wine\\AppDefaults"});
    if (!Tests::IsElevated())
        return keys;
    std::vector<REGSAM> views = {KEY_WOW64_32KEY};
    if (Is64BitWindows())
        views.push_back(KEY_WOW64_64KEY);
    for (const REGSAM view : views)
        for (const wchar_t* path :
             {L"SOFTWARE\\Larkspur", L"SOFTWARE\\BlueStacks", L"SOFTWARE\\LsSamplePackage",
              L"SOFTWARE\\Classes\\CLSID\\{3540DE9F-C4F7-4A44-B371-369C08D0A5B0}",
              L"SOFTWARE\\Classes\\CLSID\\{1548BD36-362D-43B0-BABA-C73C52DDADDB}",
              L"SOFTWARE\\Classes\\Interface\\{F349007D-4D30-41F9-89A3-60EC4EEE1FCD}",
              L"SOFTWARE\\Classes\\Interface\\{68CFA01F-33BD-40FA-BE18-29930A1BE242}",
              L"SOFTWARE\\Classes\\TypeLib\\{6C0E8B55-5D0B-4E0E-9B0A-5B3C0C2C7F11}"})
            keys.push_back({HKEY_LOCAL_MACHINE, path, view});
    return keys;
}

struct Value
{
    HKEY Root;
    std::wstring Key, Name;
};

/// "Shell Folders" is where the system notes what it has found in "User Shell Folders".
std::vector<Value> Values()
{
    const std::wstring version = L"Software\\Microsoft\\Windows\\CurrentVersion";
    std::vector<Value> values;
    for (const wchar_t* name : {L"\\Explorer\\User Shell Folders", L"\\Explorer\\Shell Folders"})
    {
        values.push_back({HKEY_CURRENT_USER, version + name, L"AppData"});
        values.push_back({HKEY_CURRENT_USER, version + name, L"Local AppData"});
        if (Tests::IsElevated())
            values.push_back({HKEY_LOCAL_MACHINE, version + name, L"Common AppData"});
    }
    if (Tests::IsElevated() && Tests::IsWine())
        for (const wchar_t* name : {L"ProgramFilesDir", L"ProgramFilesDir (x86)"})
            values.push_back({HKEY_LOCAL_MACHINE, version, name});
    return values;
}

CRegistryKeyHandle Open(const Key& key, bool make = false)
{
    CRegistryKeyHandle handle;
    if (make)
        ::RegCreateKeyExW(key.Root, key.Path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | key.View, nullptr,
                          handle.Receive(), nullptr);
    else
        ::RegOpenKeyExW(key.Root, key.Path.c_str(), 0, KEY_ALL_ACCESS | key.View, handle.Receive());
    return handle;
}

void Delete(const Key& key)
{
    if (const CRegistryKeyHandle handle = Open(key))
        ::RegDeleteTreeW(handle.Get(), nullptr);
    ::RegDeleteKeyExW(key.Root, key.Path.c_str(), key.View, 0);
}

/// Where the key or value of that number is kept: "Key3", "Value0".
Key State(const wchar_t* what = L"", std::size_t number = 0)
{
    return {HKEY_CURRENT_USER, what[0] ? StatePath + (L"\\" + std::wstring(what)) + std::to_wstring(number)
                                       : std::wstring(StatePath)};
}

/// A value copied from one key to the other; deleted there when the first lacks it.
void CopyValue(HKEY from, const std::wstring& name, HKEY to)
{
    DWORD type = 0, size = 0;
    ::RegDeleteValueW(to, name.c_str());
    if (::RegQueryValueExW(from, name.c_str(), nullptr, &type, nullptr, &size) != ERROR_SUCCESS)
        return;
    std::string bytes(size, '\0');
    ::RegQueryValueExW(from, name.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(bytes.data()), &size);
    ::RegSetValueExW(to, name.c_str(), 0, type, reinterpret_cast<const BYTE*>(bytes.data()), size);
}

/// Each folder that a "Larkspur" may come into, without the machine's own unless the process may change it.
std::vector<std::wstring> Folders()
{
    std::vector<std::wstring> folders;
    for (const int id : {CSIDL_APPDATA, CSIDL_LOCAL_APPDATA, CSIDL_COMMON_APPDATA})
    {
        wchar_t path[MAX_PATH] = {};
        if ((id != CSIDL_COMMON_APPDATA || Tests::IsElevated()) &&
            ::SHGetFolderPathW(nullptr, id, nullptr, SHGFP_TYPE_CURRENT, path) == S_OK)
            folders.push_back(path + std::wstring(L"\\Larkspur"));
    }
    return folders;
}

std::wstring Text(HKEY key, const std::wstring& name)
{
    wchar_t text[1024] = {};
    DWORD size = sizeof(text);
    ::RegGetValueW(key, nullptr, name.c_str(), RRF_RT_REG_SZ, nullptr, text, &size);
    return text;
}

void SetText(HKEY key, const std::wstring& name, const std::wstring& text)
{
    ::RegSetValueExW(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                     static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

void PutFolderBack(const std::wstring& folder, bool wasThere)
{
    std::error_code failed;
    if (wasThere && !fs::exists(folder + Kept)) // it never came to be moved
        return;
    if (fs::exists(folder))
        fs::remove_all(folder, failed);
    if (!failed && wasThere && !::MoveFileW((folder + Kept).c_str(), folder.c_str()))
        failed = std::error_code(static_cast<int>(::GetLastError()), std::system_category());
    if (failed)
        throw std::runtime_error("a program uses " + LS::WideToAnsi(folder));
}

void PutValuesBack()
{
    const auto values = Values();
    for (std::size_t i = 0; i < values.size(); ++i)
        CopyValue(Open(State(L"Value", i)).Get(), values[i].Name,
                  Open({values[i].Root, values[i].Key}).Get());
}

/// A test that was ended in the middle leaves its package installed.
void Uninstall()
{
    for (const REGSAM view : {KEY_WOW64_32KEY, KEY_WOW64_64KEY})
        if (Open({HKEY_LOCAL_MACHINE, L"SOFTWARE\\LsSamplePackage", view}))
        {
            const auto msiexec =
                Tests::StartProcess(L"msiexec.exe /x {8D0E6C52-3B51-4C55-9C0B-0B8D5A4B8E01} /qn");
            ::WaitForSingleObject(msiexec.Get(), 120000);
            return;
        }
}
} // namespace

void Machine::SetAside(const std::wstring& temporary)
{
    const auto keys = Keys();
    const auto values = Values();
    Delete(State());
    const CRegistryKeyHandle state = Open(State(), true);
    for (std::size_t i = 0; i < keys.size(); ++i)
        if (const CRegistryKeyHandle key = Open(keys[i]))
            ::RegCopyTreeW(key.Get(), nullptr, Open(State(L"Key", i), true).Get());
    for (std::size_t i = 0; i < values.size(); ++i)
        CopyValue(Open({values[i].Root, values[i].Key}).Get(), values[i].Name,
                  Open(State(L"Value", i), true).Get());
    const auto folders = Folders(); // behind the values, since asking changes some
    for (const std::wstring& folder : folders)
        SetText(state.Get(), folder, fs::exists(folder) ? L"there" : L"missing");
    SetText(state.Get(), L"Temporary", temporary);
    // From here on the copies count.
    SetText(state.Get(), L"Complete", Tests::IsElevated() ? L"administrator" : L"user");
    ::RegFlushKey(state.Get());
    for (const Key& key : keys)
        Delete(key);
    for (const std::wstring& folder : folders)
        if (fs::exists(folder) && !::MoveFileW(folder.c_str(), (folder + Kept).c_str()))
        {
            PutBack();
            throw std::runtime_error("a program uses " + LS::WideToAnsi(folder) + ": end it first");
        }
}

void Machine::PutBack()
{
    const CRegistryKeyHandle state = Open(State());
    const std::wstring by = state ? Text(state.Get(), L"Complete") : L"";
    if (by.empty()) // nothing was changed yet
        return Delete(State());
    if (by == L"administrator" && !Tests::IsElevated())
        throw std::runtime_error("an earlier run was broken off: run this once more as administrator");
    if (Tests::IsElevated())
    {
        Tests::TrustPublishers(false);
        Uninstall();
    }
    const auto keys = Keys();
    for (std::size_t i = keys.size(); i-- > 0;) // backwards: two views may show the same key
    {
        Delete(keys[i]);
        if (const CRegistryKeyHandle kept = Open(State(L"Key", i)))
            ::RegCopyTreeW(kept.Get(), nullptr, Open(keys[i], true).Get());
    }
    PutValuesBack();
    for (const std::wstring& folder : Folders())
        if (const std::wstring was = Text(state.Get(), folder); !was.empty())
            PutFolderBack(folder, was == L"there");
    PutValuesBack(); // once more: the system has noted the folders' paths
    std::error_code ignored;
    fs::remove_all(Text(state.Get(), L"Temporary"), ignored);
    Delete(State());
}

std::string Machine::Describe()
{
    const HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
    RTL_OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    const auto getVersion =
        reinterpret_cast<LONG(WINAPI*)(RTL_OSVERSIONINFOW*)>(::GetProcAddress(ntdll, "RtlGetVersion"));
    const auto wine = reinterpret_cast<const char* (*)()>(::GetProcAddress(ntdll, "wine_get_version"));
    getVersion(&version);
    const CRegistryKeyHandle key =
        Open({HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion",
              Is64BitWindows() ? REGSAM(KEY_WOW64_64KEY) : 0});
    DWORD revision = 0, size = sizeof(revision), proxy = 0, proxySize = sizeof(proxy);
    ::RegGetValueW(key.Get(), nullptr, L"UBR", RRF_RT_REG_DWORD, nullptr, &revision, &size);
    ::RegGetValueW(HKEY_CURRENT_USER, L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings",
                   L"ProxyEnable", RRF_RT_REG_DWORD, nullptr, &proxy, &proxySize);
    wchar_t locale[LOCALE_NAME_MAX_LENGTH] = {};
    ::GetUserDefaultLocaleName(locale, LOCALE_NAME_MAX_LENGTH);
    return LS::Printf("Windows %u.%u, build %u.%u, %d-bit", version.dwMajorVersion, version.dwMinorVersion,
                      version.dwBuildNumber, revision, Is64BitWindows() ? 64 : 32) +
           (wine ? std::string(", which is Wine ") + wine() : "") + "\n" +
           (Tests::IsElevated() ? "elevated" : "not elevated") + ", code page " + std::to_string(::GetACP()) +
           ", locale " + LS::WideToAnsi(locale) + (proxy ? ", with a proxy" : "") + "\n";
}
