// Names that the outside chooses: of products, of users and of files on the server.
#include "Tests/Run/Sandbox.h"
#include "Tests/Support/WideText.h"

#include <doctest/doctest.h>

using Tests::CSandbox;
namespace fs = std::filesystem;

TEST_CASE("product and user names in any script go through a whole run")
{
    // Cyrillic, Korean and an emoji outside the first plane.
    for (const std::wstring name : {L"\u041F\u0440\u043E\u0434", L"\uC81C\uD488", L"\U0001F3AE Play & Deck"})
    {
        CAPTURE(name);
        CSandbox sandbox(name, name);
        const std::wstring installer = L"\"/name=" + name + L"\" /exit=0";
        const auto outcome = sandbox.Run(L"/locale=ru " + sandbox.From(), installer);
        CHECK(outcome.ExitCode == 0);
        CHECK(outcome.Events == "Yes");
        CHECK(CSandbox::FromRecord(sandbox.PatchRecord, "Path") == sandbox.PatchFile().wstring());
        CHECK(CSandbox::FromRecord(sandbox.PatchRecord, "CommandLine").ends_with(installer));
        CHECK(CSandbox::FromRecord(sandbox.ParkRecord(), "Folder") == sandbox.DataFolder.wstring());

        // The log's code page can't hold the name; the rest of its line and the line feed are there.
        unsigned found = 0;
        for (const std::string& line : sandbox.LogLines())
            found += line.starts_with("_tWinMain() : Command line is: ") && line.ends_with("/exit=0") ? 1 : 0;
        CHECK(found == 1);
        CHECK(sandbox.Logged("_tWinMain() : Returning success: 0"));
    }
}

TEST_CASE("a hostile product name ends with a code and touches nothing outside the program's folders")
{
    const std::wstring names[] = {L"..\\..\\..\\..\\evil",
                                  L"../../../../evil",
                                  L"a\\b",
                                  L"a/b",
                                  L"C:\\evil",
                                  L"C:evil",
                                  L"a:stream",
                                  L"..",
                                  L".",
                                  L"CON",
                                  L"NUL",
                                  L"COM1.x",
                                  L"a<b>|c",
                                  L"a?*",
                                  L" ",
                                  L"trailing.",
                                  L"\x0001",
                                  std::wstring(300, L'x')};
    for (const std::wstring& name : names)
    {
        CAPTURE(name);
        CSandbox sandbox(name);
        const auto before = sandbox.Outside();
        const auto outcome = sandbox.Run(sandbox.From(), L"/exit=0");
        CHECK(outcome.ExitCode == 261);
        CHECK(sandbox.Outside() == before);
        CHECK(!fs::exists(L"C:\\evil"));
        CHECK(sandbox.Server().Requests().empty());
    }
}

TEST_CASE("a file name from the server never leaves the data folder")
{
    const std::pair<std::string, std::uint32_t> cases[] = {
        {"..%5C..%5Cevil.exe", 1027},
        {"a%5Cb.exe", 1027},
        {"C%3A%5Cevil.exe", 1027},
        {"C%3Aevil.exe", 1027},
        {"a.exe%3Astream", 1027},
        {"CON", 1027},
        {"NUL.exe", 1027},
        {"lpt1", 1027},
        {"%2E%2E", 1027},
        {"a%00.exe", 1027},
        {"%22.exe", 1027},
        {"a%0D%0Ab.exe", 1027},
        {"", 1025},
        {"dir%2Fevil.exe", 0},
    };
    for (const auto& [name, code] : cases)
    {
        CAPTURE(name);
        CSandbox sandbox;
        sandbox.PatchName = name;
        const auto before = sandbox.Outside();
        const auto outcome = sandbox.Run(sandbox.From());
        CHECK(outcome.ExitCode == code);
        CHECK(sandbox.Outside() == before);
        if (code == 0)
            CHECK(fs::exists(sandbox.DataFolder / L"evil.exe"));
        else
        {
            std::error_code none;
            CHECK(fs::directory_iterator(sandbox.DataFolder, none) == fs::directory_iterator());
            CHECK(sandbox.Logged("GetPatchEXE() : "));
        }
    }
}
