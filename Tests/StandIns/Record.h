#pragma once

#include <windows.h>

#include <shellapi.h>

#include <optional>
#include <string>
#include <vector>

namespace StandIns
{
inline std::wstring OwnPath()
{
    wchar_t path[1024] = {};
    ::GetModuleFileNameW(nullptr, path, 1024);
    return path;
}

inline std::vector<std::wstring> Arguments()
{
    int count = 0;
    wchar_t** texts = ::CommandLineToArgvW(::GetCommandLineW(), &count);
    std::vector<std::wstring> arguments(texts + 1, texts + count);
    ::LocalFree(texts);
    return arguments;
}

/// What follows the prefix in the first argument that begins with it.
inline std::optional<std::wstring> ValueOf(const std::vector<std::wstring>& arguments,
                                           const std::wstring& prefix)
{
    for (const std::wstring& argument : arguments)
    {
        if (argument.rfind(prefix, 0) == 0)
            return argument.substr(prefix.size());
    }
    return std::nullopt;
}

/// Writes how this program was started, as UTF-8 lines. The file appears under its name when it is whole, so
/// whoever sees it can read it.
inline void WriteRecord(const std::wstring& file, const std::wstring& more = {})
{
    wchar_t folder[1024] = {};
    ::GetCurrentDirectoryW(1024, folder);
    const std::wstring text = L"Path: " + OwnPath() + L"\nFolder: " + folder + L"\nProcessId: " +
                              std::to_wstring(::GetCurrentProcessId()) + L"\nCommandLine: " +
                              ::GetCommandLineW() + L"\n" + more;
    std::string bytes(text.size() * 3, '\0');
    bytes.resize(::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(),
                                       static_cast<int>(bytes.size()), nullptr, nullptr));

    const std::wstring unfinished = file + L".part";
    const HANDLE handle =
        ::CreateFileW(unfinished.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD written = 0;
    ::WriteFile(handle, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    ::CloseHandle(handle);
    // Someone may be reading the one before.
    for (int attempt = 0; attempt < 1000; ++attempt)
    {
        if (::MoveFileExW(unfinished.c_str(), file.c_str(), MOVEFILE_REPLACE_EXISTING))
            break;
        ::Sleep(10);
    }
}
} // namespace StandIns
