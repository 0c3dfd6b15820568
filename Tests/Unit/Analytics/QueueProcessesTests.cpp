// Several processes on one queue, and processes that are ended at any point of their work.
#include "Ls/System/String/Convert.h"
#include "Ls/System/Win32/Event.h"
#include "Tests/Support/CollectorHost.h"
#include "Tests/Support/Soak.h"
#include "Tests/Unit/Analytics/ChildProgress.h"
#include "Tests/Unit/Analytics/Machine.h"
#include "Tests/Unit/Analytics/MemoryStorage.h"
#include "Updater/Analytics/AnalyticsSender.h"
#include "Updater/Analytics/QueueFile.h"

#include <windows.h>

#include <doctest/doctest.h>

#include <atomic>
#include <climits>
#include <filesystem>
#include <memory>
#include <random>
#include <set>

using namespace LS::System;
using Tests::CCollectorHost;

namespace
{
/// A child with its progress; ended with this object.
class CChild
{
public:
    CChild(const CMachine& machine, const std::wstring& mode, const CCollectorHost& host,
           const std::string& tag, unsigned count, unsigned signalAt = 0)
    {
        static unsigned number = 0;
        const std::wstring shared = L"LsAnalyticsChild-" + std::to_wstring(::GetCurrentProcessId()) + L"-" +
                                    std::to_wstring(++number);
        m_Section.Reset(::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                             sizeof(ChildProgress), shared.c_str()));
        m_Progress =
            static_cast<volatile ChildProgress*>(::MapViewOfFile(m_Section.Get(), FILE_MAP_WRITE, 0, 0, 0));
        m_Reached.Reset(::CreateEventW(nullptr, TRUE, FALSE, (shared + L"-reached").c_str()));
        Start(mode + L" \"" + machine.Path(L"Roaming") + L"\" " + LS::AnsiToWide(host.Endpoint()) + L" " +
              LS::AnsiToWide(tag) + L" " + std::to_wstring(count) + L" " + shared + L" " +
              std::to_wstring(signalAt));
    }
    explicit CChild(const std::wstring& arguments) { Start(arguments); }
    CChild(const CChild&) = delete;
    ~CChild()
    {
        Kill();
        ::UnmapViewOfFile(const_cast<ChildProgress*>(m_Progress));
    }

    void Kill()
    {
        ::TerminateProcess(m_Process.Get(), 99);
        ::WaitForSingleObject(m_Process.Get(), INFINITE);
    }
    bool WaitUntilReached() const { return WaitFor(m_Reached.Get(), 60000); }
    /// The exit code; 98 when the child doesn't end.
    DWORD Finish(DWORD milliseconds)
    {
        DWORD code = 98;
        if (WaitFor(m_Process.Get(), milliseconds))
            ::GetExitCodeProcess(m_Process.Get(), &code);
        return code;
    }
    ChildProgress Progress() const { return {m_Progress->Begun, m_Progress->Done}; }

private:
    void Start(const std::wstring& arguments)
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
    static bool WaitFor(HANDLE handle, DWORD milliseconds)
    {
        return ::WaitForSingleObject(handle, milliseconds) == WAIT_OBJECT_0;
    }

    Win32::CKernelHandle m_Section, m_Reached, m_Process;
    volatile ChildProgress* m_Progress = nullptr;
};

constexpr DWORD LongestMs = 600000; // only a hang takes this long

/// Sends what is left, and returns the labels of everything that has arrived.
std::vector<std::string> Settle(const CMachine& machine, CCollectorHost& host)
{
    const auto queue = MakeRef<CAnalyticsQueue>(machine.Path(L"Roaming"), L"", L"LSAnalytics.dat");
    MakeRef<CAnalyticsSender>(queue, host.Endpoint())->FlushAndStop(LongestMs);
    CHECK(std::filesystem::file_size(queue->Path()) == QueueHeaderSize);
    CHECK(host.Problems() == std::vector<std::string>{});
    return host.Labels();
}
} // namespace

