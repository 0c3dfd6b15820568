// What crashes, disks and other programs do to a queue, mostly in memory: so many cases that a real disk
// would be too slow; ProcessTests does it to real files and processes. Not shown under Wine: a folder or file
// that is only readable (its user is root); a file that another program holds stands for all of that.
#include "Ls/System/Util/Crc32.h"
#include "Tests/Support/Mutation.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Unit/Analytics/Queues.h"
#include "Updater/Analytics/QueueFile.h"

#include <doctest/doctest.h>

#include <set>

using namespace LS::System;
using namespace std::string_literals;
using Appended = CQueueContents::Appended;

namespace
{
/// Different lengths, so that records land on each other's places in every way.
std::string Query(unsigned number)
{
    return "q" + std::to_string(number) + std::string(number * 7 % 23, '-');
}

/// A queue whose first records have been sent.
CMemoryStorage SampleQueue(unsigned records, unsigned sent)
{
    CMemoryStorage storage;
    for (unsigned i = 0; i < records; ++i)
        CQueueContents(storage).Append(Query(i));
    for (unsigned i = 0; i < sent; ++i)
        TakeFirst(storage);
    return storage;
}
} // namespace

TEST_CASE("header and records, byte by byte, also of another writer with its own mask and counter")
{
    CMemoryStorage storage;
    CQueueContents(storage).Append("123456789");
    // Checksums from an independent implementation: zlib's crc32 of "123456789\0", and of bytes 0 to 15.
    CHECK(storage.Bytes == "\1\0\0\0\1\0\0\0\0\0\0\0\1\0\0\0\xCE\xF1\xCA\x61"s
                           "\x1E\0\0\0\x14\0\0\0\x49\x9E\xC4\0\0\0\0\0\xF8\0\0\0"s
                           "\xC9\xCA\xCB\xCC\xCD\xCE\xCF\xC0\xC1\xF8");
    CQueueContents(storage).Append("=");
    CHECK(storage.Bytes.substr(50) == "\x16\0\0\0\x14\0\0\0\x41\x5A\x31\x2B\1\0\0\0\xF9\0\0\0\xC4\xF9"s);
    storage.Bytes = "\1\0\0\0\x9\0\0\0\0\0\0\0\7\1\0\0\xDB\xB2\x6F\x43"s
                    "\x1E\0\0\0\x14\0\0\0\x49\x9E\xC4\0\6\1\0\0\x55\0\0\0"s
                    "\x64\x67\x66\x61\x60\x63\x62\x6D\x6C\x55";
    CQueueContents(storage).Append("=");
    CHECK(storage.Bytes.substr(4, 12) == "\xA\0\0\0\0\0\0\0\x8\1\0\0"s);
    CHECK(Drain(storage) == Texts{"123456789", "="});
}

TEST_CASE(
    "what isn't a queue becomes an empty one; what can't be part of a URL is dropped; equals stay apart")
{
    const std::string good = SampleQueue(1, 0).Bytes, longest(MaxQueryLength, 'x');
    for (const std::string& bytes :
         {""s, good.substr(0, 19), std::string(5000, '\0'), "\2" + good.substr(1),
          good.substr(0, 4) + "\7" + good.substr(5), good + std::string(20u << 20, 'x')})
    {
        CMemoryStorage storage(bytes);
        CHECK(CQueueContents(storage).GetFirst().Kind != CQueueContents::First::Failed);
        for (const std::string& query :
             {longest + "x", ""s, longest, "a b"s, "a\r\nHost: b"s, "a#b"s, "a\0b"s, "b"s, "b"s})
            CHECK(CQueueContents(storage).Append(query) == Appended::Yes);
        Texts left = Drain(storage);
        CHECK(left == Texts{longest, "b", "b"});
        CHECK(storage.Bytes.size() == QueueHeaderSize);
    }
    CMemoryStorage storage = SampleQueue(2, 0);
    const auto first = CQueueContents(storage).GetFirst();
    CHECK(CQueueContents(storage).RemoveFirst(first.Key));
    CHECK(!CQueueContents(storage).RemoveFirst(first.Key));
}

