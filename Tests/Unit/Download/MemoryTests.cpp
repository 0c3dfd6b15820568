// Memory that a download's threads ask for in vain, at one moment after the other: whatever can't be kept,
// said or logged then, the owner who polls learns an end, and no thread takes the program along. A child
// process downloads, so that nobody else there allocates.
#include "Ls/System/String/Convert.h"
#include "Ls/System/Util/Log.h"
#include "Ls/System/Win32/Thread.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Soak.h"
#include "Tests/Unit/Download/DownloadRun.h"

#include <climits>
#include <cstdlib>
#include <new>

using namespace Tests;

namespace
{
/// Takes all memory before it ends by an exception.
struct CThrower : LS::System::Win32::CThreadFunction
{
    std::uint32_t Execute(LS::System::Win32::CThread&) override;
};

/// So many allocations succeed still, on all threads but one, and so many behind them fail.
std::atomic<long> g_Left{LONG_MAX}, g_Fails{0};
std::atomic<DWORD> g_Spared{0};

std::uint32_t CThrower::Execute(LS::System::Win32::CThread&)
{
    g_Left = 0;
    g_Fails = LONG_MAX;
    throw 5;
}
} // namespace

void* operator new(std::size_t size)
{
    if (g_Fails > 0 && ::GetCurrentThreadId() != g_Spared && --g_Left < 0 && g_Fails-- > 0)
        throw std::bad_alloc();
    if (void* const memory = std::malloc(size + 1))
        return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

TEST_CASE("child: downloads without memory" * doctest::skip())
{
    const std::string server = LS::WideToAnsi(_wgetenv(L"LS_TEST_INPUT"));
    const CTempFolder folder(L"dl-memory");
    LS::System::Util::CLog::Instance();
    g_Spared = ::GetCurrentThreadId();
    const auto thread = LS::System::MakeRef<LS::System::Win32::CThread>(LS::System::MakeRef<CThrower>());
    thread->ThreadStart("");
    thread->Stop();
    CHECK(thread->CapturedException()->Message() == L"Thread Execute Function");
    unsigned runs = 0;
    for (const char* target : {"/file", "/gone", "/refused"})
        for (const long fails : {1L, 3L, LONG_MAX})
            for (long left = 0, spare = 0; spare == 0; left += static_cast<long>(Loops(53, 1)))
            {
                const std::string row =
                    target + (", " + std::to_string(fails)) + " fail behind " + std::to_string(left);
                CAPTURE(row);
                const std::wstring path = folder.Path(std::to_wstring(runs));
                if (++runs % 2 == 0)
                    Interrupt(path, {0, 0}, Size);
                g_Spared = 0; // the constructor's thread as well
                g_Left = left;
                g_Fails = fails;
                try
                {
                    const CDownloadRun run(server + target, path, 0);
                    g_Spared = ::GetCurrentThreadId();
                    CHECK(WaitFor([&] { return run.Ended(); }, 60000));
                }
                catch (const std::bad_alloc&)
                {
                    // Nothing has begun.
                }
                spare = fails == g_Fails.exchange(0); // all has gone well, and there is nothing more to fail
            }
}

TEST_CASE("Whatever allocation fails, a download ends and tells so")
{
    CFaultServer server([](auto& request) {
        return (request.Target == "/file" ? Whole
                                          : Bare(request.Target == "/gone" ? "404 No" : "416 No"))(request);
    });
    const CChildProcess child(L"child: downloads without memory", LS::AnsiToWide(server.Url("")));
    CHECK(child.ExitCode(Loops(300000, 3000000)) == 0);
}
