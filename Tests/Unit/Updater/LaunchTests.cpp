// From the patch's file to its start: values and the registry. Real signatures, services and starts are in
// the end-to-end tests.
#include "Ls/System/ExitCodeException.h"
#include "Tests/Unit/Updater/Common.h"
#include "Updater/Dialog/ProgressBands.h"
#include "Updater/Fetch/PatchPath.h"
#include "Updater/Launch/COMInitializer.h"
#include "Updater/Launch/InstallProgress.h"
#include "Updater/Launch/LaunchCommands.h"
#include "Updater/Launch/ServerPath.h"
#include "Updater/Publisher/CheckedPatch.h"
#include "Updater/Publisher/PublisherName.h"

#include <objbase.h>

#include <cmath>
#include <thread>

using Tests::CTemporaryValue;
using Text = std::optional<std::wstring>;

REGISTER_EXCEPTION_TRANSLATOR(const LS::System::CExitCodeException& exception)
{
    return std::to_string(exception.ExitCode()).c_str();
}

TEST_CASE("file names, paths and command lines are as their readers expect them")
{
    const auto park = [](const std::wstring& client, const std::wstring& arguments) {
        return L"/Execute \"" + client + L"\" /LaunchParams \"/noupdate! /userlocale " + arguments +
               L"\" /EventTerminate \"Global\\LSPARKTERM\" /EventExecute \"Global\\LSPARKEXEC\"";
    };
    // clang-format off
    CheckTable<std::wstring, std::wstring>(std::identity(), {
        {PatchFileName("http://h/dir/Patch%20A.exe?x=1/y"), L"Patch A.exe"},
        {PatchFileName("http://h/dir/?a"), L""},
        // No UTF-8.
        {PatchFileName("http://h/a%2Fb%3Fc"), L"b"}, {PatchFileName("%D0%9F\xE9"), L"\x00D0\x009F\xE9"},
        {PatchFileName("a+b%4a%G1%1G% 1%-1%x41%%41%2541%00x%4"), L"a+bJ%G1%1G% 1%-1%x41%A%41\0x%4"s},
        {PatchFolder(L"C:\\a b\\c.exe"), L"C:\\a b\\"}, {PatchFolder(L"c.exe"), L"c.exe\\"},
        {ParkCopyPath(L"C:\\data\\", L"0a-1b"), L"C:\\data\\\\Park-{0a-1b}.exe"},
        {PatchParameters(L"C:\\p q", L""), L"/park=\"C:\\p q\""},
        {PatchParameters(L"C:\\p", L" /S \"x y\""), L"/park=\"C:\\p\"  /S \"x y\""},
        {ClientPath(L"C:\\PF"), L"C:\\PF\\Larkspur Games\\App\\PlayDeck-ls.exe"},
        {ParkCommandLine(L"C:\\c.exe", L"ko", L"", L""), park(L"C:\\c.exe", L"ko /dp ")},
        {ParkCommandLine(L"C", L"", L"/room 7", L"d"), park(L"C", L" /room 7")},
        {ParkTerminateCommandLine(), L"/EventTerminate \"Global\\LSPARKTERM\" /SignalTerminate"},
        {Quoted(L"a b"), L"\"a b\""}, {MsiexecParameters(L"C:\\a b\\x.msi"), L"/i \"C:\\a b\\x.msi\" /qn"}});
    // clang-format on
    const Tests::CTempFolder folder; // a patch that someone may still write to isn't accepted
    const std::ofstream writer(std::filesystem::path(folder.Path(L"p.exe")));
    for (const wchar_t* name : {L"p.exe", L"missing.exe", L""})
        CHECK(!CCheckedPatch(folder.Path(name), true).IsAccepted());
}

