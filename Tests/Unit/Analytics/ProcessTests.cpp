// Several processes on one queue, and processes that are ended at any point of their work.
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Platform.h"
#include "Tests/Support/Soak.h"
#include "Tests/Support/WaitFor.h"
#include "Tests/Unit/Analytics/Fixture.h"

#include <random>
#include <set>
#include <sstream>

TEST_SUITE_BEGIN(Tests::NeedsAdministrator());

namespace
{
/// append: count records with the labels TAG-0, TAG-1, ...; both: the same, sending meanwhile; send: only
/// sends. The application data are the machine's. For each record that is in the queue the file TAG grows by
/// a byte.
std::wstring Input(const CHostedMachine& machine, const wchar_t* mode, unsigned tag, unsigned count)
{
    return mode + (L' ' + std::to_wstring(tag) + L' ' + std::to_wstring(count) + L' ') +
           LS::AnsiToWide(machine.Host.Endpoint()) + L' ' + machine.Path(L"AppData");
}

/// For what is broken only: on a busy machine a child starts late, a wait for the queue may pass its five
/// seconds, and a request may fail.
constexpr std::uint32_t LongestMs = 300000;

/// Waits until the child has done that or ended well; else the failure tells its code (259: it still runs).
void Await(const Tests::CChildProcess& child, const std::function<bool()>& done)
{
    const bool isDone =
        Tests::WaitFor([&] { return done() || child.ExitCode(0) != STILL_ACTIVE; }, LongestMs);
    const DWORD code = child.ExitCode(0);
    REQUIRE_MESSAGE((isDone && (code == STILL_ACTIVE || code == 0)), "the child's exit code: " << code);
}

/// Sends what is left, and returns the labels of everything that has arrived.
Texts Settle(CHostedMachine& machine)
{
    const auto isSent = [&] {
        Flush(machine.Queue, machine.Host.Endpoint());
        return Tests::ReadBytes(machine.Queue->Path()).size() == QueueHeaderSize;
    };
    CHECK(Tests::WaitFor(isSent, LongestMs));
    CHECK(machine.Host.Problems() == Texts{});
    return machine.Host.Labels();
}
} // namespace

TEST_CASE("child: appends and sends" * doctest::skip())
{
    std::wistringstream input(_wgetenv(L"LS_TEST_INPUT"));
    std::wstring mode, tag, endpoint, base;
    unsigned count = 0;
    std::getline(input >> mode >> tag >> count >> endpoint >> std::ws, base);
    const LS::System::Win32::CFileHandle progress(::CreateFileW(
        (base + L"\\" + tag).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr));
    const LS::System::Win32::CEvent go(L"LsAnalyticsTests-go", true, false);
    CHECK((mode != L"both" || go.Wait(LongestMs) == WAIT_OBJECT_0));
    const auto queue = OpenQueue(base);
    const auto sender = MakeRef<CAnalyticsSender>(queue, LS::WideToAnsi(endpoint));
    for (unsigned i = 0; i < count; ++i)
    {
        DWORD written = 0;
        const std::string query = QueryOf(LS::WideToAnsi(tag) + "-" + std::to_string(i));
        REQUIRE(Tests::WaitFor([&] { return queue->Append(query); }));
        REQUIRE(::WriteFile(progress.Get(), "x", 1, &written, nullptr));
        if (mode == L"both")
            sender->EnsureRunning(SenderSettings());
    }
    if (mode != L"append")
        sender->FlushAndStop(LongestMs);
}

TEST_CASE("processes that append and send at once: every record arrives exactly once")
{
    constexpr unsigned processes = 4;
    const unsigned each = Tests::Loops(30, 1250);
    CHostedMachine machine;
    const LS::System::Win32::CEvent go(L"LsAnalyticsTests-go", true, false);
    std::list<Tests::CChildProcess> children;
    for (unsigned i = 0; i < processes; ++i)
    {
        const auto& child = children.emplace_back(L"child: appends*", Input(machine, L"both", i, each));
        Await(child,
              [&] { return std::filesystem::exists(machine.Path(L"AppData\\" + std::to_wstring(i))); });
    }
    go.Set();
    for (const auto& child : children)
        CHECK(child.ExitCode() == 0);
    const Texts labels = Settle(machine);
    CHECK(labels.size() == processes * each);
    CHECK(std::set(labels.begin(), labels.end()).size() == labels.size());
}

TEST_CASE("processes ended at any point of their work: only the record in hand may be lost or sent twice")
{
    CHostedMachine machine;
    std::mt19937 random(11);
    std::set<std::string> sure, possible;
    const unsigned rounds = Tests::Loops(20, 200);
    for (unsigned round = 0; round < rounds; ++round)
    {
        // The children work on while they are being ended, so the end comes anywhere in the next few steps.
        const std::wstring progress = machine.Path(L"AppData\\" + std::to_wstring(round));
        {
            const Tests::CChildProcess appender(L"child: appends*", Input(machine, L"append", round, 60));
            const std::size_t wanted = 1 + random() % 8;
            Await(appender, [&] { return Tests::ReadBytes(progress).size() >= wanted; });
            ::Sleep(random() % 3);
        }
        const std::size_t done = Tests::ReadBytes(progress).size();
        for (std::size_t i = 0; i <= done; ++i)
            (i < done ? sure : possible).insert(std::to_string(round) + "-" + std::to_string(i));
        const Tests::CChildProcess sender(L"child: appends*", Input(machine, L"send", round + 1000, 0));
        const std::size_t wanted =
            machine.Host.Labels().size() + 1 + random() % std::min<std::size_t>(done, 12);
        Await(sender, [&] { return machine.Host.Labels().size() >= wanted; });
        ::Sleep(random() % 16);
    }
    Texts labels = Settle(machine);
    const std::set<std::string> once(labels.begin(), labels.end());
    CHECK(labels.size() <= once.size() + rounds);
    // The queue is in order, so the one in hand comes again at once.
    labels.erase(std::unique(labels.begin(), labels.end()), labels.end());
    CHECK(labels.size() == once.size());
    CHECK(std::includes(once.begin(), once.end(), sure.begin(), sure.end()));
    sure.merge(possible);
    CHECK(std::includes(sure.begin(), sure.end(), once.begin(), once.end()));
}
