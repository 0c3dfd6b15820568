#include "Updater/Settings/IniFile.h"

#include "Ls/System/Io/File.h"
#include "Ls/System/ThrowException.h"
#include "Ls/System/Util/Log.h"

#include <windows.h>

#include <string_view>
#include <vector>

namespace
{
constexpr DWORD ListSize = 1299;
constexpr DWORD ValueSize = 519;

/// The names of a list as the system fills it: each ends with a null, another null ends the list. length is
/// what the system returned, without that last null.
std::vector<std::wstring> SplitList(const wchar_t* list, DWORD length)
{
    std::vector<std::wstring> names;
    std::wstring_view rest(list, length);
    while (!rest.empty())
    {
        const std::wstring_view name = rest.substr(0, rest.find(L'\0'));
        rest.remove_prefix(name.size() < rest.size() ? name.size() + 1 : name.size());
        if (!name.empty())
            names.emplace_back(name);
    }
    return names;
}
} // namespace

void CIniFile::LoadFile(const std::wstring& path)
{
    using namespace LS::System;

    m_Sections.clear();
    if (!IO::CFile::Exists(path))
    {
        LS_LOG_FAILURE(L"CIniFile::LoadFile() : File does not exist : throwing out");
        ThrowException(CException(L"File does not exist in CIniFile::LoadFile", LS_HERE));
        return;
    }

    wchar_t list[ListSize];
    wchar_t value[ValueSize];
    const DWORD sectionsLength = ::GetPrivateProfileSectionNamesW(list, ListSize, path.c_str());
    for (const std::wstring& name : SplitList(list, sectionsLength))
    {
        Section& section = m_Sections[name];
        const DWORD keysLength =
            ::GetPrivateProfileStringW(name.c_str(), nullptr, L"", list, ListSize, path.c_str());
        for (const std::wstring& key : SplitList(list, keysLength))
        {
            const DWORD length =
                ::GetPrivateProfileStringW(name.c_str(), key.c_str(), L"", value, ValueSize, path.c_str());
            section[key].assign(value, length);
        }
    }
}

bool CIniFile::ContainsSectionName(const std::wstring& section) const
{
    const bool contains = m_Sections.contains(section);
    LS_LOG_INFO(L"CIniFile::ContainsSectionName() : Returning : %s", contains ? L"TRUE" : L"FALSE");
    return contains;
}

std::wstring CIniFile::GetValue(const std::wstring& section, const std::wstring& key) const
{
    using namespace LS::System;

    const auto sectionFound = m_Sections.find(section);
    if (sectionFound != m_Sections.end())
    {
        const auto valueFound = sectionFound->second.find(key);
        if (valueFound != sectionFound->second.end())
            return valueFound->second;
    }
    LS_LOG_FAILURE(L"CIniFile::GetValue() : Desired value not found, throw out");
    ThrowException(CException(L"Desired value not found", LS_HERE));
    return {};
}
