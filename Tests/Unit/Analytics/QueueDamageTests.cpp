// What crashes, disks and other programs do to a queue, in memory: so many cases that a real disk would be
// too slow. QueueProcessesTests does it to real files and processes.
#include "Ls/System/Util/Crc32.h"
#include "Tests/Unit/Analytics/MemoryStorage.h"

#include <doctest/doctest.h>

#include <functional>
#include <random>
#include <set>

namespace
{
using Queries = std::vector<std::string>;

/// Different lengths, so that records land on each other's places in every way.
std::string Query(unsigned number)
{
    return "q" + std::to_string(number) + std::string(number * 7 % 23, '-');
}

/// A queue whose first records have been sent.
std::string SampleQueue(unsigned records, unsigned sent)
{
    CMemoryStorage storage;
    for (unsigned i = 0; i < records; ++i)
        CQueueContents(storage).Append(Query(i));
    for (unsigned i = 0; i < sent; ++i)
        TakeFirst(storage);
    return storage.Bytes;
}

void RepairHeader(std::string& bytes)
{
    const std::uint32_t checksum = LS::System::Util::Crc32(bytes.data(), 16);
    for (unsigned i = 0; i < 4; ++i)
        bytes[16 + i] = static_cast<char>(checksum >> (8 * i));
}
} // namespace

TEST_CASE("ended at any change, a queue has every record but the one in hand, in order and once")
{
    // Appends (+) and removals (-), with the sent part now smaller and now bigger than the rest.
    const std::string script = "+++++++--+----++-+--+++-----";
    unsigned ends = 0;
    for (unsigned kind = 0; kind < 10; ++kind)
    {
        // Records of different lengths, and of the same.
        const auto query = [&](unsigned number) {
            return kind < 5 ? Query(number) : "q" + std::to_string(100 + number);
        };
        const unsigned torn = kind % 5;
        for (int last = 0;; ++last)
        {
            CMemoryStorage storage;
            storage.ChangesLeft = last;
            storage.TornQuarters = torn;
            Queries live;
            unsigned next = 0;
            std::string inHand;
            try
            {
                for (const char step : script)
                {
                    if (step == '+')
                    {
                        inHand = query(next++);
                        CQueueContents(storage).Append(inHand);
                        live.push_back(inHand);
                    }
                    else
                    {
                        inHand = live.front();
                        const auto taken = TakeFirst(storage);
                        REQUIRE((taken && taken->Query == inHand));
                        live.erase(live.begin());
                    }
                }
                break; // the whole script took fewer changes
            }
            catch (const Killed&)
            {
                ++ends;
            }
            CAPTURE(kind);
            CAPTURE(last);
            storage.ChangesLeft = -1;
            // The next process appends before anyone sends.
            REQUIRE(CQueueContents(storage).Append("after") == CQueueContents::Appended::Yes);
            Queries left = Drain(storage);
            REQUIRE(!left.empty());
            CHECK(left.back() == "after");
            left.pop_back();
            Queries without = live;
            if (!without.empty() && without.front() == inHand)
                without.erase(without.begin()); // being removed
            Queries with = without;
            if (live != without)
                with = live;
            else
                with.push_back(inHand); // being appended
            CHECK((left == without || left == with));
        }
    }
    CHECK(ends > 600);
}

TEST_CASE("damage to one record costs that record only")
{
    for (const unsigned sent : {0u, 1u, 2u})
    {
        const std::string good = SampleQueue(6, sent);
        CMemoryStorage storage;
        storage.Bytes = good;
        const Queries all = Drain(storage);
        REQUIRE(all.size() == 6 - sent);
        // The second record that is left.
        const std::size_t begin = good.find(EncodeQueueRecord(Query(sent + 1), sent + 1));
        const std::size_t size = EncodeQueueRecord(Query(sent + 1), sent + 1).size();
        REQUIRE(begin != std::string::npos);
        for (std::size_t bit = 0; bit < size * 8; ++bit)
        {
            storage.Bytes = good;
            storage.Bytes[begin + bit / 8] ^= static_cast<char>(1 << bit % 8);
            Queries left = Drain(storage);
            // Nothing guards the sequence number, and nothing depends on it.
            if (left.size() == all.size())
                CHECK((bit / 8 >= 12 && bit / 8 < 16));
            else
                left.insert(left.begin() + 1, all[1]);
            CHECK(left == all);
        }
        // Its bytes lost, or strange ones in its place.
        for (std::size_t lost = 1; lost <= size; ++lost)
        {
            storage.Bytes = good;
            storage.Bytes.erase(begin + size - lost, lost);
            Queries left = Drain(storage);
            left.insert(left.begin() + 1, all[1]);
            CHECK(left == all);
        }
        for (const char fill : {'\0', '\x14', 'x', '\xFF'})
        {
            storage.Bytes = good;
            storage.Bytes.insert(begin, std::string(9973, fill));
            CHECK(Drain(storage) == all);
        }
    }
}

