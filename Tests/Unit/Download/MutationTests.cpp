// Decisions of the engine as functions of values, as far as the table of faults doesn't show them, and
// hostile bytes where it reads: state files and the head of an answer.
#include "Ls/System/Net/MultiStreamDownload/RangeSplit.h"
#include "Ls/System/Net/MultiStreamDownload/ResponseRules.h"
#include "Ls/System/Net/MultiStreamDownload/ResumeRules.h"
#include "Ls/System/Net/MultiStreamDownload/RetryRules.h"
#include "Tests/Support/Mutation.h"
#include "Tests/Unit/Download/DownloadRun.h"

using namespace Tests;
using namespace LS::System::Net::MultiStreamDownload;

TEST_CASE("Six attempts with pauses of one to five seconds, and what gives them back; changes of a file")
{
    for (std::uint32_t failed = 0; failed < 5; ++failed)
        CHECK(PauseMs(5, FullBudget(5) - failed) == (failed + 1) * 1000);
    CHECK((RenewsBudget({true, false, 100000}) && !RenewsBudget({false, false, 0})));
    CHECK((RenewsBudget({false, true, 1999}) && !RenewsBudget({false, true, 2000})));
    CHECK(FileChangeMessage({.DownloadSize = 9}, "A", 8) ==
          "Detected file change(s) in: modified date size ");
}

TEST_CASE_TEMPLATE("Records are laid down byte for byte; no mutated one passes its check", Record,
                   DownloadRecord, StreamRecord)
{
    Record record;
    record.DownloadSize = 70000, record.ThreadsUsed = 2;
    std::string expected = RecordBytes({2, 70000, 2});
    if constexpr (Record::Size == StreamRecord::Size)
    {
        record.StreamIndex = 1, record.Offset = 65536;
        record.SetLastModified(std::string(80, 'd')); // the field still ends in a zero byte
        expected = StreamBytes(1, 65536, 70000, 2, std::string(49, 'd'));
    }
    const auto good = Encode(record);
    CHECK(std::string(good.begin(), good.end()) == expected);
    CHECK(SurvivesMutations(expected, {"\1", "dd"}, [&](std::string text, bool& passed) {
        auto bytes = good;
        text.resize(bytes.size());
        std::copy(text.begin(), text.end(), bytes.begin());
        passed = Decode(bytes).has_value();
        return passed == (bytes == good);
    }));
}

TEST_CASE("Records with arbitrary values and a good check never lead outside the file")
{
    std::mt19937 random(20261114);
    constexpr std::uint32_t edges[] = {0, 1, 2, 65536, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    const auto number = [&] { return random() % 2 ? edges[random() % std::size(edges)] : random(); };
    unsigned outside = 0;
    for (unsigned round = 0; round < MutationRounds; ++round)
    {
        const std::uint32_t size = number(), threads = random() % 5, offset = number(), cache = number();
        const bool adopted = IsAdoptable({2, size, threads});
        std::uint64_t next = 0;
        for (std::uint32_t i = 0; adopted && i < threads; ++i)
        {
            const auto [start, end] = SplitRange(size, threads, i);
            const StreamRecord record{.Offset = offset, .ThreadsUsed = threads};
            const bool usable = IsUsable(record, {start, end, size > 0, threads, cache});
            outside += start != next || (usable && (offset < start || offset > cache));
            next = end + 1ULL;
            outside += size > 0 && (start > end || (usable && offset > next));
        }
        outside += adopted && size > 0 && next != size;
    }
    CHECK(outside == 0);
}

TEST_CASE("Mutated headers are judged without a wrong range")
{
    const std::vector<std::string> pieces = {"bytes ", "/", "-", "*", "4294967296", "99999999999999999999",
                                             " "};
    CHECK(SurvivesMutations("bytes 131072-299999/300000", pieces, MutationRounds, [](auto& text) {
        Response response{206, text.substr(0, 5), text, {}, {}, {}, true, 131072, Size - 1, Size};
        const Verdict one = JudgeResponse(response);
        response.SingleStream = false;
        const Verdict two = JudgeResponse(response);
        const bool fits = one.ResumeOffset == 131072 && one.End == one.FileSize - 1;
        const bool same =
            text.starts_with("bytes 131072-299999") && two.FileSize == Size && two.End == Size - 1;
        return (fits || !one.FailureMessage.empty()) && (same || !two.FailureMessage.empty());
    }));
}
