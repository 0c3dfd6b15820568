// The fetch as the run sees it: streams first and then a single request, once; progress for an outside
// installer; and a run that goes on where one that was killed had to stop.
#include "Ls/System/Win32/RegistryKey.h"
#include "Tests/Run/Sandbox.h"
#include "Tests/Support/WaitFor.h"
#include "Tests/Support/WideText.h"

#include <doctest/doctest.h>

using Tests::CSandbox;
using Tests::HttpReply;
using Tests::HttpRequest;

namespace
{
const wchar_t* const StatusKey = L"Software\\Larkspur\\InstallerStatus";

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

/// Half of the patch, and the rest when the server is told to go on.
HttpReply HalfOf(const CSandbox& sandbox, const HttpRequest& request)
{
    HttpReply reply = Tests::BytesReply(request, sandbox.Patch);
    reply.CutAfter = reply.BodyLength / 2;
    reply.End = HttpReply::Ending::Stall;
    return reply;
}

std::wstring DownloadValue()
{
    return LS::System::Win32::CRegistryKey(std::wstring(L"HKLM\\") + StatusKey, true)
        .GetString(L"Download", L"");
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
        {"streams refused", nullptr, "larkspur-point", 0, "SSSSSS1", "; OldDLSuccess NA; Update 0"},
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
        std::string marks = sandbox.Marks();
        if (one.Marks[0] == ';') // behind the streams' own, which tells of the server
        {
            CHECK(marks.rfind("NewDL 0 1DL T Error.-HTTP status is bad:404 ", 0) == 0);
            marks.erase(0, marks.find("; Old"));
        }
        CHECK(marks == one.Marks);
    }
}

TEST_CASE("/emitdownloadprogress writes the percentage into a value that is there, and makes none")
{
    for (const bool streams : {true, false})
    {
        CAPTURE(streams);
        CSandbox sandbox;
        sandbox.SetMachine(StatusKey, L"Download", std::wstring(L"waiting"));
        sandbox.File = [&](const HttpRequest& request) {
            return InStreams(request) && !streams ? Tests::BytesReply(request, Tests::Sample("unsigned"))
                                                  : HalfOf(sandbox, request);
        };
        const auto updater = sandbox.StartAnswered(sandbox.From() + L" /emitdownloadprogress", L"/exit=0");
        // Half of it, with six decimals; not to the last digit, since the streams count what is on disk.
        CHECK(Tests::WaitFor([] {
            const std::wstring value = DownloadValue();
            return value.size() == 9 && value[2] == L'.' && std::stod(value) > 30 && std::stod(value) <= 51;
        }));
        sandbox.Server().Release();
        CHECK(updater->Finish().ExitCode == 0);
        CHECK(DownloadValue() == L"100");
    }
    CSandbox sandbox;
    CHECK(sandbox.Run(sandbox.From() + L" /emitdownloadprogress", L"/exit=0").ExitCode == 0);
    CHECK(DownloadValue() == L"");
}

TEST_CASE("a run goes on where one that was killed had to stop")
{
    CSandbox sandbox;
    auto big = std::make_shared<std::string>(*sandbox.Patch);
    big->resize(4 << 20); // what follows a program's end doesn't count for Windows, but does for its signer
    sandbox.Patch = big;
    sandbox.File = [&](const HttpRequest& request) { return HalfOf(sandbox, request); };
    {
        const auto updater = sandbox.Start(sandbox.From());
        // Two blocks of the stream may be on their way to the disk.
        REQUIRE(Tests::WaitFor([&] {
            std::error_code none;
            const auto size = std::filesystem::file_size(sandbox.PatchFile().wstring() + L".cache", none);
            return !none && size >= (2u << 20) - (2u << 16);
        }));
        ::TerminateProcess(updater->Process(), 1);
        ::WaitForSingleObject(updater->Process(), Tests::CUpdaterProcess::LongestRunMs);
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
