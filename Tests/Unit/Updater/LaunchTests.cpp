// From the patch's file to its start: values that the end-to-end tests, with their real signatures, services
// and starts, don't come to.
#include "Ls/System/ExitCodeException.h"
#include "Ls/System/String/Convert.h"
#include "Tests/Unit/Updater/Common.h"
#include "Updater/Launch/COMInitializer.h"
#include "Updater/Launch/InstallProgress.h"
#include "Updater/Launch/PatchWait.h"
#include "Updater/Publisher/CheckedPatch.h"
#include "Updater/Publisher/PublisherName.h"

#include <objbase.h>

#include <thread>

REGISTER_EXCEPTION_TRANSLATOR(const LS::System::CExitCodeException& exception)
{
    return std::to_string(exception.ExitCode()).c_str();
}

TEST_CASE("a file that someone may still write to isn't accepted")
{
    const Tests::CTempFolder folder;
    const std::ofstream writer(std::filesystem::path(folder.Path(L"p.exe")));
    for (const std::wstring name : {L"p.exe", L"missing.exe", L""})
        CHECK_MESSAGE(!CCheckedPatch(folder.Path(name), true).IsAccepted(), name);
    const std::filesystem::path path(folder.Path(L"free.exe"));
    Tests::WriteBytes(path.wstring(), "free");
    const CCheckedPatch held(path, true);
    CHECK(!std::ofstream(path, std::ios::app)); // from before the check until the start
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
        {
            CHECK_MESSAGE(SubjectNamesPublisher(subject, publishers) == good, subject);
            CHECK_MESSAGE(SubjectNamesPublisher(LS::AnsiToWide(subject), publishers) == good, subject);
        }
    // A full-width L, and a letter whose lower half is an L.
    for (const wchar_t* subject : {L"O=\xFF2C Inc.", L"O=\x014C Inc."})
        CHECK(!SubjectNamesPublisher(std::wstring_view(subject), publishers));
}

TEST_CASE("an installer that tells nothing, or takes back what it told, moves no bar")
{
    const Tests::CTemporaryValue key(HKEY_LOCAL_MACHINE, L"Software\\Larkspur\\InstallerStatus", L"Download",
                                     1),
        none(HKEY_LOCAL_MACHINE, L"Software\\Larkspur\\InstallerStatus", L"Install", std::nullopt);
    CHECK(ReadInstallPercent() == 100);
}

// Windows' shell may start a program without naming its process; Wine's never does.
TEST_CASE("a patch that can't be waited for isn't one that has ended")
{
    CHECK_THROWS_WITH(WaitForPatch(LS::System::Win32::CKernelHandle(), {}), "1281");
}

TEST_CASE("COM of the other kind ends the run")
{
    std::thread([] {
        ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        CHECK_THROWS_WITH(CCOMInitializer(), "1280");
        ::CoUninitialize();
    }).join();
}
