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

/// Up to four flipped bits, which the check notices for certain in records of this length.
TEST_CASE_TEMPLATE("No mutated record passes its check", Record, DownloadRecord, StreamRecord)
{
    std::mt19937 random(20261114);
    Record record;
    record.DownloadSize = 123456789;
    record.ThreadsUsed = 2;
    const auto good = Encode(record);
    unsigned passed = 0;
    for (int round = 0; round < 100000; ++round)
    {
        auto bytes = good;
        for (unsigned changes = random() % 4 + 1; changes > 0; --changes)
            bytes[random() % bytes.size()] ^= static_cast<std::uint8_t>(1U << (random() % 8));
        passed += bytes != good && Decode(bytes);
    }
    CHECK(passed == 0);
    CHECK(Decode(good));
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
        const std::uint32_t size = state.DownloadSize = number();
        const std::uint32_t threads = state.ThreadsUsed = random() % 5;
        if (!IsAdoptable(state))
            continue;
        std::uint64_t next = 0;
        for (std::uint32_t i = 0; i < threads; ++i)
        {
            const StreamRange range = SplitRange(size, threads, i);
            holds = holds && range.Start == next && (range.End >= range.Start || size == 0);
            next = std::uint64_t{range.End} + 1;
            StreamRecord stream;
            stream.Offset = number();
            stream.ThreadsUsed = random() % 3;
            const std::uint32_t cache = number();
            if (IsUsable(stream, {range.Start, range.End, size > 0, threads, cache}))
                holds = holds && stream.Offset >= range.Start && stream.Offset <= cache &&
                        (size == 0 || stream.Offset <= next);
        }
        holds = holds && (size == 0 || next == size);
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
        response.SingleStream = true;
        Verdict verdict = JudgeResponse(response);
        bool good = !verdict.FailureMessage.empty() ||
                    (verdict.ResumeOffset == 131072 && verdict.End == verdict.FileSize - 1);
        response.SingleStream = false;
        verdict = JudgeResponse(response);
        return good &&
               (!verdict.FailureMessage.empty() || (text.starts_with("bytes 131072-299999") &&
                                                    verdict.FileSize == 300000 && verdict.End == 299999));
    };
    CHECK(SurvivesMutations("bytes 131072-299999/300000",
                            {"bytes ", "/", "-", "*", "4294967296", "99999999999999999999", " ", "300000"},
                            100000, judged));
}
