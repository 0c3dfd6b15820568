// What crashes, disks and other programs do to a queue, mostly in memory: so many cases that a real disk
// would be too slow; ProcessTests does it to real files and processes. Not shown under Wine: a folder or file
// that is only readable (its user is root); a file that another program holds stands for all of that.
#include "Ls/System/Util/Crc32.h"
#include "Tests/Support/Mutation.h"
#include "Tests/Unit/Analytics/Fixture.h"
#include "Updater/Analytics/QueueFile.h"

#include <functional>

using Appended = CQueueContents::Appended;

namespace
{
/// A queue in memory, for looking at every byte.
struct CMemoryStorage : CQueueStorage
{
    explicit CMemoryStorage(std::string bytes = {}) : Bytes(std::move(bytes)) {}

    std::string Bytes;
    /// Sees all that a sudden end could leave: of a write nothing to all, in quarters, but of the 20 bytes of
    /// a header all or nothing, as the system does it.
    std::function<void()> Seen = [] {};
    /// Bytes from which on the disk is full; bytes asked for.
    std::size_t Full = SIZE_MAX, Read = 0;

    std::optional<std::uint64_t> Size() override { return Bytes.size(); }
    std::optional<std::string> ReadAt(std::uint64_t position, std::size_t size) override
    {
        Read += size;
        return Bytes.substr(std::min(Bytes.size(), static_cast<std::size_t>(position)), size);
    }
    bool WriteAt(std::uint64_t position, std::string_view bytes) override
    {
        const auto at = static_cast<std::size_t>(position);
        const std::size_t all = std::min(bytes.size(), Full - std::min(Full, at));
        for (std::size_t quarters = all > QueueHeaderSize ? 0 : 4; quarters <= 4; ++quarters, Seen())
        {
            Bytes.resize(std::max(Bytes.size(), at + all * quarters / 4));
            Bytes.replace(at, all * quarters / 4, bytes.substr(0, all * quarters / 4));
        }
        return all == bytes.size();
    }
    bool SetSize(std::uint64_t size) override
    {
        return Bytes.resize(static_cast<std::size_t>(size)), Seen(), true;
    }
    Appended Append(std::string_view query) { return CQueueContents(*this).Append(query); }
    /// Takes the first record out as the sender does.
    bool Take(const std::string& query)
    {
        const auto record = CQueueContents(*this).GetFirst();
        return record.Query == query && CQueueContents(*this).RemoveFirst(record.Key);
    }
};

/// Different lengths, so that records land on each other's places in every way.
const auto Query = [](unsigned number) {
    return "q" + std::to_string(number) + std::string(number * 7 % 23, '-');
};

/// A queue whose first records have been sent.
CMemoryStorage SampleQueue(unsigned records, unsigned sent)
{
    CMemoryStorage storage;
    for (unsigned i = 0; i < records; ++i)
        storage.Append(Query(i));
    for (unsigned i = 0; i < sent; ++i)
        REQUIRE(storage.Take(Query(i)));
    return storage;
}
} // namespace

TEST_CASE("header and records, byte by byte, also of another writer with its own mask and counter")
{
    CMemoryStorage storage;
    storage.Append("123456789");
    // Checksums from an independent implementation: zlib's crc32 of "123456789\0", and of bytes 0 to 15.
    CHECK(storage.Bytes ==
          "\1\0\0\0\1\0\0\0\0\0\0\0\1\0\0\0\xCE\xF1\xCA\x61\x1E\0\0\0\x14\0\0\0\x49\x9E\xC4\0"
          "\0\0\0\0\xF8\0\0\0\xC9\xCA\xCB\xCC\xCD\xCE\xCF\xC0\xC1\xF8"s);
    storage.Append("=");
    CHECK(storage.Bytes.substr(50) == "\x16\0\0\0\x14\0\0\0\x41\x5A\x31\x2B\1\0\0\0\xF9\0\0\0\xC4\xF9"s);
    storage.Bytes = "\1\0\0\0\x9\0\0\0\0\0\0\0\7\1\0\0\xDB\xB2\x6F\x43\x1E\0\0\0\x14\0\0\0\x49\x9E\xC4\0"
                    "\6\1\0\0\x55\0\0\0\x64\x67\x66\x61\x60\x63\x62\x6D\x6C\x55"s;
    storage.Append("=");
    CHECK(storage.Bytes.substr(4, 12) == "\xA\0\0\0\0\0\0\0\x8\1\0\0"s);
    const auto first = CQueueContents(storage).GetFirst();
    for (const bool removes : {true, false})
        CHECK(CQueueContents(storage).RemoveFirst(first.Key) == removes);
    // The sent one's bytes were most of it: moved to the front. Later they are sent and still there.
    CHECK(storage.Bytes.substr(8, 4) == "\0\0\0\0"s);
    storage.Append("longer-than-the-one-before");
    CHECK(storage.Take("="));
    CHECK(storage.Bytes.substr(8, 4) == "\x16\0\0\0"s);
    CHECK(Drain(storage) == Texts{"longer-than-the-one-before"});
}

