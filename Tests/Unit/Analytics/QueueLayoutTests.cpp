#include "Tests/Unit/Analytics/MemoryStorage.h"

#include <doctest/doctest.h>

#include <initializer_list>

namespace
{
std::string Bytes(std::initializer_list<unsigned> values)
{
    std::string bytes;
    for (const unsigned value : values)
        bytes += static_cast<char>(value);
    return bytes;
}

using First = CQueueContents::First;
} // namespace

TEST_CASE("header and records, byte by byte")
{
    CMemoryStorage storage;
    CHECK(CQueueContents(storage).Append("123456789") == CQueueContents::Appended::Yes);
    // Checksums from an independent implementation: zlib's crc32 of "123456789\0", and of bytes 0 to 15.
    const std::string record =
        Bytes({30, 0, 0, 0, 20, 0, 0, 0, 0x49, 0x9E, 0xC4, 0x00, 0, 0, 0, 0, 0xF8, 0, 0, 0}) +
        Bytes({0xC9, 0xCA, 0xCB, 0xCC, 0xCD, 0xCE, 0xCF, 0xC0, 0xC1, 0xF8});
    CHECK(storage.Bytes ==
          Bytes({1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0xCE, 0xF1, 0xCA, 0x61}) + record);

    CHECK(CQueueContents(storage).Append("=") == CQueueContents::Appended::Yes);
    CHECK(storage.Bytes.substr(50) ==
          Bytes({22, 0, 0, 0, 20, 0, 0, 0, 0x41, 0x5A, 0x31, 0x2B, 1, 0, 0, 0, 0xF9, 0, 0, 0, 0xC4, 0xF9}));

    // A file of another writer, with a mask and a counter of its own: read, and the counter preserved.
    storage.Bytes = Bytes({1, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0, 7, 1, 0, 0, 0xDB, 0xB2, 0x6F, 0x43}) +
                    Bytes({30, 0, 0, 0, 20, 0, 0, 0, 0x49, 0x9E, 0xC4, 0x00, 6, 1, 0, 0, 0x55, 0, 0, 0}) +
                    Bytes({0x64, 0x67, 0x66, 0x61, 0x60, 0x63, 0x62, 0x6D, 0x6C, 0x55});
    const auto first = CQueueContents(storage).GetFirst();
    CHECK(first.Kind == First::Unsent);
    CHECK(first.Query == "123456789");
    CHECK(CQueueContents(storage).Append("=") == CQueueContents::Appended::Yes);
    CHECK(storage.Bytes.substr(4, 12) == Bytes({10, 0, 0, 0, 0, 0, 0, 0, 8, 1, 0, 0}));
}

TEST_CASE("of equal records each is sent, and a removal takes only the record that it names")
{
    CMemoryStorage storage;
    for (int i = 0; i < 3; ++i)
        CQueueContents(storage).Append("a");
    const auto first = CQueueContents(storage).GetFirst();
    CHECK(CQueueContents(storage).RemoveFirst(first.Key));
    CHECK(!CQueueContents(storage).RemoveFirst(first.Key));
    // A reader that knows nothing of the mark sees a record that fails its checksum.
    CHECK(storage.Bytes.substr(28, 4) != storage.Bytes.substr(50, 4));
    CHECK(Drain(storage) == std::vector<std::string>{"a", "a"});
    CHECK(storage.Bytes.size() == QueueHeaderSize);
}

TEST_CASE("what isn't a queue becomes an empty one")
{
    std::string good;
    {
        CMemoryStorage storage;
        CQueueContents(storage).Append("a");
        good = storage.Bytes;
    }
    std::string otherVersion = EncodeQueueHeader({1, 0, 1});
    otherVersion[0] = 2;
    std::string badChecksum = good;
    badChecksum[4] ^= 1;
    for (const std::string& bytes : {std::string(), good.substr(0, 19), std::string(5000, '\0'), badChecksum,
                                     otherVersion + good.substr(20), good + std::string(20u << 20, 'x')})
    {
        CMemoryStorage storage;
        storage.Bytes = bytes;
        CHECK(CQueueContents(storage).GetFirst().Kind == First::None);
        CHECK(storage.Bytes == EncodeQueueHeader({}));
        storage.Bytes = bytes;
        CQueueContents(storage).Append("b");
        CHECK(Drain(storage) == std::vector<std::string>{"b"});
    }
}

TEST_CASE("a query string of 2083 characters is sent; what can't be part of a URL is dropped")
{
    CMemoryStorage storage;
    const std::string longest(MaxQueryLength, 'x');
    for (const std::string& query :
         {longest + "x", std::string(), longest, std::string("a b"), std::string("a\r\nHost: b"),
          std::string("a#b"), std::string("a\0b", 3), std::string(1u << 20, 'y'), std::string("\xC3\xA9")})
        CHECK(CQueueContents(storage).Append(query) == CQueueContents::Appended::Yes);
    CHECK(Drain(storage) == std::vector<std::string>{longest, "\xC3\xA9"});
}

TEST_CASE("a record is appended while the file has at most 5 MiB, at the same cost as to an empty one")
{
    CMemoryStorage storage;
    CQueueContents(storage).Append("x");
    const std::uint64_t cost = storage.BytesMoved;
    const std::size_t recordSize = storage.Bytes.size() - QueueHeaderSize;

    for (const auto& [size, appended] : {std::pair{5242880u, CQueueContents::Appended::Yes},
                                         std::pair{5242881u, CQueueContents::Appended::Full}})
    {
        storage.Bytes.resize(QueueHeaderSize);
        storage.Bytes.resize(size, 'x');
        storage.BytesMoved = 0;
        CHECK(CQueueContents(storage).Append("x") == appended);
        CHECK(storage.BytesMoved <= cost + QueueHeaderSize);
        CHECK(storage.Bytes.size() == size + (appended == CQueueContents::Appended::Yes ? recordSize : 0));
    }
}

TEST_CASE("sending a queue moves a number of bytes in proportion to its length")
{
    double perByte[2] = {};
    for (const std::size_t mebibytes : {1, 4})
    {
        CMemoryStorage storage;
        while (storage.Bytes.size() < mebibytes << 20)
            CQueueContents(storage).Append(std::string(1000, 'x'));
        const double size = static_cast<double>(storage.Bytes.size());
        storage.BytesMoved = 0;
        CHECK(Drain(storage).size() > 1000 * mebibytes);
        perByte[mebibytes / 4] = static_cast<double>(storage.BytesMoved) / size;
    }
    CHECK(perByte[1] < perByte[0] * 1.1);
    CHECK(perByte[1] < 10);
}

TEST_CASE("a full disk refuses the record and leaves the queue as it was")
{
    CMemoryStorage storage;
    CQueueContents(storage).Append("a");
    const std::string before = storage.Bytes;
    for (std::uint64_t room = 0; room < 22; ++room)
    {
        storage.Full = before.size() + room;
        CHECK(CQueueContents(storage).Append("b") == CQueueContents::Appended::Failed);
        CHECK(storage.Bytes == before);
    }
    storage.Full = before.size() + 22;
    CHECK(CQueueContents(storage).Append("b") == CQueueContents::Appended::Yes);
}
