// A patch's name and place, and who may have signed it. Real signatures are in the end-to-end tests.
#include "Ls/System/ExitCodeException.h"
#include "Ls/System/Io/Path.h"
#include "Ls/System/Util/PerUserAppDataPath.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/WideText.h"
#include "Updater/Fetch/PatchPath.h"
#include "Updater/Launch/ShellStart.h"
#include "Updater/Publisher/CheckedPatch.h"
#include "Updater/Publisher/PublisherName.h"

using LS::System::Win32::CFileHandle;
using namespace std::string_literals;

TEST_CASE("the file name is the decoded URL's last component before the query")
{
    const std::pair<std::string, std::wstring> table[] = {
        {"http://h/dir/Patch%20A.exe?x=1/y", L"Patch A.exe"},
        {"http://h/dir/?a", L""},
        {"Patch.exe", L"Patch.exe"},
        {"http://h/a%2Fb.exe", L"b.exe"},
        {"http://h/a%3Fb.exe", L"a"},
        {"http://h/..%5Ca.exe#p", L"..\\a.exe#p"},
        {"%D0%9F\xE9", L"\x00D0\x009F\xE9"}, // not read as UTF-8
        {"a+b%4a%G1%1G% 1%-1%x41", L"a+bJ%G1%1G% 1%-1%x41"},
        {"a%4", L"a%4"},
        {"%%41%2541%00x%", L"%A%41\0x%"s}};
    for (const auto& [url, name] : table)
        CHECK_MESSAGE(PatchFileName(url) == name, url);
}

TEST_CASE("a patch's place is made ready, or the fetch fails; a name that leads elsewhere touches nothing")
{
    const std::wstring product = L"UnitTest-" + std::to_wstring(::GetCurrentProcessId());
    const std::wstring base = LS::System::Util::GetPerUserAppDataPath() + L"\\Larkspur\\Updater\\";
    const std::wstring folder = base + product + L"\\", victim = base + L"UnitTest-victim.exe";
    std::wstring path = L"untouched";
    const auto codeOf = [&](const std::string& name) {
        try
        {
            return SetupFilePathAndName(product, path, "http://h/" + name), 0;
        }
        catch (const LS::System::CExitCodeException& exception)
        {
            return static_cast<int>(exception.ExitCode());
        }
    };
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(base);
    Tests::WriteBytes(victim, "victim");
    for (const std::string& name :
         Tests::Split("..%5CUnitTest-victim.exe,C%3A%5Cx,C%3Ax,a.exe%3As,CON,nul.exe,com1,LPT9.x,"
                      "..,.,a.,a%20,a%00.exe,%01,a%7Cb,a%2A,%22a,%5C%5C.%5Cx"s,
                      ','))
        CHECK_MESSAGE(codeOf(name) == 1027, name);
    CHECK((path == L"untouched" && !std::filesystem::exists(folder) && Tests::ReadBytes(victim) == "victim"));

    CHECK(codeOf("Patch%20A.exe?q") == 0);
    CHECK(path == folder + L"Patch A.exe");
    for (const bool locked : {false, true})
    {
        Tests::WriteBytes(path, "old");
        ::SetFileAttributesW(path.c_str(), locked ? FILE_ATTRIBUTE_READONLY : FILE_ATTRIBUTE_NORMAL);
        CHECK(codeOf("Patch%20A.exe?q") == (locked ? 1025 : 0));
        CHECK(std::filesystem::exists(path) == locked);
    }
    ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    CHECK(codeOf("dir/") == 1025); // no file name: the folder itself
    std::filesystem::remove_all(folder);
    std::filesystem::remove(victim);
}

TEST_CASE("a patch that is being checked can be read and started, but not changed; one that can't be held "
          "isn't accepted")
{
    const Tests::CTempFolder folder;
    const std::wstring path = folder.Path(L"patch.exe");
    const auto canOpen = [&](DWORD access) {
        const DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
        return static_cast<bool>(
            CFileHandle(::CreateFileW(path.c_str(), access, shareAll, nullptr, OPEN_EXISTING, 0, nullptr)));
    };
    CHECK(!CCheckedPatch(path, false).IsAccepted());
    CHECK(!CCheckedPatch(folder.Path() + L"\\", true).IsAccepted());
    std::filesystem::copy_file(LS::System::IO::ProgramPath(), path);
    CCheckedPatch patch(path, false);
    CHECK(!patch.IsAccepted()); // nobody signed it
    CHECK((canOpen(GENERIC_READ) && !canOpen(GENERIC_WRITE) && !canOpen(DELETE)));
    CHECK((!::DeleteFileW(path.c_str()) && !::MoveFileW(path.c_str(), folder.Path(L"moved").c_str())));
    const ShellStart start = StartThroughShell(path, L"--no-run", folder.Path(), true);
    REQUIRE((start.Started && start.Process));
    REQUIRE(::WaitForSingleObject(start.Process.Get(), 60000) == WAIT_OBJECT_0);
    patch.Delete();
    CHECK(!std::filesystem::exists(path));

    const CFileHandle writer(
        ::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW, 0, nullptr));
    CCheckedPatch written(path, false);
    CHECK(!written.IsAccepted());
    written.Delete(); // can't, and says so only in the log
    CHECK(std::filesystem::exists(path));
}

TEST_CASE("a subject is accepted by one whole component, letter by letter")
{
    constexpr std::string_view publishers[] = {"2.5.4.10=Larkspur Inc.", "2.5.4.10=Larkspur, Inc.",
                                               "2.5.4.10=Larkspur Inc"};
    for (const char* subject :
         {"2.5.4.10=Larkspur Inc.", "2.5.4.6=US, 2.5.4.10=\"Larkspur, Inc.\", 2.5.4.3=x",
          "2.5.4.10=Lark\"spur\" Inc",               // quotes anywhere are only quotes
          "2.5.4.3=\"\"\"\", 2.5.4.10=Larkspur Inc", // a value that is one quote
          "2.5.4.10=Larkspur Inc., ", "2.5.4.10=Larkspur Inc., 2.5.4.3=\"open"})
        CHECK_MESSAGE(SubjectNamesPublisher(subject, publishers), subject);
    const std::string refused =
        ";2.5.4.10=Larkspur, Inc.;2.5.4.10=\"Larkspur, Inc\";2.5.4.10=LARKSPUR INC.;2.5.4.10=Larkspur Inc.x;"
        " 2.5.4.10=Larkspur Inc.;2.5.4.10=Larkspur Inc. ;2.5.4.3=Larkspur Inc.;"
        "2.5.4.3=\"a, 2.5.4.10=Larkspur Inc.\";2.5.4.3=a + 2.5.4.10=Larkspur Inc.;"
        "2.5.4.3=\"a\"\", 2.5.4.10=Larkspur Inc;2.5.4.10=\"Larkspur "
        "\"\"Inc.\"\"\";2.5.4.3=a,2.5.4.10=Larkspur Inc.;"
        "2.5.4.10=Larkspur Inc.,2.5.4.3=a;2.5.4.10=Larkspur Inc.,;2.5.4.3=a,  2.5.4.10=Larkspur Inc.;"
        "2.5.4.10=\"Larkspur Inc.;2.5.4.3=\"open, 2.5.4.10=Larkspur Inc.;2.5.4.10=Larkspur Inc.\0x"s;
    for (const std::string& subject : Tests::Split(refused, ';'))
        CHECK_MESSAGE(!SubjectNamesPublisher(subject, publishers), subject);
}
