#include "Updater/Language/LocaleMapping.h"

namespace
{
constexpr LANGID ChineseTraditional = 1028;
constexpr LANGID German = 1031;
constexpr LANGID EnglishUnitedStates = 1033;
constexpr LANGID SpanishTraditionalSort = 1034;
constexpr LANGID French = 1036;
constexpr LANGID Italian = 1040;
constexpr LANGID Korean = 1042;
constexpr LANGID PortugueseBrazil = 1046;
constexpr LANGID ChineseSimplified = 2052;
constexpr LANGID SpanishModernSort = 3082;

/// Chinese of the PRC or of Singapore. The same sublanguage numbers mean something else with other languages
/// (2 is also British English), so the language itself counts too.
bool ReadsSimplified(LANGID language)
{
    const WORD sublanguage = SUBLANGID(language);
    return PRIMARYLANGID(language) == LANG_CHINESE &&
           (sublanguage == SUBLANG_CHINESE_SIMPLIFIED || sublanguage == SUBLANG_CHINESE_SINGAPORE);
}
} // namespace

LanguageChoice LanguageForLocale(std::wstring_view locale, bool chosenExplicitly, LANGID interfaceLanguage)
{
    const std::wstring_view prefix = locale.substr(0, locale.find(L'-'));
    if (locale == L"es-es")
        return {SpanishTraditionalSort, L"es-es"};
    if (prefix == L"de")
        return {German, L"de"};
    if (prefix == L"es")
        return {SpanishModernSort, L"es"};
    if (prefix == L"ca" || prefix == L"eu" || prefix == L"gl")
        return {SpanishTraditionalSort, L"es-es"};
    if (prefix == L"fr")
        return {French, L"fr"};
    if (prefix == L"it")
        return {Italian, L"it"};
    if (prefix == L"ko")
        return {Korean, L"ko"};
    if (prefix == L"pt")
        return {PortugueseBrazil, L"pt-br"};
    if (prefix == L"zh")
    {
        const bool simplified = chosenExplicitly ? locale == L"zh-cn" : ReadsSimplified(interfaceLanguage);
        return simplified ? LanguageChoice{ChineseSimplified, L"zh-cn"}
                          : LanguageChoice{ChineseTraditional, L"zh"};
    }
    return {EnglishUnitedStates, L"en-us"};
}
