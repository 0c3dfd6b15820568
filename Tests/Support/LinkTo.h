#pragma once

#include "Tests/Support/StartProcess.h"
#include "Tests/Support/WaitFor.h"

#include <filesystem>

namespace Tests
{
/// Makes a link to a folder. Wine makes none itself, but shows one of the system below as what it is: its
/// path isn't the final one.
inline void LinkTo(const std::filesystem::path& folder, const std::filesystem::path& link)
{
    using Function = char*(CDECL*)(LPCWSTR);
    const auto unixPath = reinterpret_cast<Function>(
        ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name"));
    if (!unixPath)
        std::filesystem::create_directory_symlink(folder, link);
    else
    {
        const std::filesystem::path from(unixPath(folder.c_str())), to(unixPath(link.parent_path().c_str()));
        StartProcess(L"\\\\?\\unix\\bin\\ln -s \"" + from.wstring() + L"\" \"" + to.wstring() + L"/" +
                     link.filename().wstring() + L"\"");
    }
    if (!WaitFor([&] { return ::GetFileAttributesW(link.c_str()) != INVALID_FILE_ATTRIBUTES; }, 20000))
        throw std::runtime_error("no link");
}
} // namespace Tests
