#pragma once

#include <windows.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

namespace Tests
{
/// A registry value that has this content, or is missing, until the end of the scope; then it is as it was.
class CTemporaryValue
{
public:
    /// The content is the text with its terminator, whatever the type: a text of one character is a REG_DWORD
    /// of its code.
    CTemporaryValue(HKEY root, std::wstring key, std::wstring name, const std::optional<std::wstring>& text,
                    DWORD type = REG_SZ) :
        CTemporaryValue(root, std::move(key), std::move(name))
    {
        Set(text ? std::optional(*text + L'\0') : std::nullopt, type);
    }
    CTemporaryValue(HKEY root, std::wstring key, std::wstring name, std::uint32_t number) :
        CTemporaryValue(root, std::move(key), std::move(name))
    {
        std::wstring content(sizeof(number) / sizeof(wchar_t), L'\0');
        std::memcpy(content.data(), &number, sizeof(number));
        Set(content, REG_DWORD);
    }
    CTemporaryValue(const CTemporaryValue&) = delete;
    ~CTemporaryValue() { Set(m_Old, m_OldType); }

private:
    CTemporaryValue(HKEY root, std::wstring key, std::wstring name) :
        m_Root(root), m_Key(std::move(key)), m_Name(std::move(name))
    {
        wchar_t old[1000] = L"";
        DWORD size = sizeof(old) - sizeof(wchar_t);
        const DWORD any = RRF_RT_ANY | RRF_NOEXPAND;
        if (::RegGetValueW(root, m_Key.c_str(), m_Name.c_str(), any, &m_OldType, old, &size) == ERROR_SUCCESS)
            m_Old.emplace(old, size / sizeof(wchar_t));
    }

    void Set(const std::optional<std::wstring>& content, DWORD type) const
    {
        ::RegDeleteKeyValueW(m_Root, m_Key.c_str(), m_Name.c_str());
        if (content)
            ::RegSetKeyValueW(m_Root, m_Key.c_str(), m_Name.c_str(), type, content->data(),
                              static_cast<DWORD>(content->size() * sizeof(wchar_t)));
    }

    const HKEY m_Root;
    const std::wstring m_Key, m_Name;
    DWORD m_OldType = REG_NONE;
    std::optional<std::wstring> m_Old;
};
} // namespace Tests
