// What comes from outside, changed at random a hundred thousand times each: no crash, no hang, and what is
// always true of the results. INI files are real files, and so slow that there are fewer of them.
#include "Tests/Support/Mutation.h"
#include "Tests/Support/Soak.h"
#include "Tests/Unit/Updater/Common.h"
#include "Updater/Launch/LaunchCommands.h"
#include "Updater/Publisher/PublisherName.h"
#include "Updater/Query/UpdateAnswer.h"
#include "Updater/Run/RunOptions.h"
#include "Updater/Settings/IniFile.h"

using Tests::SurvivesMutations;

TEST_CASE("update answers, subject names and command lines")
{
    const auto answer = [](const std::string& text, bool& good) {
        std::string url = "before";
        const std::int32_t code = ParseUpdateAnswer(text, url);
        good = code == 0;
        return good ? text.find(">" + url + "</") != std::string::npos || url.empty()
                    : url == "before" && code >= 773 && code <= 776;
    };
    CHECK(SurvivesMutations("<?xml version=\"1.0\"?><string xmlns=\"http://x/\">http://x/y.exe</string>",
                            {"<string>", "<string", ">", "</", "/>", "<?xml"}, answer));
    const auto subject = [](std::string text, bool& good) {
        constexpr std::string_view publishers[] = {"2.5.4.10=Larkspur, Inc."};
        good = SubjectNamesPublisher(text, publishers);
        std::erase(text, '"');
        return !good || text.find(publishers[0]) != std::string::npos;
    };
    CHECK(SurvivesMutations("2.5.4.6=US, 2.5.4.10=\"Larkspur, Inc.\", 2.5.4.3=\"a \"\"b\"\" c\"",
                            {"\"", "\"\"", ", ", ",", "2.5.4.10="}, subject));
    const auto commandLine = [](const std::string& narrow, bool& good) {
        const std::wstring text = LS::AnsiToWide(narrow);
        const RunOptions options = ParseRunOptions(text, Tests::Split(text, L' '));
        good = options.IsBlueStacks;
        // What the installer gets is the tail, and goes to it unchanged.
        const std::wstring& tail = options.InstallerArgs;
        return PatchParameters(L"P", tail) == L"/park=\"P\"" + (tail.empty() ? L"" : L" " + tail) &&
               (tail.empty() || text.find(L"/installerargs=" + tail) != std::wstring::npos);
    };
    CHECK(SurvivesMutations(
        "/product=BlueStacks /dp x /locale=de /from=C:\\a.exe /prompt /installerargs=\"/S\" /D",
        {"/dp", "/dp=", " ", "/installerargs=", "\"", "/product="}, commandLine));
}

TEST_CASE("INI files")
{
    const Tests::CTempFolder temp;
    const auto load = [path = temp.Path(L"a.ini")](const std::string& bytes) {
        Tests::WriteBytes(path, bytes);
        CIniFile ini;
        ini.LoadFile(path);
        std::wstring value;
        Tests::Caught([&] { value = ini.GetValue(L"User", L"VisitorID"); });
        return value.size() <= 518;
    };
    // Each round is a file written and read some ten times, one to some ms under Wine.
    CHECK(SurvivesMutations("[User]\r\nVisitorID={A-1}\r\nOEMOrigin=x\r\n[Other]\r\na=b\r\n",
                            {"[", "]", "=", ";", "\r\n", "\0"s, "\"", "\xFF\xFE", std::string(3000, 'k')},
                            Tests::Loops(1000, 10000), load));
}