TEST_CASE("what isn't a queue becomes an empty one; what can't be in a URL is dropped; 5 MiB are the limit")
{
    const std::string good = SampleQueue(1, 0).Bytes, longest(MaxQueryLength, 'x');
    for (const std::string& bytes :
         {""s, good.substr(0, 19), std::string(5000, '\0'), "\2" + good.substr(1),
          good.substr(0, 4) + "\7" + good.substr(5), good + std::string(20u << 20, 'x')})
    {
        CMemoryStorage storage(bytes);
        for (const std::string& query :
             {longest + "x", ""s, longest, "a b"s, "a\r\nHost: b"s, "a#b"s, "a\0b"s, "b"s, "b"s})
            CHECK(storage.Append(query) == Appended::Yes);
        CHECK(Drain(storage) == Texts{longest, "b", "b"});
        CHECK(storage.Bytes.size() == QueueHeaderSize);
    }
    // Even so much of what looks like records is read a few times at most.
    for (const std::string& piece : {EncodeQueueRecord(std::string(MaxQueryLength, 'x'), 0).substr(0, 20),
                                     "x"s, EncodeQueueRecord("x", 0).substr(0, 21), "\x16\0\0\0\x14\0\0\0"s})
    {
        CMemoryStorage storage(EncodeQueueHeader({}));
        while (storage.Bytes.size() < 5242880)
            storage.Bytes += piece;
        const bool fits = storage.Bytes.size() == 5242880;
        CHECK(storage.Append("q") == (fits ? Appended::Yes : Appended::Full));
        CHECK((Drain(storage).size() == (fits ? 1 : 0) && storage.Read < 20 * 5242880));
    }
}

TEST_CASE("ended at any change, a queue has every record but the one in hand, in order and once")
{
    unsigned ends = 0, next = 100;
    for (const bool sameLength : {true, false})
    {
        CMemoryStorage storage;
        Texts live;
        std::string inHand;
        storage.Seen = [&] {
            // The next process appends before anyone sends. The one in hand may be there or not.
            CMemoryStorage after(storage.Bytes);
            REQUIRE(after.Append("after") == Appended::Yes);
            Texts left = Drain(after), wanted = live;
            wanted.push_back("after");
            CHECK((++ends, std::erase(left, inHand) <= 1 && std::erase(wanted, inHand) <= 1));
            CHECK(left == wanted);
        };
        // Appends and removals, with the sent part now smaller and now bigger than the rest.
        for (const char step : "+++++++--+----++-+--+++-----"s)
        {
            inHand = step == '-' ? live.front() : sameLength ? "q" + std::to_string(++next) : Query(++next);
            CHECK((step == '-' ? storage.Take(inHand) : storage.Append(inHand) == Appended::Yes));
            step == '-' ? live.erase(live.begin()) : live.insert(live.end(), inHand);
        }
    }
    CHECK(ends > 200);
}

