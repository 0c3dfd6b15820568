// The GNU runtime's own handler for an exception that nobody catches prints the exception's type, and brings
// a reader for mangled names along: 60 KB for a line that no user of a window program sees. Defined here, it
// is not linked in.
#ifdef __GNUC__
#include <cstdlib>
#include <exception>

void __gnu_cxx::__verbose_terminate_handler()
{
    std::abort();
}
#endif
