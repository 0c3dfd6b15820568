// What crashes, disks and other programs do to a queue, mostly in memory; ProcessTests does it to real files
// and processes. Not shown under Wine: a folder or file that is only readable (its user is root); a file that
// another program holds stands for all of that.
#include "Ls/System/Util/Crc32.h"
#include "Tests/Unit/Analytics/Fixture.h"
#include "Updater/Analytics/QueueFile.h"
#include "Updater/Analytics/VisitorId.h"
#include "Updater/Settings/IniFile.h"

#include <sddl.h>

#include <future>
#include <set>

using Appended = CQueueContents::Appended;

TEST_CASE("header and records, byte by byte; a record is removed once")
{
    CMemoryStorage storage;
    storage.Append("123456789");
    // Checksums from an independent implementation: zlib's crc32 of "123456789\0", and of bytes 0 to 15.
    CHECK(storage.Bytes ==
          "\1\0\0\0\1\0\0\0\0\0\0\0\1\0\0\0\xCE\xF1\xCA\x61\x1E\0\0\0\x14\0\0\0\x49\x9E\xC4\0"
          "\0\0\0\0\xF8\0\0\0\xC9\xCA\xCB\xCC\xCD\xCE\xCF\xC0\xC1\xF8"s);
    storage.Append("=");
    CHECK(storage.Bytes.substr(50) == "\x16\0\0\0\x14\0\0\0\x41\x5A\x31\x2B\1\0\0\0\xF9\0\0\0\xC4\xF9"s);
    const auto first = CQueueContents(storage).GetFirst();
    CHECK(first.Query == "123456789");
    CHECK(CQueueContents(storage).RemoveFirst(first.Key));
    CHECK(!CQueueContents(storage).RemoveFirst(first.Key));
    CHECK(Drain(storage) == Texts{"="});
}

TEST_CASE("what can't be in a URL is dropped, and 5 MiB are the limit")
{
    CMemoryStorage queue(std::string(5000, 'x'));
    const std::string longest(MaxQueryLength, 'x');
    for (const std::string& query :
         {longest + "x", ""s, longest, "a b"s, "a\r\nHost: b"s, "a#b"s, "a\0b"s, "b"s, "b"s})
        CHECK(queue.Append(query) == Appended::Yes);
    CHECK(Drain(queue) == Texts{longest, "b", "b"});
    // Even so much of what looks like records is read a few times at most. What has been sent doesn't count.
    for (const auto& [size, sent] :
         {std::pair{5242880u, 0u}, {5242881u, 0u}, {9242880u, 4000000u}, {9242881u, 4000000u}})
    {
        CMemoryStorage storage(EncodeQueueHeader({0, sent, 0}));
        while (storage.Bytes.size() < size)
            storage.Bytes += "\x16\0\0\0\x14\0\0\0"s;
        storage.Bytes.resize(size);
        CHECK(storage.Append("q") == (size % 10 == 0 ? Appended::Yes : Appended::Full));
        Drain(storage);
        CHECK(storage.Read < 20 * size);
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
            ++ends;
            // The next process appends before anyone sends. The one in hand may be there or not.
            CMemoryStorage after(storage.Bytes);
            REQUIRE(after.Append("after") == Appended::Yes);
            Texts left = Drain(after), wanted = live;
            wanted.push_back("after");
            CHECK(std::erase(left, inHand) <= 1);
            std::erase(wanted, inHand);
            CHECK(left == wanted);
        };
        // Appends and removals, with the sent part now smaller and now bigger than the rest.
        for (const char step : "+++++++--+----++-+--+++-----"s)
        {
            if (step == '-')
            {
                inHand = live.front();
                CHECK(storage.Take(inHand));
                live.erase(live.begin());
            }
            else
            {
                ++next;
                inHand = sameLength ? "q" + std::to_string(next) : NumberedQuery(next);
                CHECK(storage.Append(inHand) == Appended::Yes);
                live.push_back(inHand);
            }
        }
    }
    CHECK(ends > 200);
}

