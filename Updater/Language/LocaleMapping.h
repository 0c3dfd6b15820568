#pragma once

#include <windows.h>

#include <string>
#include <string_view>

/// A language that the program has texts in.
struct LanguageChoice
{
    LANGID LanguageId;
    /// The locale that stands for the language.
    std::wstring Locale;
};

/// The language for a locale: a lower-case tag such as "en-us" (compared exactly), or any text, which then
/// means English. A "zh" that nobody chose explicitly is decided by the user's interface language.
LanguageChoice LanguageForLocale(std::wstring_view locale, bool chosenExplicitly, LANGID interfaceLanguage);
