// Decisions and records of a download, as far as the table of faults doesn't show them.
#include "Ls/System/Net/MultiStreamDownload/ResponseRules.h"
#include "Ls/System/Net/MultiStreamDownload/ResumeRules.h"
#include "Ls/System/Net/MultiStreamDownload/RetryRules.h"
#include "Ls/System/Util/Crc32.h"
#include "Tests/Unit/Download/DownloadRun.h"

#include <doctest/doctest.h>

using namespace Tests;
using namespace LS::System::Net::MultiStreamDownload;

TEST_CASE("Numbers of headers are decimal, 32-bit and nothing else")
{
    using enum HeaderNumber::Kind;
    const struct
    {
        const char* Text;
        HeaderNumber::Kind Is;
        std::uint32_t Number;
    } rows[] = {{"0", Value, 0},
                {" 17\t", Value, 17},
                {"4294967295", Value, 4294967295},
                {"4294967296", TooLarge, 0},
                {"99999999999999999999999999", TooLarge, 0},
                {"", None, 0},
                {" ", None, 0},
                {"*", None, 0},
                {"-1", None, 0},
                {"+1", None, 0},
                {"12a", None, 0},
                {"1 2", None, 0},
                {"0x10", None, 0},
                {"10, 10", None, 0}};
    for (const auto& row : rows)
    {
        CAPTURE(row.Text);
        CHECK(ParseHeaderNumber(row.Text).Is == row.Is);
        CHECK(ParseHeaderNumber(row.Text).Value == row.Number);
    }
}

TEST_CASE("A changed file is told from an unchanged one and from an unknown one")
{
    const std::string date = "Detected file change(s) in: modified date ";
    const std::string size = "Detected file change(s) in:  size ", longDate(80, 'd');
    const struct
    {
        std::string RecordDate, Date;
        std::uint32_t RecordSize, Size;
        std::string Message;
    } rows[] = {{"A", "A", 10, 10, ""},
                {"A", "B", 10, 10, date},
                {"A", "A", 10, 11, size},
                {"A", "B", 10, 11, date + "size "},
                {"UNKNOWN", "B", 10, 10, ""},
                {"A", "UNKNOWN", 10, 10, ""},
                {"A", "A", 0, 10, ""},
                {"A", "A", 10, 0, ""},
                {"A", "A", 0, 4, size},
                {"", "A", 10, 10, date},
                {longDate, longDate, 10, 10, ""},
                {longDate, std::string(48, 'd'), 10, 10, date}};
    for (const auto& row : rows)
    {
        CAPTURE(&row - rows);
        StreamRecord record;
        record.SetLastModified(row.RecordDate);
        record.DownloadSize = row.RecordSize;
        record.Offset = 5;
        CHECK(FileChangeMessage(record, row.Date, row.Size) == row.Message);
    }
}

TEST_CASE("Six attempts with pauses of one to five seconds, and what gives them back")
{
    std::uint64_t second = 0;
    for (std::uint64_t left = FullBudget(5); left > 1; --left)
        CHECK(PauseMs(5, left) == ++second * 1000);
    CHECK(second == 5);
    CHECK(RenewsBudget({true, false, 100000}));
    CHECK_FALSE(RenewsBudget({false, false, 0}));
    CHECK(RenewsBudget({false, true, 1999}));
    CHECK_FALSE(RenewsBudget({false, true, 2000}));
}

TEST_CASE("Records lie on disk byte for byte as laid down, over whatever was there")
{
    struct CIdleThread : LS::System::Win32::CThread // reading and writing poll the thread that they run on
    {
        CIdleThread() : CThread({}) {}
    };
    const auto number = [](std::uint32_t value) {
        return std::string(reinterpret_cast<const char*>(&value), sizeof(value));
    };
    const auto checked = [&](const std::string& bytes) {
        return bytes + number(LS::System::Util::Crc32(bytes.data(), bytes.size()));
    };
    const CTempFolder folder;
    const std::wstring path = folder.Path(L"p");
    const CIdleThread thread;
    for (const std::size_t earlier : {5, 500})
    {
        WriteBytes(path + L".downloadstate", std::string(earlier, 'x'));
        WriteBytes(path + L".1", std::string(earlier, 'x'));
        DownloadProgress(path, 2, 70000).Write();
        CHECK(ReadBytes(path + L".downloadstate") == checked(number(2) + number(70000) + number(2)));
        StreamProgress progress(path, 1);
        progress.Values.DownloadSize = 70000;
        progress.Values.ThreadsUsed = 2;
        progress.Values.SetLastModified(std::string(80, 'd'));
        for (const std::uint32_t offset : {70000U, 65536U}) // the file stays open between the two
        {
            progress.Values.Offset = offset;
            progress.Write(thread);
        }
        // A date that is too long is cut so that the field still ends in a zero byte.
        CHECK(ReadBytes(path + L".1") == checked(number(1) + number(1) + number(65536) + number(70000) +
                                                 number(2) + std::string(49, 'd') + std::string(3, '\0')));
    }
}
