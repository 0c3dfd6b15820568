#pragma once

#include <map>
#include <string>

/// The contents of an INI file, read whole once. One thread at a time.
class CIniFile
{
public:
    /// Replaces what is held by the contents of the file (a full path; a bare name would be looked for in the
    /// Windows folder). Lists of more than 1298 characters and values of more than 518 are cut. Throws
    /// CException "File does not exist in CIniFile::LoadFile"; nothing is held then.
    void LoadFile(const std::wstring& path);

    /// Names are compared exactly, as the system returned them.
    bool ContainsSectionName(const std::wstring& section) const;
    /// Throws CException "Desired value not found".
    std::wstring GetValue(const std::wstring& section, const std::wstring& key) const;

private:
    using Section = std::map<std::wstring, std::wstring>;

    std::map<std::wstring, Section> m_Sections;
};
