// The functions that ours stand in front of.
#pragma once

#include <aio.h>
#include <dlfcn.h>
#include <mqueue.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <setjmp.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/auxv.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/select.h>
#include <threads.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>

#include <cstdio>

extern "C" {
[[noreturn]] void __longjmp_chk(jmp_buf env, int value) noexcept(false);
int __ppoll_chk(struct pollfd* fds, nfds_t count, const struct timespec* timeout, const sigset_t* mask, size_t size);
int __cxa_at_quick_exit(void (*function)(void*), void* dso);
}

// clang-format off
#define SVE_INTERPOSED(X)                                                                                      \
  X(pthread_sigmask) X(__sigsetjmp) X(getcontext) X(setcontext) X(swapcontext) X(sigtimedwait) X(thrd_create)  \
  X(timer_create) X(mq_notify) X(getaddrinfo_a) X(aio_read) X(aio_write) X(aio_fsync) X(lio_listio) X(sysconf) \
  X(system) X(popen) X(sigpending) X(sigsuspend) X(pselect) X(ppoll) X(__ppoll_chk) X(epoll_pwait)             \
  X(epoll_pwait2) X(longjmp) X(_longjmp) X(siglongjmp) X(__longjmp_chk) X(pthread_create) X(execve) X(execvpe) \
  X(fexecve) X(execveat) X(posix_spawn) X(posix_spawnp) X(getauxval) X(prctl) X(clone)              \
  X(__cxa_at_quick_exit)
// clang-format on

namespace sve::runner {

/// The next definition of each after ours. Looked up once at start, since a look-up is nothing for a signal handler.
struct RealFunctions {
#define SVE_DECLARE(name) decltype(&::name) name;
  SVE_INTERPOSED(SVE_DECLARE)
#undef SVE_DECLARE
  int (*sigaction)(int sig, const struct sigaction* action, struct sigaction* old);
  int (*sigaltstack)(const stack_t* stack, stack_t* old);
  // These have no counterpart of ours.
  int (*cxa_atexit)(void (*function)(void*), void* argument, void* dso);
  const char* (*strerrordesc_np)(int error);
};

extern RealFunctions real;

/// The next definition of a function, for a library that is not active and passes everything on, to an active copy of
/// it perhaps.
template <class Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// Fills `real`. May be called again.
void find_real_functions();

}  // namespace sve::runner