TEST_CASE("a subject is accepted by one whole component, letter by letter")
{
    constexpr std::string_view publishers[] = {"O=L Inc.", "O=L, Inc.", "O=L Inc"};
    // Quotes anywhere are only quotes; the value of one C is a quote.
    const std::string accepted = R"(O=L Inc.;C=US, O="L, Inc.", C=x;O=L Inc., ;O=L Inc., C="open;O=L" I"nc;)"
                                 R"(C="""", O=L Inc)";
    const std::string refused = R"(;O=L, Inc.;O="L, Inc";o=l inc.;O=L Inc.x; O=L Inc.;O=L Inc. ;C=L Inc.;)"
                                R"(C="a, O=L Inc.";C=a + O=L Inc.;O="L Inc.;C="a"", O=L Inc;O="L ""Inc.""";)"
                                R"(O=L Inc.,;C=a,O=L Inc.;O=L Inc.,C=a;C=a,  O=L Inc.;C="open, O=L Inc.;)"
                                "O=L Inc.\0x"s;
    for (const bool good : {true, false})
        for (const std::string& subject : Tests::Split(good ? accepted : refused, ';'))
            CHECK_MESSAGE(SubjectNamesPublisher(subject, publishers) == good, subject);
}

TEST_CASE(
    "the installation's percentage is read, whatever stands there; it and the download fill their bands")
{
    const std::wstring key = L"Software\\Larkspur\\InstallerStatus";
    ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, key.c_str());
    CHECK(ReadInstallPercent() == 0.0F);
    const auto percentOf = [&](const Text& text, DWORD type = REG_SZ) {
        const CTemporaryValue value(HKEY_LOCAL_MACHINE, key, L"Install", text, type);
        return ReadInstallPercent();
    };
    // clang-format off
    CheckTable<Text, float>(percentOf, { // a late key; then a key without the value
        {L"30", 30.0F}, {{}, 100.0F}, {L"0", 0.0F}, {L"99.9", 99.9F}, {L" 12.5%", 12.5F}, {L"-5", -5.0F},
        {L"1e2", 100.0F}, {L"250", 250.0F}, {L"text", 0.0F}, {L"", 0.0F},
        {std::wstring(5000, L'7'), HUGE_VALF}});
    CHECK(percentOf(L"\x1E", REG_DWORD) == 0.0F);
    CheckTable<float, int>(DownloadBand, {{0.0F, 20}, {1.6F, 20}, {1.7F, 21}, {99.9F, 50}, {100.0F, 50}});
    CheckTable<float, std::optional<int>>(InstallBand, {{0.0F, 55}, {30.0F, 68}, {99.9F, 100}, {-10.0F, 51},
        {100.0F, {}}, {250.0F, {}}, {HUGE_VALF, {}}, {std::nanf(""), {}}});
    // clang-format on
    CHECK((*InstallBand(-HUGE_VALF) < 0 && *InstallBand(-3.0e38F) < 0));
}

TEST_CASE("a registered server's folder is found; COM of the other kind ends the run")
{
    constexpr CLSID classId = {0x7E57C1A5, 0, 1, {2, 3, 4, 5, 6, 7, 8, 9}};
    const std::wstring key = L"Software\\Classes\\CLSID\\{7E57C1A5-0000-0001-0203-040506070809}",
                       no = L"no, as before";
    const auto folderOf = [&](const Text& text, DWORD type = REG_SZ) {
        const CTemporaryValue value(HKEY_LOCAL_MACHINE, key + L"\\LocalServer32", L"", text, type);
        std::wstring folder = L"as before";
        return GetServerPath(classId, folder) ? folder : L"no, " + folder;
    };
    // clang-format off
    CheckTable<Text, std::wstring>(folderOf, {
        {{}, no}, {L"\"C:\\P F\\s.exe\"", L"C:\\P F"}, {L"C:\\P F\\s.exe", L"C:\\P F"}, {L"", no},
        {L"\"", no}, {L"\"C:\\PF\\s.exe\" -Embedding", L"C:\\PF"}, {L"s.exe", no},
        {L"C:\\" + std::wstring(260, L'x'), no}});
    // clang-format on
    CHECK(folderOf(L"C:\\s.exe", REG_BINARY) == no);
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, key.c_str());
    std::thread([] {
        CHECK_NOTHROW((CCOMInitializer(), CCOMInitializer()));
        ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        CHECK_THROWS_WITH(CCOMInitializer(), "1280");
        ::CoUninitialize();
    }).join();
}
