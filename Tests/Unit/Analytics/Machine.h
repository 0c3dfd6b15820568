#pragma once

#include "Tests/Support/TempFolder.h"

#include <windows.h>

#include <string>
#include <tuple>
#include <vector>

/// What a run finds on its machine, as the tests want it: online, with folders of its own for the application
/// data: "Roaming", "Local" and "Common". The registry is put back at the end.
class CMachine
{
public:
    CMachine()
    {
        SetOnline(true);
        const std::pair<HKEY, const wchar_t*> folders[] = {{HKEY_CURRENT_USER, L"AppData"},
                                                           {HKEY_CURRENT_USER, L"Local AppData"},
                                                           {HKEY_LOCAL_MACHINE, L"Common AppData"}};
        for (const auto& [root, name] : folders)
        {
            wchar_t old[MAX_PATH] = L"";
            DWORD size = sizeof(old);
            ::RegGetValueW(root, Folders, name, RRF_RT_ANY | RRF_NOEXPAND, nullptr, old, &size);
            const wchar_t* const folder = m_Old.empty()       ? L"Roaming"
                                          : m_Old.size() == 1 ? L"Local"
                                                              : L"Common";
            m_Old.emplace_back(root, name, old);
            std::filesystem::create_directories(Path(folder));
            SetText(root, Folders, name, Path(folder));
        }
    }
    CMachine(const CMachine&) = delete;
    ~CMachine()
    {
        for (const auto& [root, name, old] : m_Old)
            SetText(root, Folders, name, old);
        ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, Debugging);
        ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, L"Software\\Larkspur", L"ConnectionStatusOverride");
    }

    void SetOnline(bool online)
    {
        const DWORD number = online;
        ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, L"Software\\Larkspur", L"ConnectionStatusOverride", REG_DWORD,
                          &number, sizeof(number));
    }
    void SetDebug(const wchar_t* name, const std::wstring& text)
    {
        SetText(HKEY_LOCAL_MACHINE, Debugging, name, text);
    }

    std::wstring Path(const std::wstring& name) const { return m_Folder.Path(name); }

private:
    static constexpr wchar_t Debugging[] = L"SOFTWARE\\Larkspur\\Debugging";
    static constexpr wchar_t Folders[] =
        L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders";

    static void SetText(HKEY root, const wchar_t* key, const wchar_t* name, const std::wstring& text)
    {
        ::RegSetKeyValueW(root, key, name, REG_EXPAND_SZ, text.c_str(),
                          static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    }

    Tests::CTempFolder m_Folder{L"ls machine"};
    std::vector<std::tuple<HKEY, const wchar_t*, std::wstring>> m_Old;
};