TEST_CASE("damage to one record costs that record only, and a full disk costs nothing")
{
    for (const unsigned sent : {0u, 1u, 2u})
    {
        const std::string good = SampleQueue(6, sent).Bytes,
                          second = EncodeQueueRecord(Query(sent + 1), sent + 1);
        const std::size_t begin = good.find(second);
        const auto left = [](std::string bytes) {
            CMemoryStorage storage(std::move(bytes));
            return Drain(storage);
        };
        const Texts all = left(good);
        Texts others = all;
        others.erase(others.begin() + 1);
        for (std::size_t bit = 0; bit < second.size() * 8; ++bit)
        {
            std::string bytes = good;
            bytes[begin + bit / 8] ^= static_cast<char>(1 << bit % 8);
            CHECK(left(bytes) == (bit / 32 == 3 ? all : others)); // nothing depends on the sequence number
        }
        for (std::size_t room = 0; room <= second.size(); ++room)
        {
            CMemoryStorage full(good);
            full.Full = good.size() + room;
            CHECK((full.Append(Query(sent + 1)) == Appended::Yes) == (room == second.size()));
            CHECK((room == second.size() || full.Bytes == good));
            CHECK(left(std::string(good).erase(begin + room, second.size() - room)) ==
                  (room < second.size() ? others : all));
        }
        for (const char fill : {'\0', '\x14', 'x', '\xFF'})
            CHECK(left(std::string(good).insert(begin, std::string(9973, fill))) == all);
    }
}

TEST_CASE("100,000 damaged queues: nothing wrong is sent, and every one can be used again")
{
    std::string known = ";new;";
    for (unsigned i = 0; i < 9; ++i)
        known += Query(i) + ";";
    const std::string good = SampleQueue(9, 3).Bytes;
    // clang-format off
    const std::vector<std::string> pieces = {"\0\0\0\0"s, "\x14\0\0\0"s, "\x15\0\0\0\x14\0\0\0"s,
        "\xFF\xFF\xFF\xFF"s,
        "\xEB\xFF\xFF\xFF"s, "\0\0\0\x80"s, EncodeQueueRecord(Query(8), 8), EncodeQueueHeader({9, 40, 9}),
        "xxxxxxxxxxxxxxx"};
    // clang-format on
    unsigned rounds = 0;
    const auto survives = [&](const std::string& damaged) {
        CMemoryStorage storage(damaged);
        // Mostly with a good header, or nothing behind it would be looked at.
        if (damaged.size() >= QueueHeaderSize && ++rounds % 4 != 0)
        {
            storage.Bytes.replace(0, 4, good, 0, 4);
            const std::uint32_t sum = LS::System::Util::Crc32(storage.Bytes.data(), 16);
            storage.Bytes.replace(16, 4, reinterpret_cast<const char*>(&sum), 4);
        }
        storage.Append("new");
        const Texts left = Drain(storage);
        const auto isKnown = [&](const auto& text) {
            return known.find(";" + text + ";") != std::string::npos;
        };
        return left.size() < 40 && !left.empty() && left.back() == "new" &&
               storage.Bytes.size() == QueueHeaderSize && std::all_of(left.begin(), left.end(), isKnown);
    };
    CHECK(Tests::SurvivesMutations(good, pieces, Tests::MutationRounds, survives));
}

TEST_CASE("the real file: an older one is moved once, one in use loses the event and nothing else")
{
    const Tests::CTempFolder folder(L"\u041E\u0447\u0435\u0440\u0435\u0434\u044C ");
    const std::wstring local = folder.Path(L"Local"), roaming = folder.Path(L"Roaming"),
                       inTheWay = folder.Path(L"file");
    const auto older = OpenQueue(local);
    CHECK(older->Append("older"));
    const auto queue = OpenQueue(roaming, local);
    CHECK(queue->Path() == roaming + L"\\Larkspur\\Analytics\\LSAnalytics.dat");
    {
        const LS::System::Win32::CFileHandle other(::CreateFileW(
            queue->Path().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
        CHECK((other && !queue->Append("lost") && queue->GetFirst(nullptr).Kind == First::Failed));
    }
    CHECK((queue->Append("newer") && older->Append("late")));
    OpenQueue(roaming, local); // never over one that is in use
    CQueueFile file(queue->Path()), old(older->Path()),
        full(L"\\\\?\\unix\\dev\\full"); // the last: only under Wine
    CHECK((Drain(file) == Texts{"older", "newer"} && Drain(old) == Texts{"late"}));
    CHECK((!full.IsOpen() || CQueueContents(full).Append("lost") == Appended::Failed));
    Tests::WriteBytes(inTheWay, "x");
    for (const std::wstring& base : {inTheWay, folder.Path(std::wstring(250, L'x'))})
        CHECK(!OpenQueue(base)->Append("lost"));
}
