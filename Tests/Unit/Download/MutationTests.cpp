// Hostile bytes where the engine reads: state files and the head of an answer.
#include "Ls/System/Net/MultiStreamDownload/RangeSplit.h"
#include "Ls/System/Net/MultiStreamDownload/ResponseRules.h"
#include "Ls/System/Net/MultiStreamDownload/ResumeRules.h"
#include "Tests/Support/Mutation.h"
#include "Tests/Unit/Download/DownloadRun.h"

#include <doctest/doctest.h>

#include <random>

using namespace Tests;
using namespace LS::System::Net::MultiStreamDownload;

namespace
{
/// Up to four flipped bits, which the check notices for certain in records of this length.
template <class Record>
bool RejectsMutations(const Record& record)
{
    std::mt19937 random(20261114);
    const auto good = Encode(record);
    for (int round = 0; round < 100000; ++round)
    {
        auto bytes = good;
        for (unsigned changes = random() % 4 + 1; changes > 0; --changes)
            bytes[random() % bytes.size()] ^= static_cast<std::uint8_t>(1U << (random() % 8));
        if (bytes != good && Decode(bytes))
            return false;
    }
    return true;
}
} // namespace

TEST_CASE("No mutated record passes its check")
{
    DownloadRecord state;
    state.DownloadSize = 123456789;
    state.ThreadsUsed = 2;
    CHECK(RejectsMutations(state));
    StreamRecord stream;
    stream.Offset = 65536;
    stream.DownloadSize = 123456789;
    stream.ThreadsUsed = 2;
    stream.SetLastModified(PatternDate);
    CHECK(RejectsMutations(stream));
}

TEST_CASE("Records with arbitrary values and a good check never lead outside the file")
{
    std::mt19937 random(20261114);
    const auto number = [&]() -> std::uint32_t {
        constexpr std::uint32_t edges[] = {0, 1, 2, 65536, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
        return random() % 2 ? edges[random() % std::size(edges)] : random();
    };
    bool holds = true;
    for (int round = 0; round < 100000; ++round)
    {
        DownloadRecord state;
        state.DownloadSize = number();
        state.ThreadsUsed = random() % 5;
        if (!IsAdoptable(state))
            continue;
        std::uint64_t next = 0;
        for (std::uint32_t i = 0; i < state.ThreadsUsed; ++i)
        {
            const StreamRange range = SplitRange(state.DownloadSize, state.ThreadsUsed, i);
            const std::uint64_t behind = std::uint64_t{range.End} + 1;
            holds = holds && range.Start == next && (behind > range.Start || state.DownloadSize == 0);
            next = behind;

            StreamRecord stream;
            stream.Offset = number();
            stream.ThreadsUsed = random() % 3;
            const std::uint64_t cacheSize = number();
            if (IsUsable(stream,
                         {range.Start, range.End, state.DownloadSize > 0, state.ThreadsUsed, cacheSize}))
                holds = holds && stream.Offset >= range.Start && stream.Offset <= cacheSize &&
                        (state.DownloadSize == 0 || stream.Offset <= behind);
        }
        holds = holds && (state.DownloadSize == 0 || next == state.DownloadSize);
    }
    CHECK(holds);
}

TEST_CASE("Mutated headers are judged without a wrong range")
{
    const auto judged = [](const std::string& text) {
        Response response;
        response.Status = 206;
        response.ContentRange = text;
        response.ContentLength = text.substr(0, 5);
        response.ResumeOffset = 131072;
        response.End = 299999;
        response.FileSize = 300000;
        Verdict verdict = JudgeResponse(response);
        bool good = !verdict.FailureMessage.empty() ||
                    (verdict.ResumeOffset == 131072 && verdict.End == verdict.FileSize - 1);
        response.SingleStream = false;
        verdict = JudgeResponse(response);
        good = good &&
               (!verdict.FailureMessage.empty() || (text.starts_with("bytes 131072-299999") &&
                                                    verdict.FileSize == 300000 && verdict.End == 299999));
        response.SingleStream = true;
        response.Status = 200;
        verdict = JudgeResponse(response);
        return good && (!verdict.FailureMessage.empty() || verdict.ResumeOffset == 0);
    };
    CHECK(SurvivesMutations("bytes 131072-299999/300000",
                            {"bytes ", "/", "-", "*", "4294967296", "99999999999999999999", " ", "300000"},
                            100000, judged));
}