TEST_CASE(
    "5 MiB: appending costs what it costs on an empty queue, sending is linear, hostile bytes are skimmed")
{
    CMemoryStorage storage = SampleQueue(1, 0);
    const std::uint64_t cost = storage.BytesMoved + QueueHeaderSize;
    for (const std::size_t size : {5242880u, 5242881u})
    {
        storage.Bytes.resize(QueueHeaderSize);
        storage.Bytes.resize(size, 'x');
        storage.BytesMoved = 0;
        CHECK(CQueueContents(storage).Append(Query(0)) == (size == 5242880 ? Appended::Yes : Appended::Full));
        CHECK(storage.BytesMoved <= cost);
    }
    CMemoryStorage full;
    while (CQueueContents(full).Append(std::string(1000, 'x')) == Appended::Yes)
        ;
    full.BytesMoved = 0;
    CHECK(Drain(full).size() > 5000);
    CHECK(full.BytesMoved < 10 * 5242880);
    const std::string header = EncodeQueueRecord(std::string(MaxQueryLength, 'x'), 0).substr(0, 20);
    for (const std::string& piece :
         {header, EncodeQueueRecord("x", 0).substr(0, 21), "\x14\0\0\0"s, "\x16\0\0\0\x14\0\0\0"s})
    {
        CMemoryStorage hostile(EncodeQueueHeader({}));
        while (hostile.Bytes.size() < CQueueContents::FullSize)
            hostile.Bytes += piece;
        CHECK(CQueueContents(hostile).GetFirst().Kind == CQueueContents::First::None);
        CHECK(hostile.BytesMoved < 8 * CQueueContents::FullSize);
    }
}

TEST_CASE("ended at any change, a queue has every record but the one in hand, in order and once")
{
    unsigned ends = 0;
    for (unsigned kind = 0; kind < 10; ++kind)
        for (int last = 0, ended = 1; ended != 0; ++last)
        {
            CMemoryStorage storage;
            storage.ChangesLeft = last;
            storage.TornQuarters = kind % 5;
            Texts live;
            unsigned next = 100;
            std::string inHand;
            ended = 0;
            try
            {
                // Appends and removals, with the sent part now smaller and now bigger than the rest.
                for (const char step : "+++++++--+----++-+--+++-----"s)
                {
                    if (step == '+')
                    {
                        inHand = kind < 5 ? Query(next++) : "q" + std::to_string(next++);
                        CQueueContents(storage).Append(inHand);
                        live.push_back(inHand);
                        continue;
                    }
                    inHand = live.front();
                    const auto taken = TakeFirst(storage);
                    REQUIRE((taken && taken->Query == inHand));
                    live.erase(live.begin());
                }
            }
            catch (const Killed&)
            {
                ends += ended = 1;
            }
            storage.ChangesLeft = -1;
            // The next process appends before anyone sends. The one in hand may be there or not.
            REQUIRE(CQueueContents(storage).Append("after") == Appended::Yes);
            Texts left = Drain(storage);
            live.push_back("after");
            for (Texts* texts : {&left, &live})
                texts->erase(std::remove(texts->begin(), texts->end(), inHand), texts->end());
            CHECK(left == live);
        }
    CHECK(ends > 600);
}

TEST_CASE("damage to one record costs that record only, and a full disk costs nothing")
{
    for (const unsigned sent : {0u, 1u, 2u})
    {
        const std::string good = SampleQueue(6, sent).Bytes,
                          second = EncodeQueueRecord(Query(sent + 1), sent + 1);
        const std::size_t begin = good.find(second);
        CMemoryStorage storage(good);
        const Texts all = Drain(storage);
        Texts others = all;
        others.erase(others.begin() + 1);
        for (std::size_t bit = 0; bit < second.size() * 8; ++bit)
        {
            storage.Bytes = good;
            storage.Bytes[begin + bit / 8] ^= static_cast<char>(1 << bit % 8);
            CHECK(Drain(storage) == (bit / 32 == 3 ? all : others)); // nothing depends on the sequence number
            storage.Bytes = good;
            storage.Bytes.erase(begin + bit / 8, second.size() - bit / 8);
            CHECK(Drain(storage) == others);
        }
        for (const char fill : {'\0', '\x14', 'x', '\xFF'})
        {
            storage.Bytes = good;
            storage.Bytes.insert(begin, std::string(9973, fill));
            CHECK(Drain(storage) == all);
        }
        for (std::size_t room = 0; room <= second.size(); ++room)
        {
            CMemoryStorage full(good);
            full.Full = good.size() + room;
            CHECK((CQueueContents(full).Append(Query(sent + 1)) == Appended::Yes) == (room == second.size()));
            CHECK((room == second.size() || full.Bytes == good));
        }
    }
}

