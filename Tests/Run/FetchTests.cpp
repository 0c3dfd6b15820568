// The fetch as the run sees it: streams first and then a single request, once; and a run that goes on where
// one that was killed had to stop.
#include "Tests/Run/Sandbox.h"
#include "Tests/Support/WaitFor.h"

#include <doctest/doctest.h>

using Tests::CSandbox;
using Tests::HttpRequest;

namespace
{
bool InStreams(const HttpRequest& request)
{
    return request.Header("User-Agent").value_or("").find("; Updater ") != std::string::npos;
}

/// "S" for each request of the streams, "1" for each single one.
std::string Requests(CSandbox& sandbox)
{
    std::string kinds;
    for (const HttpRequest& request : sandbox.Server().Requests())
    {
        if (request.Target.rfind("/files/", 0) == 0)
            kinds += InStreams(request) ? 'S' : '1';
    }
    return kinds;
}
} // namespace

TEST_CASE("the single request is tried once, when the streams failed or brought a file of the wrong signer")
{
    const struct
    {
        std::string Promise;
        const char* StreamsSample; ///< null: refused
        const char* SingleSample;
        std::uint32_t Code;
        std::string Requests, Marks;
    } cases[] = {
        {"good at once", "larkspur-point", "unsigned", 0, "S", "NewDLSuccess 1; Update 0"},
        {"wrong signer first", "bluestacks", "larkspur-point", 0, "S1",
         "NewDLSuccess 1; PatchLSSigned_New NA; OldDLSuccess NA; Update 0"},
        {"streams refused", nullptr, "larkspur-point", 0, "SSSSSS1",
         "NewDL 0 1DL T Error.-HTTP status is bad:404 *; OldDLSuccess NA; Update 0"},
        {"wrong signer twice", "tampered", "bluestacks", 260, "S1",
         "NewDLSuccess 1; PatchLSSigned_New NA; OldDLSuccess NA; PatchLSSigned_Old NA; "
         "CExitCodeException 260; Update 260"},
    };
    for (const auto& one : cases)
    {
        CAPTURE(one.Promise);
        CSandbox sandbox;
        sandbox.File = [&](const HttpRequest& request) {
            const char* const sample = InStreams(request) ? one.StreamsSample : one.SingleSample;
            return sample ? Tests::BytesReply(request, Tests::Sample(sample)) : Tests::NotFound();
        };
        CHECK(sandbox.Run(sandbox.From(), L"/exit=0").ExitCode == one.Code);
        CHECK(Requests(sandbox) == one.Requests);
        const std::string marks = sandbox.Marks();
        CAPTURE(marks);
        CHECK(Tests::Fits(marks, one.Marks));
    }
}

TEST_CASE("a run goes on where one that was killed had to stop")
{
    CSandbox sandbox;
    auto big = std::make_shared<std::string>(*sandbox.Patch);
    big->resize(4 << 20); // what follows a program's end doesn't count for Windows, but does for its signer
    sandbox.Patch = big;
    sandbox.File = [&](const HttpRequest& request) { return Tests::HalfReply(request, sandbox.Patch); };
    {
        const auto updater = sandbox.StartAnswered(sandbox.From(), L"");
        // Two blocks of the stream may be on their way to the disk.
        REQUIRE(Tests::WaitFor([&] {
            std::error_code none;
            const auto size = std::filesystem::file_size(sandbox.PatchFile().wstring() + L".cache", none);
            return !none && size >= (2u << 20) - (2u << 16);
        }));
        updater->End();
    }
    sandbox.File = [&](const HttpRequest& request) { return Tests::BytesReply(request, sandbox.Patch); };
    const auto outcome = sandbox.Run(sandbox.From());
    CHECK(outcome.ExitCode == 260); // the whole file came, and its bytes aren't the signed ones
    std::uint64_t begin = 0;
    for (const HttpRequest& request : sandbox.Server().Requests())
        begin = request.RangeBegin.value_or(begin);
    CHECK(begin >= (2u << 20) - (2u << 16));
    CHECK(begin <= (2u << 20));
}
