#pragma once

#include "Ls/System/Object.h"
#include "Ls/System/ReferenceCounted.h"
#include "Ls/System/Win32/UniqueHandle.h"

#include <cstdint>
#include <string>

namespace LS::System::Win32
{
/// An open registry key, named by one path whose first component is the root in long or short form
/// ("HKEY_LOCAL_MACHINE\..." or "HKLM\...", any case). Failures are thrown as CException.
class CRegistryKey : public CReferenceCounted, public CObject
{
public:
    /// Read only: the key must exist. Otherwise it is made when missing, with full access.
    CRegistryKey(std::wstring path, bool readOnly);

    /// REG_SZ or REG_EXPAND_SZ (unexpanded); defaultText when the value is missing.
    std::wstring GetString(const std::wstring& name, const std::wstring& defaultText) const;
    /// Writes REG_SZ.
    void SetString(const std::wstring& name, const std::wstring& text) const;
    /// REG_DWORD; defaultValue when the value is missing.
    std::uint32_t GetUint32(const std::wstring& name, std::uint32_t defaultValue) const;
    bool ValueExists(const std::wstring& name) const noexcept;

    /// Never throws: false for an unknown root, true for a bare root.
    static bool KeyExists(const std::wstring& path) noexcept;

private:
    std::wstring m_Path;
    bool m_ReadOnly;
    CRegistryKeyHandle m_Key;
};
} // namespace LS::System::Win32
