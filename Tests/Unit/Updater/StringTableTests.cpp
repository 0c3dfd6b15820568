// The texts that people see, read from this program's own resources, which are the updater's. Whether they
// fit is measured in the dialog itself (DialogTests).
#include "Tests/Support/WideText.h"
#include "Updater/Language/Language.h"
#include "Updater/Language/StringTable.h"
#include "Updater/Resources/Resource.h"

#include <windows.h>

#include <doctest/doctest.h>

#include <set>
#include <vector>

using namespace LS::System;
using namespace std::string_literals;

namespace
{
const struct
{
    LANGID Id;
    const wchar_t* Locale;
    /// A character set that has only what its readers write.
    UINT CodePage;
} Languages[] = {
    {1028, L"zh-tw", 950},  {1031, L"de-de", 1252}, {1033, L"en-us", 20127}, {1034, L"es-es", 1252},
    {1036, L"fr-fr", 1252}, {1040, L"it-it", 1252}, {1042, L"ko-kr", 949},   {1046, L"pt-br", 1252},
    {2052, L"zh-cn", 936},  {3082, L"es-mx", 1252},
};

const wchar_t* const English[] = {
    L"Update",
    L"Checking for updates...",
    L"Downloading update...",
    L"Applying update...",
    L"There is an update available. Would you like to receive it?",
    L"Sorry, a check for updates is needed. Please connect to the Internet and try again.",
    L"An update is needed to show this web page. After the update, you will be returned to the web page.",
};

std::wstring Text(std::uint16_t id, LANGID language)
{
    return LoadStringTableText(::GetModuleHandleW(nullptr), id, language);
}

bool CanBeWrittenIn(UINT codePage, const std::wstring& text)
{
    char bytes[1000];
    BOOL replaced = FALSE;
    const int length =
        ::WideCharToMultiByte(codePage, WC_NO_BEST_FIT_CHARS, text.data(), static_cast<int>(text.size()),
                              bytes, sizeof(bytes), nullptr, &replaced);
    return length > 0 && !replaced;
}
} // namespace

TEST_CASE("every text is there in every language, as its readers write it")
{
    for (const auto& language : Languages)
    {
        CAPTURE(language.Locale);
        const auto chosen = MakeRef<CLanguage>(language.Locale);
        CHECK(chosen->LanguageId() == language.Id);
        std::set<std::wstring> different;
        for (std::uint16_t id = IDS_TITLE; id <= IDS_UPDATE_NOTICE; ++id)
        {
            const std::wstring text = Text(id, language.Id);
            CAPTURE(text);
            CHECK(chosen->GetText(id) == text);
            different.insert(text);
            CHECK((text == English[id - IDS_TITLE]) ==
                  (language.Id == 1033 || (language.Id == 1031 && id == IDS_TITLE)));
            CHECK(CanBeWrittenIn(language.CodePage, text));
            const bool running = id == IDS_CHECKING || id == IDS_DOWNLOADING || id == IDS_APPLYING;
            CHECK((text.size() > 3 && text.substr(text.size() - 3) == L"...") == running);
        }
        CHECK(different.size() == 7);
    }
    // Readers of the two kinds of Spanish, and of Chinese, get texts of their own.
    for (const auto& [one, other] : {std::pair<LANGID, LANGID>{1034, 3082}, {1028, 2052}})
        CHECK(Text(IDS_UPDATE_NOTICE, one) != Text(IDS_UPDATE_NOTICE, other));
    CHECK(Text(IDS_UPDATE_PROMPT, 1036).find(L"recevoir\u00A0?") != std::wstring::npos);
}

TEST_CASE("a missing text is empty")
{
    for (const std::uint16_t id : {0, 1, 15, 16, 100, 108, 111, 112, 117, 65535})
        CHECK(Text(id, 1033).empty());
    // No language stands in for another.
    for (const LANGID language : {0x0409 + 0x400, 0x0007, 0x080A, 0x0416 + 0x400, 0x0411, 0xFFFF})
        CHECK(Text(IDS_TITLE, language).empty());
}

TEST_CASE("a damaged block is read no further than it goes")
{
    const std::wstring whole = L"\x1"
                               L"a\x0\x3"
                               L"bcd"s +
                               std::wstring(12, L'\0') +
                               L"\x2"
                               L"yz";
    const struct
    {
        std::wstring Block;
        std::uint32_t Entry;
        const wchar_t* Text;
    } table[] = {
        {whole, 0, L"a"},
        {whole, 1, L""},
        {whole, 2, L"bcd"},
        {whole, 14, L""},
        {whole, 15, L"yz"},
        {whole + L"\x1"
                 L"b",
         16, L""},
        {whole, 0xFFFFFFFF, L""},
        {whole.substr(0, 6), 2, L""},
        {whole.substr(0, 7), 2, L"bcd"},
        {whole.substr(0, whole.size() - 1), 15, L""},
        {L"\xFFFF"
         L"abc",
         0, L""},
        {L"\xFFFF"
         L"abc",
         1, L""},
        {L"", 0, L""},
        {L"\x0"s, 0, L""},
        {L"\x0"s, 1, L""},
    };
    for (const auto& row : table)
    {
        CAPTURE(row.Block);
        CAPTURE(row.Entry);
        const std::vector<wchar_t> exact(row.Block.begin(), row.Block.end());
        CHECK(StringTableEntry(exact.data(), exact.size(), row.Entry) == row.Text);
    }
}
