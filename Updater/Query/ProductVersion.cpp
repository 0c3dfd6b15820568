#include "Updater/Query/ProductVersion.h"

#include "Ls/System/String/Convert.h"
#include "Ls/System/String/Printf.h"
#include "Ls/System/Win32/RegistryKey.h"

#include <windows.h>

#include <cstring>
#include <vector>

using LS::System::Win32::CRegistryKey;

namespace
{
std::string BlueStacksVersion()
{
    const std::wstring keyPath = L"HKEY_LOCAL_MACHINE\\SOFTWARE\\BlueStacks";
    if (!CRegistryKey::KeyExists(keyPath))
        return {};
    return LS::WideToAnsi(CRegistryKey(keyPath, true).GetString(L"Version", L""));
}
} // namespace

std::string GetProductVersion(const RunOptions& options)
{
    return options.IsBlueStacks ? BlueStacksVersion() : FileProductVersion(options.FromFilePath);
}

std::string FileProductVersion(const std::wstring& path)
{
    const char* const unknown = "0";
    DWORD ignored = 0;
    const DWORD size = path.empty() ? 0 : ::GetFileVersionInfoSizeW(path.c_str(), &ignored);
    if (size == 0)
        return unknown;
    std::vector<char> resource(size);
    void* root = nullptr;
    UINT rootSize = 0;
    if (!::GetFileVersionInfoW(path.c_str(), 0, size, resource.data()) ||
        !::VerQueryValueW(resource.data(), L"\\", &root, &rootSize) || rootSize < sizeof(VS_FIXEDFILEINFO))
        return unknown;
    // The resource's own lengths are the file's word: the block may not reach beyond what was read.
    const auto offset = static_cast<std::size_t>(static_cast<const char*>(root) - resource.data());
    if (offset > size || size - offset < sizeof(VS_FIXEDFILEINFO))
        return unknown;

    VS_FIXEDFILEINFO info;
    std::memcpy(&info, root, sizeof(info));
    if (info.dwSignature != VS_FFI_SIGNATURE)
        return unknown;
    return LS::Printf("%ld.%ld.%ld.%ld", static_cast<long>(HIWORD(info.dwProductVersionMS)),
                      static_cast<long>(LOWORD(info.dwProductVersionMS)),
                      static_cast<long>(HIWORD(info.dwProductVersionLS)),
                      static_cast<long>(LOWORD(info.dwProductVersionLS)));
}