TEST_CASE("processes that append and send at once: every record arrives exactly once")
{
    for (const unsigned processes : {2u, 4u})
    {
        const unsigned each = Tests::Loops(120, processes == 4 ? 5000 : 1000) / processes;
        CMachine machine;
        CCollectorHost host;
        std::vector<std::unique_ptr<CChild>> children;
        for (unsigned i = 0; i < processes; ++i)
            children.push_back(std::make_unique<CChild>(machine, L"both", host, std::to_string(i), each));
        for (const auto& child : children)
            CHECK(child->Finish(LongestMs) == 0);
        const auto labels = Settle(machine, host);
        CHECK(labels.size() == processes * each);
        CHECK(std::set(labels.begin(), labels.end()).size() == processes * each);
    }
}

TEST_CASE(
    "processes ended while appending, sending and removing: only the record in hand may be lost or sent "
    "twice")
{
    const unsigned rounds = Tests::Loops(20, 200);
    CMachine machine;
    // Set when a request has come that a child is to be ended at; the answer waits for nothing.
    const Win32::CEvent requested(true, false);
    std::atomic<unsigned> endAtRequest{UINT_MAX};
    CCollectorHost host([&](const Tests::HttpRequest& request) {
        if (request.Index >= endAtRequest)
            requested.Set();
        return Tests::TextReply("", "text/html");
    });

    std::mt19937 random(11);
    std::set<std::string> sure, possible;
    unsigned endedSenders = 0;
    for (unsigned round = 0; round < rounds; ++round)
    {
        // The child works on while it is being ended, so the end comes anywhere in the next few steps.
        const std::string tag = std::to_string(round);
        const unsigned at = random() % 12;
        CChild appender(machine, L"append", host, tag, at + 4, at);
        REQUIRE(appender.WaitUntilReached());
        for (unsigned spin = random() % 300; spin > 0; --spin)
            ::SwitchToThread();
        appender.Kill();
        const ChildProgress progress = appender.Progress();
        REQUIRE(progress.Begun >= static_cast<long>(at));
        for (long i = 0; i < progress.Begun; ++i)
            (i < progress.Done ? sure : possible).insert(tag + "-" + std::to_string(i));

        requested.Reset();
        endAtRequest = static_cast<unsigned>(host.Server().Requests().size()) + random() % (at + 1);
        CChild sender(machine, L"send", host, tag, 0);
        endedSenders += requested.Wait(20000) == WAIT_OBJECT_0 ? 1 : 0;
        if (round % 2 == 0)
        {
            // In the middle of the removal that the answer leads to: it begins with the record's mark.
            CQueueFile file(machine.Queue());
            const auto header = DecodeQueueHeader(file.ReadAt(0, QueueHeaderSize).value_or(""));
            REQUIRE(header);
            const auto mark = [&] {
                return file.ReadAt(QueueHeaderSize + header->SentBytes + QueueRecordChecksumOffset, 4);
            };
            const auto before = mark();
            const DWORD start = ::GetTickCount();
            while (mark() == before && ::GetTickCount() - start < 20000)
                ::SwitchToThread();
        }
        for (unsigned spin = random() % 300; spin > 0; --spin)
            ::SwitchToThread();
        sender.Kill();
        endAtRequest = UINT_MAX;
    }
    const auto labels = Settle(machine, host);
    CHECK(endedSenders > rounds / 2);

    std::set<std::string> once;
    unsigned twice = 0, apart = 0, foreign = 0;
    for (std::size_t i = 0; i < labels.size(); ++i)
    {
        if (!once.insert(labels[i]).second)
        {
            ++twice;
            // The queue is in order, so the one in hand comes again at once.
            apart += labels[i] != labels[i - 1] ? 1 : 0;
        }
        foreign += sure.count(labels[i]) + possible.count(labels[i]) == 0 ? 1 : 0;
    }
    CHECK(apart == 0);
    CHECK(foreign == 0);
    CHECK(twice <= rounds);
    for (const std::string& label : sure)
        CHECK(once.count(label) == 1);
    MESSAGE(rounds << " rounds: " << labels.size() << " arrivals, " << twice << " of them twice, "
                   << endedSenders << " senders ended at work");
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
    CHECK(run.Finish(LongestMs) == 7);
    CHECK(::GetTickCount() - start < 5000 + 3000); // the flush, and a busy machine's end of a process

    host.Server().Release();
    const auto labels = Settle(machine, host);
    CHECK(labels.size() >= 4); // the one in hand came twice
}
