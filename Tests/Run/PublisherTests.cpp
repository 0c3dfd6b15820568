// Whose patch may run. Wine doesn't refuse a publisher whose root isn't trusted, nor a package that was
// changed; both rows are for Windows.
#include "Tests/Run/Sandbox.h"

#include <doctest/doctest.h>

using Tests::CSandbox;
namespace fs = std::filesystem;

TEST_CASE("only a patch of an accepted publisher runs; any other is deleted")
{
    const struct
    {
        std::string Sample;
        bool Accepted;
        std::optional<std::wstring> Product = std::nullopt;
        const char* Logged = "";
        bool OnWine = true, IsTrusted = true;
        std::string Extension = ".exe";
    } cases[] = {
        {"larkspur-comma-point", true},
        {"larkspur-point", true},
        {"larkspur-plain", true},
        {"larkspur-comma", false},
        {"larkspur-upper", false},
        // Refused in any code page, and in most only by the certificate's own letters.
        {"full-width", false},
        {"full-width-comma", false},
        {"name-only", false, std::nullopt, "mile, 2.5.4.3=\"Larkspur, Inc.\""},
        {"name-with-number", false},
        {"bluestacks", false},
        {"unsigned", false},
        {"tampered", false},
        {"larkspur-comma-point", false, L"BlueStacks"},
        {"larkspur-point", false, std::nullopt, "", false, false},
        {"tampered", false, L"BlueStacks", "", false, true, ".msi"},
    };
    for (const auto& one : cases)
    {
        CAPTURE(one.Sample);
        CAPTURE(one.Product.has_value());
        if (Tests::IsWine() && !one.OnWine)
            continue;
        CSandbox sandbox(one.Product);
        if (!one.IsTrusted)
            sandbox.Trust.reset();
        sandbox.Patch = Tests::Sample(one.Sample, one.Extension);
        sandbox.PatchName = "Patch" + one.Extension;
        const auto outcome = sandbox.Run(sandbox.From(), L"/exit=0");
        CHECK(outcome.ExitCode == (one.Accepted ? 0 : 260));
        CHECK(outcome.Events == std::string(one.Accepted ? "Yes" : "No"));
        CHECK(fs::exists(sandbox.PatchFile()) == one.Accepted);
        CHECK(fs::exists(sandbox.PatchRecord) == one.Accepted);
        CHECK(sandbox.Logged(one.Logged));
        CHECK(!sandbox.Logged("?mile")); // the accented letter is told as the log tells it
    }
}
