// Several processes on one queue, and processes that are ended at any point of their work.
#include "Tests/Support/CollectorHost.h"
#include "Tests/Support/Soak.h"
#include "Tests/Unit/Analytics/Machine.h"
#include "Tests/Unit/Analytics/Queues.h"
#include "Updater/Analytics/AnalyticsSender.h"

#include <doctest/doctest.h>

#include <list>
#include <random>
#include <set>

using namespace LS::System;
using Tests::CCollectorHost;

namespace
{
constexpr DWORD LongestMs = 300000; // only a hang takes this long

/// A child without standard streams; ended with this object.
class CChild
{
public:
    explicit CChild(const std::wstring& arguments)
    {
        const std::wstring program = std::filesystem::absolute(LS_ANALYTICS_CHILD).wstring();
        std::wstring line = L"\"" + program + L"\" " + arguments;
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION process{};
        REQUIRE(::CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, FALSE, DETACHED_PROCESS,
                                 nullptr, nullptr, &startup, &process));
        ::CloseHandle(process.hThread);
        m_Process.Reset(process.hProcess);
    }
    CChild(const CChild&) = delete;
    ~CChild()
    {
        ::TerminateProcess(m_Process.Get(), 99);
        ::WaitForSingleObject(m_Process.Get(), LongestMs);
    }
    DWORD Finish()
    {
        DWORD code = 0;
        ::WaitForSingleObject(m_Process.Get(), LongestMs);
        ::GetExitCodeProcess(m_Process.Get(), &code);
        return code;
    }

private:
    Win32::CKernelHandle m_Process;
};

std::wstring Arguments(const CMachine& machine, const wchar_t* mode, const CCollectorHost& host, unsigned tag,
                       unsigned count)
{
    return mode + (L" \"" + machine.Path(L"Roaming")) + L"\" " + LS::AnsiToWide(host.Endpoint()) + L" " +
           std::to_wstring(tag) + L" " + std::to_wstring(count);
}

/// Sends what is left, and returns the labels of everything that has arrived.
Texts Settle(const CMachine& machine, CCollectorHost& host)
{
    const auto queue = OpenQueue(machine.Path(L"Roaming"));
    MakeRef<CAnalyticsSender>(queue, host.Endpoint())->FlushAndStop(LongestMs);
    CHECK(std::filesystem::file_size(queue->Path()) == QueueHeaderSize);
    CHECK(host.Problems() == Texts{});
    return host.Labels();
}
} // namespace

TEST_CASE("processes that append and send at once: every record arrives exactly once")
{
    for (const unsigned processes : {2u, 4u})
    {
        const unsigned each = Tests::Loops(120, processes == 4 ? 5000 : 1000) / processes;
        const CMachine machine;
        CCollectorHost host;
        std::list<CChild> children;
        for (unsigned i = 0; i < processes; ++i)
            children.emplace_back(Arguments(machine, L"both", host, i, each));
        for (CChild& child : children)
            CHECK(child.Finish() == 0);
        const Texts labels = Settle(machine, host);
        CHECK(labels.size() == processes * each);
        CHECK(std::set(labels.begin(), labels.end()).size() == labels.size());
    }
}

TEST_CASE("processes ended at any point of their work: only the record in hand may be lost or sent twice")
{
    const CMachine machine;
    CCollectorHost host;
    std::mt19937 random(11);
    std::set<std::string> sure, possible;
    const unsigned rounds = Tests::Loops(20, 200);
    for (unsigned round = 0; round < rounds; ++round)
    {
        // The children work on while they are being ended, so the end comes anywhere in the next few steps.
        const std::wstring progress = machine.Path(L"Roaming\\" + std::to_wstring(round));
        {
            const CChild appender(Arguments(machine, L"append", host, round, 60));
            const std::size_t at = random() % 8;
            REQUIRE(Tests::WaitFor([&] { return Tests::ReadBytes(progress).size() > at; }));
            ::Sleep(random() % 3);
        }
        const std::size_t done = Tests::ReadBytes(progress).size();
        for (std::size_t i = 0; i <= done; ++i)
            (i < done ? sure : possible).insert(std::to_string(round) + "-" + std::to_string(i));
        const CChild sender(Arguments(machine, L"send", host, round + 1000, 0));
        REQUIRE(host.Server().WaitForRequests(
            static_cast<unsigned>(host.Labels().size() + 1 + random() % std::min<std::size_t>(done, 12))));
        ::Sleep(random() % 16);
        // Every other one in the middle of a removal, which begins with the record's mark.
        const std::wstring file = machine.Path(L"Roaming\\Larkspur\\Analytics\\LSAnalytics.dat");
        const std::string before = Tests::ReadBytes(file);
        for (const DWORD start = ::GetTickCount();
             round % 2 && Tests::ReadBytes(file) == before && ::GetTickCount() - start < 1000;)
            ::SwitchToThread();
    }
    const Texts labels = Settle(machine, host);
    std::set<std::string> once;
    unsigned twice = 0, apart = 0;
    for (std::size_t i = 0; i < labels.size(); ++i)
        if (!once.insert(labels[i]).second)
        {
            ++twice;
            apart +=
                labels[i] != labels[i - 1]; // the queue is in order, so the one in hand comes again at once
        }
    CHECK(apart == 0);
    CHECK(twice <= rounds);
    CHECK(std::includes(once.begin(), once.end(), sure.begin(), sure.end()));
    sure.merge(possible);
    CHECK(std::includes(sure.begin(), sure.end(), once.begin(), once.end()));
    MESSAGE(rounds << " rounds: " << labels.size() << " arrivals, " << twice << " of them twice");
}

TEST_CASE("a run whose collector host never answers ends within the flush limit, process and all")
{
    CMachine machine;
    CCollectorHost host([&](const Tests::HttpRequest&) {
        Tests::HttpReply reply = Tests::TextReply("", "text/html");
        reply.StallBeforeHead = true;
        return reply;
    });
    machine.SetDebug(L"AnalyticsHost", LS::AnsiToWide(host.Host()));
    CChild run(L"run partner session 3");
    REQUIRE(host.Server().WaitForRequests(1));
    const DWORD start = ::GetTickCount();
    CHECK(run.Finish() == 7);
    CHECK(::GetTickCount() - start < 5000 + 3000); // the flush, and a busy machine's end of a process
    host.Server().Release();
    CHECK(Settle(machine, host).size() >= 4); // the one in hand came twice
}
