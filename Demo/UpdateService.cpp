// Stands in for the update service, the file server behind it and the analytics collector, for the demo.
//   UpdateService /patch=FILE /latest=A.B.C.D
// Offers the patch to clients older than the latest version and prints what it saw. The first lines say
// where the collector and the service listen; GET /stop ends it.
#include "Tests/StandIns/Record.h"
#include "Tests/Support/CollectorHost.h"
#include "Tests/Support/FaultServer.h"
#include "Tests/Support/UpdateAnswers.h"

#include <array>
#include <cstdio>
#include <exception>
#include <mutex>

namespace
{
using Version = std::array<unsigned, 4>;

Version ParseVersion(const char* text)
{
    Version version = {};
    std::sscanf(text, "%u.%u.%u.%u", &version[0], &version[1], &version[2], &version[3]);
    return version;
}

int Serve(const std::wstring& patchFile, const std::wstring& latestText)
{
    const auto patch = Tests::ReadWholeFile(patchFile);
    const Version latest = ParseVersion(std::string(latestText.begin(), latestText.end()).c_str());
    std::mutex printing;
    const HANDLE stop = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);

    Tests::CFaultServer server([&](const Tests::HttpRequest& request) {
        const std::lock_guard lock(printing);
        if (request.Target == "/stop")
        {
            ::SetEvent(stop);
            return Tests::TextReply("");
        }
        std::printf("service: %s %s\n", request.Method.c_str(), request.Target.c_str());
        std::printf("service:   User-Agent: %s\n", request.Header("User-Agent").value_or("").c_str());
        if (request.RangeBegin)
            std::printf("service:   from byte %llu\n", static_cast<unsigned long long>(*request.RangeBegin));

        if (request.Target.rfind("/Update.asmx/GetUpdate2?", 0) != 0)
        {
            std::printf("service:   sends the patch, %u bytes\n", static_cast<unsigned>(patch->size()));
            std::fflush(stdout);
            return Tests::BytesReply(request, patch);
        }
        const auto version = request.Target.find("|Version:");
        const bool older =
            version != std::string::npos && ParseVersion(request.Target.c_str() + version + 9) < latest;
        const std::string host = request.Header("Host").value_or("");
        const std::string url = older ? "http://" + host + "/patches/PlayDeckPatch.exe" : std::string();
        std::printf("service:   answers %s\n", older ? url.c_str() : "that there is no update");
        std::fflush(stdout);
        return Tests::TextReply(Tests::UpdateXml(url));
    });

    Tests::CCollectorHost collector([&](const Tests::HttpRequest& request) {
        const std::lock_guard lock(printing);
        try
        {
            const auto event = Tests::DecodeCollectorRequest(request);
            std::printf("collector: %s, %s, %s, %u\n", event.Category.c_str(), event.Action.c_str(),
                        event.Label.c_str(), static_cast<unsigned>(event.Value));
        }
        catch (const std::exception& problem)
        {
            std::printf("collector: refused: %s\n", problem.what());
        }
        std::fflush(stdout);
        return Tests::TextReply("");
    });

    std::printf("collector: listening on %s\n", collector.Host().c_str());
    std::printf("service: listening on %s\n", server.Host().c_str());
    std::fflush(stdout);
    ::WaitForSingleObject(stop, INFINITE);
    return 0;
}
} // namespace

int wmain()
{
    const auto arguments = StandIns::Arguments();
    const auto patch = StandIns::ValueOf(arguments, L"/patch=");
    const auto latest = StandIns::ValueOf(arguments, L"/latest=");
    if (!patch || !latest)
    {
        std::puts("usage: UpdateService /patch=FILE /latest=A.B.C.D");
        return 2;
    }
    try
    {
        return Serve(*patch, *latest);
    }
    catch (const std::exception& failure)
    {
        std::printf("service: %s\n", failure.what());
        return 1;
    }
}
