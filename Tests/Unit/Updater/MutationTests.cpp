// What comes from outside, changed at random a hundred thousand times each: no crash, no hang, and what is
// always true of the results. INI files are real files, and so slow that there are fewer of them.
#include "Ls/System/Io/Path.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/Mutation.h"
#include "Tests/Support/Soak.h"
#include "Tests/Support/TempFolder.h"
#include "Updater/Fetch/PatchPath.h"
#include "Updater/Launch/LaunchCommands.h"
#include "Updater/Publisher/PublisherName.h"
#include "Updater/Query/UpdateAnswer.h"
#include "Updater/Run/RunOptions.h"
#include "Updater/Settings/IniFile.h"

using Tests::SurvivesMutations;

TEST_CASE("update answers, patch URLs and subject names")
{
    CHECK(SurvivesMutations("<?xml version=\"1.0\"?><string xmlns=\"http://x/\">http://x/y.exe</string>",
                            {"<string>", "<string", ">", "</", "/>", "<?xml"},
                            [](const std::string& text, bool& good) {
                                std::string url = "before";
                                const std::int32_t code = ParseUpdateAnswer(text, url);
                                good = code == 0;
                                return good ? text.find(">" + url + "</") != std::string::npos || url.empty()
                                            : url == "before" && code >= 773 && code <= 776;
                            }));
    CHECK(SurvivesMutations(
        "http://host:80/dir/Patch%20A.exe?x=1/y", {"%2F", "%5C", "%3A", "%00", "%", "..", "/", "?", "%2"},
        [](const std::string& text, bool& good) {
            const std::wstring name = PatchFileName(text);
            good = LS::System::IO::IsPlainFileName(name);
            return name.size() <= text.size() &&
                   (!good || name.find_first_of(std::wstring_view(L"/\\:?\0", 5)) == std::wstring::npos);
        }));
    constexpr std::string_view publishers[] = {"2.5.4.10=Larkspur, Inc."};
    CHECK(SurvivesMutations("2.5.4.6=US, 2.5.4.10=\"Larkspur, Inc.\", 2.5.4.3=\"a \"\"b\"\" c\"",
                            {"\"", "\"\"", ", ", ",", "2.5.4.10="}, [&](std::string text, bool& good) {
                                good = SubjectNamesPublisher(text, publishers);
                                std::erase(text, '"');
                                return !good || text.find(publishers[0]) != std::string::npos;
                            }));
}

TEST_CASE("command lines")
{
    CHECK(SurvivesMutations(
        "/product=BlueStacks /dp x /locale=de /from=C:\\a.exe /prompt /installerargs=\"/S\" /D=x",
        {"/dp", "/dp=", " ", "/installerargs=", "/InstallerArgs=", "\"", "/product="},
        [](const std::string& narrow, bool& good) {
            const std::wstring text = LS::AnsiToWide(narrow);
            const RunOptions options = ParseRunOptions(text, Tests::Split(text, L' '));
            good = options.IsBlueStacks;
            // What the installer gets is the tail, and goes to it unchanged.
            const std::wstring& tail = options.InstallerArgs;
            return PatchParameters(L"P", tail) == L"/park=\"P\"" + (tail.empty() ? L"" : L" " + tail) &&
                   (tail.empty() || text.find(L"/installerargs=" + tail) != std::wstring::npos);
        }));
}

TEST_CASE("INI files")
{
    const Tests::CTempFolder temp;
    const std::wstring path = temp.Path(L"a.ini");
    // Each round is a file written and read some ten times, one to some ms under Wine.
    const unsigned rounds = Tests::Loops(1000, 10000);
    CHECK(SurvivesMutations(
        "[User]\r\nVisitorID={A-1}\r\nOEMOrigin=x\r\n[Other]\r\na=b\r\n",
        {"[", "]", "=", ";", "\r\n", std::string(1, '\0'), "\"", "\xFF\xFE", std::string(3000, 'k')}, rounds,
        [&](const std::string& bytes) {
            Tests::WriteBytes(path, bytes);
            CIniFile ini;
            ini.LoadFile(path);
            std::wstring value;
            Tests::Caught([&] { value = ini.GetValue(L"User", L"VisitorID"); });
            return value.size() <= 518;
        }));
}
