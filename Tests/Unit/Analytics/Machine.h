#pragma once

#include "Tests/Support/TempFolder.h"
#include "Tests/Support/TemporaryValue.h"

#include <list>

/// What a run finds on its machine, as the tests want it: online, with folders of its own for the application
/// data ("AppData", "Local AppData" and "Common AppData"). The registry is put back at the end.
struct CMachine
{
    CMachine()
    {
        Set(L"Software\\Larkspur", L"ConnectionStatusOverride", L"\1", REG_DWORD);
        for (const auto& [root, name] : {std::pair{HKEY_CURRENT_USER, L"AppData"},
                                         {HKEY_CURRENT_USER, L"Local AppData"},
                                         {HKEY_LOCAL_MACHINE, L"Common AppData"}})
        {
            std::filesystem::create_directories(Path(name));
            Values.emplace_front(
                root, L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders", name,
                Path(name), REG_EXPAND_SZ);
        }
    }
    void Set(const wchar_t* key, const wchar_t* name, const std::wstring& text, DWORD type = REG_SZ)
    {
        Values.emplace_front(HKEY_LOCAL_MACHINE, key, name, text, type);
    }
    std::wstring Path(const std::wstring& name) const { return Folder.Path(name); }

    Tests::CTempFolder Folder{L"ls machine"};
    std::list<Tests::CTemporaryValue> Values; // the newest is put back first
};
