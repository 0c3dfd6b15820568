// What the analytics queue costs, as ratios taken in one run: appending to an empty and to a full queue, and
// sending queues of 1, 2 and 5 MiB, once without a network (the queue's own part) and once to a collector
// host that answers at once. Prints lines of a table.
#include "Bench/Clock.h"
#include "Tests/Support/FaultServer.h"
#include "Tests/Unit/Analytics/Machine.h"
#include "Updater/Analytics/AnalyticsSender.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>

using namespace LS::System;

namespace
{
constexpr double MiB = 1024 * 1024;
constexpr std::uint32_t LongMs = 3600000;

double Milliseconds(const std::function<void()>& action)
{
    const double begin = Now();
    action();
    return (Now() - begin) * 1000;
}

/// Makes the queue one of that many bytes, of the longest records that are sent, without the cost of
/// appending.
void Fill(const CAnalyticsQueue& queue, std::size_t size)
{
    const std::string query = "action=ev&data=" + std::string(MaxQueryLength - 15, 'x');
    std::string records;
    std::uint32_t count = 0;
    while (QueueHeaderSize + records.size() + MaxSendableRecordSize <= size)
        records += EncodeQueueRecord(query, count++);
    Tests::WriteBytes(queue.Path(), EncodeQueueHeader({count, 0, count}) + records);
}

/// Microseconds for one append to a queue of that many bytes: the best of five rounds.
double AppendCost(CAnalyticsQueue& queue, std::size_t size)
{
    constexpr int Records = 200;
    const std::string query(700, 'x'); // what an event of a run takes
    double best = 1e9;
    for (int round = 0; round < 5; ++round)
    {
        Fill(queue, size - std::min<std::size_t>(size, Records * (query.size() + 30)));
        best = std::min(best, Milliseconds([&] {
                            for (int i = 0; i < Records; ++i)
                                queue.Append(query);
                        }));
    }
    return best * 1000 / Records;
}

void TakeAll(CAnalyticsQueue& queue)
{
    for (;;)
    {
        const auto record = queue.GetFirst(nullptr);
        if (record.Kind != CQueueContents::First::Unsent || !queue.RemoveFirst(record.Key))
            return;
    }
}

/// Prints the times for three sizes and, for 2 and 5 MiB, the time per MiB over that of 1 MiB.
void PrintSending(const char* what, CAnalyticsQueue& queue, const std::function<void()>& send)
{
    double perMiB = 0;
    for (const int size : {1, 2, 5})
    {
        Fill(queue, static_cast<std::size_t>(size * MiB));
        const double time = Milliseconds(send);
        if (size == 1)
            perMiB = time;
        std::printf("| %s, %d MiB | %.0f ms | %.2f times 1 MiB's time per MiB |\n", what, size, time,
                    time / size / perMiB);
    }
}
} // namespace

int wmain()
{
    const CMachine machine;
    const auto queue = MakeRef<CAnalyticsQueue>(machine.Path(L"Roaming"), L"", L"LSAnalytics.dat");

    const double empty = AppendCost(*queue, 0);
    const double full = AppendCost(*queue, static_cast<std::size_t>(5 * MiB));
    std::printf("| append to an empty queue | %.0f us | |\n", empty);
    std::printf("| append to a queue of 5 MiB | %.0f us | %.2f times an empty one's |\n", full, full / empty);

    PrintSending("take out", *queue, [&] { TakeAll(*queue); });

    Tests::CFaultServer host([](const Tests::HttpRequest&) { return Tests::TextReply("", "text/html"); });
    const auto send = [&] {
        MakeRef<CAnalyticsSender>(queue, host.Url("/DataTracker.aspx"))->FlushAndStop(LongMs);
    };
    PrintSending("send", *queue, send);

    Fill(*queue, QueueHeaderSize + 10 * MaxSendableRecordSize);
    std::printf("| flush of ten records | %.0f ms | limit 5000 ms |\n", Milliseconds(send));
    return 0;
}
