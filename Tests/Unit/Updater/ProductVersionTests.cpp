#include "Ls/System/Io/Path.h"
#include "Ls/System/Win32/UniqueHandle.h"
#include "Tests/Support/TempFolder.h"
#include "Updater/Query/ProductVersion.h"

#include <windows.h>

#include <doctest/doctest.h>

#include <cstring>
#include <vector>

namespace
{
/// A version resource that holds only its root block.
std::string VersionResource(const VS_FIXEDFILEINFO& info)
{
    const std::wstring name = L"VS_VERSION_INFO";
    std::string bytes(6 + (name.size() + 1) * sizeof(wchar_t), '\0');
    std::memcpy(&bytes[6], name.c_str(), (name.size() + 1) * sizeof(wchar_t));
    bytes.resize((bytes.size() + 3) / 4 * 4);
    bytes.append(reinterpret_cast<const char*>(&info), sizeof(info));
    const WORD head[] = {static_cast<WORD>(bytes.size()), sizeof(info), 0};
    std::memcpy(bytes.data(), head, sizeof(head));
    return bytes;
}

VS_FIXEDFILEINFO Info(DWORD productHigh, DWORD productLow)
{
    VS_FIXEDFILEINFO info = {};
    info.dwSignature = VS_FFI_SIGNATURE;
    info.dwStrucVersion = VS_FFI_STRUCVERSION;
    info.dwFileVersionMS = 0x00090009; // another one: the product's counts
    info.dwProductVersionMS = productHigh;
    info.dwProductVersionLS = productLow;
    return info;
}

/// Makes that the file's only resource.
void SetResource(const std::wstring& path, std::string bytes, const wchar_t* type = MAKEINTRESOURCEW(16))
{
    const HANDLE update = ::BeginUpdateResourceW(path.c_str(), TRUE);
    REQUIRE(update);
    REQUIRE(::UpdateResourceW(update, type, MAKEINTRESOURCEW(1), 0x409, bytes.data(),
                              static_cast<DWORD>(bytes.size())));
    REQUIRE(::EndUpdateResourceW(update, FALSE));
}
} // namespace

TEST_CASE("the version is the product version of the file's resource, or 0")
{
    const Tests::CTempFolder folder(L"\u0424\u0430\u0439\u043B");
    const std::wstring path = folder.Path(L"client.exe");
    std::filesystem::copy_file(LS::System::IO::ProgramPath(), path);
    Tests::WriteBytes(folder.Path(L"text.exe"), "not a program");
    SetResource(path, "no version", MAKEINTRESOURCEW(10));
    for (const std::wstring& none :
         {std::wstring(), folder.Path(L"missing.exe"), folder.Path(), folder.Path(L"text.exe"), path})
        CHECK(FileProductVersion(none) == "0");

    VS_FIXEDFILEINFO foreign = Info(0x00020001, 7);
    foreign.dwSignature = 1;
    const std::string good = VersionResource(Info(0x00020001, 7));
    const std::pair<std::string, std::string> table[] = {
        {good, "2.1.0.7"},
        {VersionResource(Info(0xFFFFFFFF, 0xFFFF0000)), "65535.65535.65535.0"},
        {VersionResource(foreign), "0"},
        {good.substr(0, 3), "0"},
        {std::string(200, '\xFF'), "0"},
    };
    for (const auto& [resource, version] : table)
    {
        SetResource(path, resource);
        CHECK(FileProductVersion(path) == version);
    }
}

TEST_CASE("BlueStacks' version is the registered one, or empty")
{
    const wchar_t* const keyPath = L"SOFTWARE\\BlueStacks";
    RunOptions options;
    options.IsBlueStacks = true;
    options.FromFilePath = LS::System::IO::ProgramPath();
    ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, keyPath);
    CHECK(GetProductVersion(options) == "");

    LS::System::Win32::CRegistryKeyHandle key;
    REQUIRE(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, keyPath, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                              key.Receive(), nullptr) == ERROR_SUCCESS);
    CHECK(GetProductVersion(options) == "");
    const wchar_t version[] = L"4.2.\u00E9";
    ::RegSetValueExW(key.Get(), L"Version", 0, REG_SZ, reinterpret_cast<const BYTE*>(version),
                     sizeof(version));
    CHECK(GetProductVersion(options) == "4.2.\xC3\xA9");
    ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, keyPath);
}
