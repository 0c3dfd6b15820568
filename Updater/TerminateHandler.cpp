// What the GNU run time brings for an exception that nobody catches, and what the C run time does in a
// program with windows, replaced for the program's own file.
#ifdef __GNUC__
#include <csignal>
#include <cstdlib>
#include <exception>

/// The default handler prints the exception's type, and brings a reader for mangled names along: 60 KB for a
/// line that no user of a window program sees. Defined here, it is not linked in.
void __gnu_cxx::__verbose_terminate_handler()
{
    std::abort();
}

/// The C run time's shows a message box before it raises the signal, and waits for the answer.
extern "C" void abort()
{
    std::raise(SIGABRT); // ends the process: see CrashEnd.h
    for (;;)
        std::_Exit(EXIT_FAILURE);
}
#endif
