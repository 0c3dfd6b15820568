#pragma once

#include "Ls/System/Win32/RegistryKey.h"
#include "Tests/Support/TempFolder.h"

#include <windows.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// What a run finds on its machine, as the tests want it: online, with folders of its own for the application
/// data. The registry is put back at the end.
class CMachine
{
public:
    CMachine()
    {
        SetOnline(true);
        SetFolder(HKEY_CURRENT_USER, L"AppData", L"Roaming");
        SetFolder(HKEY_CURRENT_USER, L"Local AppData", L"Local");
        SetFolder(HKEY_LOCAL_MACHINE, L"Common AppData", L"Common");
    }
    CMachine(const CMachine&) = delete;
    ~CMachine()
    {
        for (auto value = m_Old.rbegin(); value != m_Old.rend(); ++value)
        {
            const auto key = Open(value->Root, value->Key);
            if (value->Type == REG_NONE)
                ::RegDeleteValueW(key.Get(), value->Name.c_str());
            else
                ::RegSetValueExW(key.Get(), value->Name.c_str(), 0, value->Type, value->Bytes.data(),
                                 static_cast<DWORD>(value->Bytes.size()));
        }
    }

    void SetOnline(bool online)
    {
        const DWORD number = online;
        Set(HKEY_LOCAL_MACHINE, L"Software\\Larkspur", L"ConnectionStatusOverride", REG_DWORD, &number,
            sizeof(number));
    }
    void SetDebug(const wchar_t* name, const std::wstring& text)
    {
        Set(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Larkspur\\Debugging", name, REG_SZ, text.c_str(),
            static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    }

    /// "Roaming", "Local" or "Common", and what lies below.
    std::wstring Path(const std::wstring& name) const { return m_Folder.Path(name); }
    std::wstring Queue() const { return Path(L"Roaming\\Larkspur\\Analytics\\LSAnalytics.dat"); }

private:
    struct Value
    {
        HKEY Root;
        std::wstring Key, Name;
        DWORD Type;
        std::vector<BYTE> Bytes;
    };

    static LS::System::Win32::CRegistryKeyHandle Open(HKEY root, const std::wstring& path)
    {
        LS::System::Win32::CRegistryKeyHandle key;
        ::RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.Receive(), nullptr);
        return key;
    }
    void SetFolder(HKEY root, const wchar_t* name, const wchar_t* folder)
    {
        std::filesystem::create_directories(Path(folder));
        const std::wstring path = Path(folder);
        Set(root, L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders", name, REG_SZ,
            path.c_str(), static_cast<DWORD>((path.size() + 1) * sizeof(wchar_t)));
    }
    void Set(HKEY root, const std::wstring& path, const std::wstring& name, DWORD type, const void* bytes,
             DWORD size)
    {
        const auto key = Open(root, path);
        Value old{root, path, name, REG_NONE, std::vector<BYTE>(4096)};
        DWORD oldSize = static_cast<DWORD>(old.Bytes.size());
        if (::RegQueryValueExW(key.Get(), name.c_str(), nullptr, &old.Type, old.Bytes.data(), &oldSize) !=
            ERROR_SUCCESS)
            old.Type = REG_NONE;
        old.Bytes.resize(oldSize);
        m_Old.push_back(std::move(old));
        ::RegSetValueExW(key.Get(), name.c_str(), 0, type, static_cast<const BYTE*>(bytes), size);
    }

    Tests::CTempFolder m_Folder{L"ls machine"};
    std::vector<Value> m_Old;
};