TEST_CASE("damage to one record costs that record only, and a full disk costs nothing")
{
    const auto left = [](std::string bytes) {
        CMemoryStorage storage(std::move(bytes));
        return Drain(storage);
    };
    const std::string good = SampleQueue(6, 1).Bytes, second = EncodeQueueRecord(NumberedQuery(2), 2);
    const std::size_t begin = good.find(second);
    const Texts all = left(good);
    Texts others = all;
    others.erase(others.begin() + 1);
    for (std::size_t bit = 0; bit < second.size() * 8; ++bit)
    {
        std::string bytes = good;
        bytes[begin + bit / 8] ^= static_cast<char>(1 << bit % 8);
        CHECK(left(bytes) == (bit / 32 == 3 ? all : others)); // nothing depends on the sequence number
    }
    // A queue of another version is none, and stays none for whoever comes after a sudden end.
    std::string later = "\2" + good.substr(1);
    const std::uint32_t checksum = LS::System::Util::Crc32(later.data(), 16);
    CMemoryStorage other(later.replace(16, 4, reinterpret_cast<const char*>(&checksum), 4));
    other.Seen = [&] { CHECK(left(other.Bytes) == Texts{}); };
    CHECK(Drain(other) == Texts{});
    // A length that runs into the next ones, up to the end or into the midst of one.
    const std::string all200 = SampleQueue(200, 0).Bytes;
    const Texts wanted =
        left(std::string(all200).erase(QueueHeaderSize, EncodeQueueRecord(NumberedQuery(0), 0).size()));
    for (std::uint32_t length : {2105U, 4000U, 4001U})
        CHECK(left(std::string(all200).replace(QueueHeaderSize, 4, reinterpret_cast<char*>(&length), 4)) ==
              wanted);
    for (std::size_t room = 0; room < second.size(); ++room)
    {
        CMemoryStorage full(good);
        full.Full = good.size() + room;
        CHECK(full.Append(NumberedQuery(2)) == Appended::Failed);
        CHECK(full.Bytes == good);
        CHECK(left(std::string(good).erase(begin + room, second.size() - room)) == others);
    }
}

TEST_CASE(
    "a file that a scanner holds for a while costs no event, nor do mutexes that can only be waited for")
{
    using namespace LS::System::Win32;
    const Tests::CTempFolder folder;
    PSECURITY_DESCRIPTOR onlyWaiting = nullptr;
    for (const wchar_t* rights : {L"D:(A;;0x100001;;;WD)", L"D:(A;;0x100000;;;WD)"})
    {
        REQUIRE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(rights, 1, &onlyWaiting, nullptr));
        SECURITY_ATTRIBUTES attributes = {sizeof(attributes), onlyWaiting, FALSE};
        const std::string name = "_LSAnalytics{98CA00B7-D428-47a8-8EBE-66ADA4179BB9}";
        const CKernelHandle queueMutex(::CreateMutexA(&attributes, FALSE, name.c_str())),
            uploadMutex(::CreateMutexA(&attributes, FALSE, (name + "_uld").c_str()));
        ::LocalFree(onlyWaiting);
        const auto queue = OpenQueue(folder.Path(L"AppData"));
        CHECK(queue->Append("a"));
        CFileHandle scanner(::CreateFileW(queue->Path().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                          OPEN_EXISTING, 0, nullptr));
        auto appended = std::async(std::launch::async, [&] { return queue->Append("b"); });
        CHECK(appended.wait_for(std::chrono::milliseconds(300)) == std::future_status::timeout);
        scanner.Reset();
        CHECK(appended.get());
        CQueueFile file(queue->Path());
        CHECK(Drain(file) == Texts{"a", "b"});
    }
}

TEST_CASE(
    "first runs at the same time make one visitor's id; the machine's id is kept, whatever else its file has")
{
    const Tests::CTempFolder folder;
    const std::wstring user = folder.Path(L"User\\Larkspur.ini"), machine = folder.Path(L"b.ini");
    std::vector<std::future<std::wstring>> ids;
    for (int i = 0; i < 8; ++i)
        ids.push_back(std::async(std::launch::async, [&] { return FindOrMakeVisitorId(user, machine); }));
    std::set<std::wstring> different;
    for (auto& id : ids)
        different.insert(id.get());
    CHECK(different.size() == 1);

    Tests::WriteBytes(machine, "[Main]\r\na=x\r\n[Analytics]\r\nb=y\r\nVisitorID=0f8fad5b-d9cb-469f-a165");
    CIniFile ini;
    ini.LoadFile(machine);
    CHECK(!ini.ContainsSectionName(L"Analytic"));
    for (const wchar_t* path : {machine.c_str(), L"", L"none.ini"}) // the second run has its own
        CHECK(FindOrMakeVisitorId(user + L"2", path) == L"0f8fad5b-d9cb-469f-a165");
}

TEST_CASE("the real file: an older one is moved once, one in use loses the event and nothing else")
{
    const Tests::CTempFolder folder(L"\u041E\u0447\u0435\u0440\u0435\u0434\u044C ");
    const std::wstring local = folder.Path(L"Local"), roaming = folder.Path(L"Roaming");
    const auto older = OpenQueue(local);
    CHECK(older->Append("older"));
    const auto queue = OpenQueue(roaming, local);
    CHECK(queue->Path() == roaming + L"\\Larkspur\\Analytics\\LSAnalytics.dat");
    {
        const LS::System::Win32::CFileHandle other(::CreateFileW(
            queue->Path().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
        CHECK(!queue->Append("lost"));
        CHECK(queue->GetFirst(nullptr).Kind == First::Failed);
    }
    CHECK(queue->Append("newer"));
    CHECK(older->Append("late"));
    OpenQueue(roaming, local); // never over one that is in use
    CQueueFile file(queue->Path()), old(older->Path());
    CHECK(Drain(file) == Texts{"older", "newer"});
    CHECK(Drain(old) == Texts{"late"});
}
