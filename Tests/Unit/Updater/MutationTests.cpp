// What comes from outside, changed at random a hundred thousand times each: no crash, no hang, and what is
// always true of the results.
#include "Ls/System/Io/Path.h"
#include "Updater/Fetch/PatchPath.h"
#include "Updater/Launch/LaunchCommands.h"
#include "Updater/Publisher/PublisherName.h"
#include "Updater/Query/UpdateAnswer.h"
#include "Updater/Run/RunOptions.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <random>

namespace
{
constexpr unsigned Rounds = 100000;

/// Calls check with the text after up to eight insertions, deletions, replacements and repetitions, half of
/// them with pieces that mean something in it.
template <class Text, class Check>
void Mutate(const Text& original, const std::vector<Text>& pieces, Check check)
{
    std::mt19937 random(20261114);
    const auto below = [&](std::size_t limit) {
        return static_cast<std::size_t>(random()) % std::max<std::size_t>(limit, 1);
    };
    for (unsigned round = 0; round < Rounds; ++round)
    {
        Text text = original;
        for (std::size_t change = below(8) + 1; change > 0; --change)
        {
            const std::size_t at = below(text.size() + 1);
            Text piece(1, static_cast<typename Text::value_type>(random()));
            if (below(2) == 0)
                piece = pieces[below(pieces.size())];
            switch (below(4))
            {
            case 0:
                text.insert(at, piece);
                break;
            case 1:
                text.erase(at, below(20));
                break;
            case 2:
                text.replace(at, std::min(piece.size(), text.size() - at), piece);
                break;
            default:
                text.insert(at, text.substr(below(text.size()), below(20)));
                break;
            }
        }
        if (!check(text))
        {
            CAPTURE(round);
            FAIL("a result that must not be");
        }
    }
}
} // namespace

TEST_CASE("update answers")
{
    unsigned found = 0;
    Mutate<std::string>("<?xml version=\"1.0\"?><string xmlns=\"http://x/\">http://x/y.exe</string>",
                        {"<string>", "<string", ">", "</", "/>", "<?xml"}, [&](const std::string& text) {
                            std::string url = "before";
                            const std::int32_t code = ParseUpdateAnswer(text, url);
                            found += code == 0 ? 1 : 0;
                            if (code != 0)
                                return url == "before" && code >= 773 && code <= 776;
                            return text.find(">" + url + "</") != std::string::npos || url.empty();
                        });
    CHECK(found > 0);
    CHECK(found < Rounds);
}

TEST_CASE("patch URLs")
{
    unsigned plain = 0;
    Mutate<std::string>("http://host:80/dir/Patch%20A.exe?x=1/y",
                        {"%2F", "%5C", "%3A", "%00", "%", "..", "/", "?", "%2"},
                        [&](const std::string& text) {
                            const std::wstring name = PatchFileName(text);
                            if (PercentDecode(text).size() > text.size() || name.size() > text.size())
                                return false;
                            if (!LS::System::IO::IsPlainFileName(name))
                                return true;
                            ++plain;
                            return name.find_first_of(std::wstring_view(L"/\\:?\0", 5)) == std::wstring::npos;
                        });
    CHECK(plain > 0);
    CHECK(plain < Rounds);
}

TEST_CASE("subject names")
{
    constexpr std::string_view publishers[] = {"2.5.4.10=Larkspur, Inc."};
    unsigned accepted = 0;
    Mutate<std::string>("2.5.4.6=US, 2.5.4.10=\"Larkspur, Inc.\", 2.5.4.3=\"a \"\"b\"\" c\"",
                        {"\"", "\"\"", ", ", ",", "2.5.4.10="}, [&](std::string text) {
                            if (!SubjectNamesPublisher(text, publishers))
                                return true;
                            ++accepted;
                            text.erase(std::remove(text.begin(), text.end(), '"'), text.end());
                            return text.find(publishers[0]) != std::string::npos;
                        });
    CHECK(accepted > 0);
    CHECK(accepted < Rounds);
}

TEST_CASE("command lines")
{
    unsigned blueStacks = 0;
    Mutate<std::wstring>(
        L"/product=BlueStacks /dp x /locale=de /from=C:\\a.exe /prompt /installerargs=\"/S\" /D=x",
        {L"/dp", L"/dp=", L" ", L"/installerargs=", L"/InstallerArgs=", L"\"", L"/product="},
        [&](const std::wstring& text) {
            std::vector<std::wstring> arguments(1);
            for (const wchar_t c : text)
            {
                if (c == L' ')
                    arguments.emplace_back();
                else
                    arguments.back() += c;
            }
            const RunOptions options = ParseRunOptions(text, arguments);
            blueStacks += options.IsBlueStacks ? 1 : 0;
            // What the installer gets is the tail, and goes to it unchanged.
            const std::wstring parameters = PatchParameters(L"P", options.InstallerArgs);
            const bool hasTail = !options.InstallerArgs.empty();
            const std::wstring whole = L"/installerargs=" + options.InstallerArgs;
            return (!hasTail || (text.size() >= whole.size() &&
                                 text.compare(text.size() - whole.size(), whole.size(), whole) == 0)) &&
                   parameters == L"/park=\"P\"" + (hasTail ? L" " + options.InstallerArgs : L"");
        });
    CHECK(blueStacks > 0);
    CHECK(blueStacks < Rounds);
}