TEST_CASE("100,000 damaged queues: nothing wrong is sent, and every one can be used again")
{
    const std::string samples[] = {SampleQueue(8, 0), SampleQueue(8, 3), SampleQueue(9, 8)};
    std::set<std::string> known;
    for (unsigned i = 0; i < 9; ++i)
        known.insert(Query(i));
    const std::uint32_t numbers[] = {0, 1, 19, 20, 21, 22, 0x7FFFFFFF, 0x80000000, 0xFFFFFFEB, 0xFFFFFFFF};

    std::mt19937 random(5);
    const auto below = [&](std::size_t limit) { return limit ? random() % limit : 0; };
    unsigned wrong = 0, unusable = 0, long_ = 0;
    for (unsigned round = 0; round < 100000; ++round)
    {
        CMemoryStorage storage;
        std::string& bytes = storage.Bytes;
        bytes = samples[below(3)];
        for (std::size_t i = below(3) + 1; i > 0; --i)
        {
            const std::size_t at = below(bytes.size());
            switch (below(6))
            {
            case 0:
                if (at < bytes.size())
                    bytes[at] ^= static_cast<char>(1 << below(8));
                break;
            case 1:
                bytes.resize(at);
                break;
            case 2:
                bytes.insert(at, below(40), static_cast<char>(random()));
                break;
            case 3:
                bytes.erase(at, below(40));
                break;
            case 4:
                bytes.insert(at, bytes, below(bytes.size()), below(60));
                break;
            default:
                for (unsigned j = 0, number = numbers[below(std::size(numbers))]; j < 4; ++j)
                    if (at + j < bytes.size())
                        bytes[at + j] = static_cast<char>(number >> (8 * j));
            }
        }
        // Mostly with a good header, or nothing behind it would be looked at.
        if (bytes.size() >= QueueHeaderSize && below(4) != 0)
        {
            bytes[0] = 1;
            RepairHeader(bytes);
        }

        CQueueContents(storage).Append("new");
        const Queries left = Drain(storage);
        for (const std::string& query : left)
            wrong += query != "new" && known.count(query) == 0 ? 1 : 0;
        unusable += left.empty() || left.back() != "new" || bytes.size() != QueueHeaderSize ? 1 : 0;
        long_ += left.size() > 20 ? 1 : 0;
    }
    CHECK(wrong == 0);
    CHECK(unusable == 0);
    CHECK(long_ == 0);
}

TEST_CASE("a hostile file of 5 MiB is gone through in a few readings")
{
    const std::string sent = [] {
        std::string record = EncodeQueueRecord("", 0);
        const QueueRecordKey key = DecodeQueueRecord(record, record.size()).Key;
        return record.replace(QueueRecordChecksumOffset, 4, QueueSentMark(key));
    }();
    std::string header = EncodeQueueRecord(std::string(MaxQueryLength, 'x'), 0).substr(0, 20);
    std::string longHeader = EncodeQueueRecord(std::string(MaxQueryLength + 1, 'x'), 0).substr(0, 20);
    const std::string pieces[] = {header,
                                  longHeader,
                                  sent,
                                  sent + "x",
                                  sent + longHeader,
                                  EncodeQueueRecord("x", 0).substr(0, 21),
                                  std::string("\x14\0\0\0", 4),
                                  std::string("\x16\0\0\0\x14\0\0\0", 8)};
    for (const std::string& piece : pieces)
    {
        CMemoryStorage storage;
        storage.Bytes = EncodeQueueHeader({});
        while (storage.Bytes.size() < CQueueContents::FullSize)
            storage.Bytes += piece;
        CAPTURE(&piece - pieces);
        CHECK(CQueueContents(storage).GetFirst().Kind == CQueueContents::First::None);
        CHECK(storage.BytesMoved < 8 * CQueueContents::FullSize);
        CHECK(storage.Bytes.size() == QueueHeaderSize);
    }
}
