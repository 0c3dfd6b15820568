// The queue in real files. Not shown under Wine: a folder or file that is only readable (its user is root,
// whom nothing is denied); a file that another program holds stands for all that can't be opened.
#include "Tests/Support/TempFolder.h"
#include "Tests/Unit/Analytics/MemoryStorage.h"
#include "Updater/Analytics/AnalyticsQueue.h"
#include "Updater/Analytics/QueueFile.h"

#include <windows.h>

#include <doctest/doctest.h>

#include <random>

using namespace LS::System;
using Queries = std::vector<std::string>;

namespace
{
CRefPtr<CAnalyticsQueue> OpenQueue(const std::wstring& base, const std::wstring& older = L"")
{
    return MakeRef<CAnalyticsQueue>(base, older, L"LSAnalytics.dat");
}

Queries DrainFile(CAnalyticsQueue& queue)
{
    CQueueFile file(queue.Path());
    REQUIRE(file.IsOpen());
    return Drain(file);
}
} // namespace

TEST_CASE("the file lies below the application data, and its folders are made")
{
    const Tests::CTempFolder folder(L"\u041E\u0447\u0435\u0440\u0435\u0434\u044C ");
    const auto queue = OpenQueue(folder.Path());
    CHECK(queue->Path() == folder.Path(L"Larkspur\\Analytics\\LSAnalytics.dat"));
    CHECK(queue->Append("a"));
    CHECK(Tests::ReadBytes(queue->Path()) == EncodeQueueHeader({1, 0, 1}) + EncodeQueueRecord("a", 0));
    const auto first = queue->GetFirst(nullptr);
    CHECK(first.Query == "a");
    CHECK(queue->RemoveFirst(first.Key));
    CHECK(Tests::ReadBytes(queue->Path()) == EncodeQueueHeader({1, 0, 1}));
    CHECK(queue->GetFirst(nullptr).Kind == CQueueContents::First::None);

    // A tool may look at it meanwhile.
    const CQueueFile one(queue->Path()), other(queue->Path());
    CHECK((one.IsOpen() && other.IsOpen()));
}

TEST_CASE("a file that can't be used loses the event and nothing else")
{
    const Tests::CTempFolder folder;
    const auto queue = OpenQueue(folder.Path());
    REQUIRE(queue->Append("a"));
    {
        const Win32::CFileHandle other(::CreateFileW(queue->Path().c_str(), GENERIC_READ, FILE_SHARE_READ,
                                                     nullptr, OPEN_EXISTING, 0, nullptr));
        REQUIRE(other);
        CHECK(!queue->Append("lost"));
        CHECK(queue->GetFirst(nullptr).Kind == CQueueContents::First::Failed);
    }
    CHECK(queue->Append("b"));
    CHECK(DrainFile(*queue) == Queries{"a", "b"});

    // A file where the folder should be; a path that is too long.
    Tests::WriteBytes(folder.Path(L"file"), "x");
    CHECK(!OpenQueue(folder.Path(L"file"))->Append("lost"));
    CHECK(Tests::ReadBytes(folder.Path(L"file")) == "x");
    CHECK(!OpenQueue(folder.Path(std::wstring(250, L'x')))->Append("lost"));

    // A device that is always full.
    CQueueFile full(L"\\\\?\\unix\\dev\\full");
    if (full.IsOpen())
        CHECK(CQueueContents(full).Append("lost") == CQueueContents::Appended::Failed);
}

TEST_CASE("an older queue is moved once, and never over one that is in use")
{
    const Tests::CTempFolder folder;
    const auto older = OpenQueue(folder.Path(L"Local"));
    older->Append("older");
    const auto queue = OpenQueue(folder.Path(L"Roaming"), folder.Path(L"Local"));
    CHECK(!std::filesystem::exists(older->Path()));
    queue->Append("newer");
    older->Append("too late");
    OpenQueue(folder.Path(L"Roaming"), folder.Path(L"Local"));
    CHECK(std::filesystem::exists(older->Path()));
    CHECK(DrainFile(*queue) == Queries{"older", "newer"});
}

TEST_CASE("damaged files can be used again")
{
    const Tests::CTempFolder folder;
    const auto queue = OpenQueue(folder.Path());
    for (const char* query : {"a", "bb", "ccc", "dddd"})
        queue->Append(query);
    const std::string good = Tests::ReadBytes(queue->Path());
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round)
    {
        std::string bytes = good;
        for (int i = 0; i < 3; ++i)
            bytes[random() % bytes.size()] ^= static_cast<char>(1 << random() % 8);
        bytes.resize(bytes.size() - (round % 3 == 0 ? random() % bytes.size() : 0));
        Tests::WriteBytes(queue->Path(), bytes);
        CHECK(queue->Append("new"));
        const Queries left = DrainFile(*queue);
        REQUIRE(!left.empty());
        CHECK(left.back() == "new");
        CHECK(Tests::ReadBytes(queue->Path()).size() == QueueHeaderSize);
    }
}
