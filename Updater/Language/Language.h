#pragma once

#include "Ls/System/Object.h"
#include "Ls/System/ReferenceCounted.h"

#include <cstdint>
#include <string>

/// The language of a run, chosen once, and the program's texts in it. Immutable: any thread.
class CLanguage : public LS::System::CReferenceCounted, public LS::System::CObject
{
public:
    /// Takes the first there is of: locale (of "/locale="), the user's setting, the user's location. Sources
    /// that are missing or unreadable are passed over; English is the last resort.
    explicit CLanguage(const std::wstring& locale);

    /// Windows' number of the language, one of those in the string table.
    std::uint32_t LanguageId() const noexcept { return m_LanguageId; }

    /// The text of a string table's id (see Resources/Resource.h); empty when there is none.
    std::wstring GetText(std::uint16_t id) const;

private:
    std::uint32_t m_LanguageId;
};
