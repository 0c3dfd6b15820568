/* Loaded into Wine's processes (LD_PRELOAD, see wine-env.sh): mends a fault of Wine 8's 32-bit half.
 *
 * A 32-bit thread reaches its own data through the segment register fs, Wine's Unix side reaches its data
 * through the same register's base. Wine swaps them at the begin and the end of each system call, and again
 * around its handler of SIGUSR1, which wineserver sends to a thread whose input or output has ended. But the
 * handler takes a thread for inside the call by its stack pointer, which changes some instructions before or
 * after fs: a signal between the two leaves the wrong one behind. The program then dies with a page fault at
 * FFFFFFFF in whatever uses fs next, about once in ten runs of the network tests on a busy machine.
 *
 * So the handler is wrapped: when it returns, fs is what it was when the signal came.
 *
 * Built by setup.sh for the machine itself. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <signal.h>
#include <stddef.h>

#include <asm/prctl.h>
#include <sys/syscall.h>

typedef int SigAction(int, const struct sigaction*, struct sigaction*);

static void (*wines_handler)(int, siginfo_t*, void*);

/* The C library's own would use fs for errno. */
static long arch_prctl(int code, unsigned long* value)
{
    long result;
    __asm__ volatile("syscall"
                     : "=a"(result)
                     : "0"((long)SYS_arch_prctl), "D"((long)code), "S"(value)
                     : "rcx", "r11", "memory");
    return result;
}

static unsigned long base(void)
{
    unsigned long value = 0;
    arch_prctl(ARCH_GET_FS, &value);
    return value;
}

static unsigned short selector(void)
{
    unsigned short value;
    __asm__ volatile("movw %%fs, %0" : "=r"(value));
    return value;
}

static void handler(int number, siginfo_t* information, void* context)
{
    const unsigned short old_selector = selector();
    const unsigned long old_base = base();

    wines_handler(number, information, context);

    if (selector() == old_selector && base() == old_base)
        return;
    if (old_selector != 0)
        __asm__ volatile("movw %0, %%fs" : : "r"(old_selector)); /* brings the base of its descriptor */
    if (base() != old_base)
        arch_prctl(ARCH_SET_FS, (unsigned long*)old_base);
}

int sigaction(int number, const struct sigaction* action, struct sigaction* old)
{
    SigAction* const real = (SigAction*)dlsym(RTLD_NEXT, "sigaction");
    if (number != SIGUSR1 || action == NULL || (action->sa_flags & SA_SIGINFO) == 0)
        return real(number, action, old);
    struct sigaction wrapped = *action;
    wines_handler = action->sa_sigaction;
    wrapped.sa_sigaction = handler;
    return real(number, &wrapped, old);
}
