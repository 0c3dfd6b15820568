// Hostile names of products and of files on the server. Good ones are in LaunchRouteTests.cpp.
#include "Tests/Run/Sandbox.h"
#include "Tests/Support/WideText.h"

#include <doctest/doctest.h>

using Tests::CSandbox;
namespace fs = std::filesystem;

TEST_CASE("a hostile product name ends with a code and touches nothing outside the program's folders")
{
    const std::wstring names[] = {L"..\\..\\..\\..\\evil",
                                  L"../../../../evil",
                                  L"C:\\evil",
                                  L"C:evil",
                                  L"a:stream",
                                  L"..",
                                  L"NUL",
                                  L"COM1.x",
                                  L"a<b>|c",
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
    for (const std::string name : {"..%5C..%5Cevil.exe", "C%3Aevil.exe", "a.exe%3Astream", "NUL.exe",
                                   "%2E%2E", "a%00.exe", "a%0D%0Ab.exe"})
    {
        CAPTURE(name);
        CSandbox sandbox;
        sandbox.PatchName = name;
        const auto before = sandbox.Outside();
        const auto outcome = sandbox.Run(sandbox.From());
        CHECK(outcome.ExitCode == 1027);
        CHECK(sandbox.Outside() == before);
        CHECK(sandbox.Logged("GetPatchEXE() : "));
        std::error_code none;
        CHECK(fs::directory_iterator(sandbox.DataFolder, none) == fs::directory_iterator());
    }
}