TEST_CASE("100,000 damaged queues: nothing wrong is sent, and every one can be used again")
{
    std::set<std::string> known{"new"};
    for (unsigned i = 0; i < 9; ++i)
        known.insert(Query(i));
    const std::string good = SampleQueue(9, 3).Bytes;
    const std::vector<std::string> pieces = {
        "\0\0\0\0"s,         "\x14\0\0\0"s, "\x15\0\0\0\x14\0\0\0"s,        "\xFF\xFF\xFF\xFF"s,
        "\xEB\xFF\xFF\xFF"s, "\0\0\0\x80"s, EncodeQueueRecord(Query(8), 8), EncodeQueueHeader({9, 40, 9}),
        std::string(40, 'x')};
    unsigned rounds = 0;
    CHECK(Tests::SurvivesMutations(good, pieces, 100000, [&](const std::string& damaged) {
        CMemoryStorage storage(damaged);
        // Mostly with a good header, or nothing behind it would be looked at.
        if (damaged.size() >= QueueHeaderSize && ++rounds % 4 != 0)
        {
            storage.Bytes.replace(0, 4, good, 0, 4);
            const std::uint32_t sum = Util::Crc32(storage.Bytes.data(), 16);
            storage.Bytes.replace(16, 4, reinterpret_cast<const char*>(&sum), 4);
        }
        CQueueContents(storage).Append("new");
        const Texts left = Drain(storage);
        const bool right =
            std::all_of(left.begin(), left.end(), [&](const auto& text) { return known.count(text); });
        return right && left.size() < 40 && !left.empty() && left.back() == "new" &&
               storage.Bytes.size() == QueueHeaderSize;
    }));
}

TEST_CASE("the real file: folders are made, an older one is moved once, one in use loses the event and "
          "nothing else")
{
    const Tests::CTempFolder folder(L"\u041E\u0447\u0435\u0440\u0435\u0434\u044C ");
    const std::wstring local = folder.Path(L"Local"), roaming = folder.Path(L"Roaming");
    const auto older = OpenQueue(local);
    CHECK(older->Append("older"));
    const auto queue = OpenQueue(roaming, local);
    CHECK(queue->Path() == roaming + L"\\Larkspur\\Analytics\\LSAnalytics.dat");
    {
        const Win32::CFileHandle other(::CreateFileW(queue->Path().c_str(), GENERIC_READ, FILE_SHARE_READ,
                                                     nullptr, OPEN_EXISTING, 0, nullptr));
        REQUIRE(other);
        CHECK(!queue->Append("lost"));
        CHECK(queue->GetFirst(nullptr).Kind == CQueueContents::First::Failed);
    }
    CHECK((queue->Append("newer") && older->Append("too late")));
    OpenQueue(roaming, local); // never over one that is in use
    CHECK(std::filesystem::exists(older->Path()));
    CQueueFile file(queue->Path());
    CHECK(Drain(file) == Texts{"older", "newer"});

    Tests::WriteBytes(folder.Path(L"file"), "x");
    for (const std::wstring& base : {folder.Path(L"file"), folder.Path(std::wstring(250, L'x'))})
        CHECK(!OpenQueue(base)->Append("lost"));
    CHECK(Tests::ReadBytes(folder.Path(L"file")) == "x");
    CQueueFile full(L"\\\\?\\unix\\dev\\full"); // a device that only Wine reaches
    CHECK((!full.IsOpen() || CQueueContents(full).Append("lost") == Appended::Failed));
}
