// The functions that start threads, the program's and those that libc makes to notify it. Each thread has its block and
// the runner's stack before the program's code runs on it.
#include <cerrno>
#include <mutex>
#include <new>

#include "sve/runner/preload/interpose.h"
#include "sve/runner/preload/kernel.h"
#include "sve/runner/preload/process.h"
#include "sve/runner/preload/signals.h"
#include "sve/runner/preload/thread_block.h"

#pragma GCC visibility push(default)

namespace {

using namespace sve::runner;

template <class Result>
Result start_thread(void* given) {
  auto* block = static_cast<ThreadBlock*>(given);
  const auto function = reinterpret_cast<Result (*)(void*)>(block->start);
  void* const argument = block->start_argument;
  if (this_thread_block) {
    // A signal came first.
    this_thread_block->blocked |= block->blocked;
    free_thread_block(block);
  } else {
    begin_thread(block);
  }
  set_blocked_signals(blocked_signals());  // what waits for a thread that takes it comes now
  return function(argument);
}

// Calls `create` with the function and the argument of a thread that begins with its block. `without_memory` is what it
// returns if there is no memory for that.
template <class Result, class Create>
int create_thread(Result (*function)(void*), void* argument, SignalBits blocked, int without_memory, Create create) {
  if (!is_active()) return create(function, argument);
  ThreadBlock* block = make_thread_block();
  if (!block) return without_memory;
  block->blocked = blocked;
  block->start = reinterpret_cast<void (*)()>(function);
  block->start_argument = argument;
  block->inherits_length = this_thread_block && this_thread_block->inherits_length;
  const int error = create(start_thread<Result>, block);
  if (error != 0) free_thread_block(block);
  return error;
}

// What libc is to call from a thread of its own, on which it has blocked everything. A notification may come as long as
// the process lives, so these are kept; there is one for each function and value.
struct Notification {
  void (*function)(sigval);
  sigval value;
  Notification* next;
};
Notification* notifications = nullptr;
SleepingLock notifications_lock;

void notify(sigval record) {
  const auto* call = static_cast<const Notification*>(record.sival_ptr);
  // Its first part takes the owned signals out of the kernel's mask.
  if (this_thread_block) {
    set_blocked_signals(blocked_signals() | kernel_mask(SIG_UNBLOCK, owned_signals));
  } else {
    need_thread_block();
  }
  call->function(call->value);
}

// Puts ours in the place of the program's function.
void wrap(sigevent* event) {
  if (!is_active() || !event || event->sigev_notify != SIGEV_THREAD || event->sigev_notify_function == notify) return;
  const SignalsBlocked signals;
  const std::lock_guard guard(notifications_lock);
  Notification* found = notifications;
  while (found &&
         (found->function != event->sigev_notify_function || found->value.sival_ptr != event->sigev_value.sival_ptr)) {
    found = found->next;
  }
  if (!found) {
    found = new (std::nothrow) Notification{event->sigev_notify_function, event->sigev_value, notifications};
    if (!found) return;
    notifications = found;
  }
  event->sigev_notify_function = notify;
  event->sigev_value.sival_ptr = found;
}

// A copy, for functions that take theirs as it is when they are called.
class WrappedEvent {
 public:
  explicit WrappedEvent(const sigevent* event) : given_(event != nullptr) {
    if (!event) return;
    copy_ = *event;
    wrap(&copy_);
  }
  sigevent* get() { return given_ ? &copy_ : nullptr; }

 private:
  bool given_;
  sigevent copy_;
};

}  // namespace

extern "C" {

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*function)(void*),
                   void* argument) noexcept {
  // A mask among the attributes is the whole of the new thread's; otherwise it inherits, from the kernel what it knows.
  sigset_t mask;
  const bool has_mask = attributes && pthread_attr_getsigmask_np(attributes, &mask) == 0;
  return create_thread(function, argument, has_mask ? 0 : blocked_signals(), EAGAIN,
                       [&](void* (*f)(void*), void* a) { return real.pthread_create(thread, attributes, f, a); });
}

int thrd_create(thrd_t* thread, thrd_start_t function, void* argument) {
  return create_thread(function, argument, blocked_signals(), thrd_nomem,
                       [&](thrd_start_t f, void* a) { return real.thrd_create(thread, f, a); });
}

int timer_create(clockid_t clock, sigevent* event, timer_t* timer) noexcept {
  return real.timer_create(clock, WrappedEvent(event).get(), timer);
}

int mq_notify(mqd_t queue, const sigevent* event) noexcept { return real.mq_notify(queue, WrappedEvent(event).get()); }

int getaddrinfo_a(int mode, gaicb* list[], int count, sigevent* event) {
  return real.getaddrinfo_a(mode, list, count, WrappedEvent(event).get());
}

// libc reads these control blocks again when the operation is done, so they are changed where they are.
int aio_read(aiocb* block) noexcept {
  wrap(&block->aio_sigevent);
  return real.aio_read(block);
}
int aio_write(aiocb* block) noexcept {
  wrap(&block->aio_sigevent);
  return real.aio_write(block);
}
int aio_fsync(int operation, aiocb* block) noexcept {
  wrap(&block->aio_sigevent);
  return real.aio_fsync(operation, block);
}
int lio_listio(int mode, aiocb* const list[], int count, sigevent* event) noexcept {
  for (int i = 0; i < count; ++i)
    if (list[i]) wrap(&list[i]->aio_sigevent);
  return real.lio_listio(mode, list, count, WrappedEvent(event).get());
}
int aio_read64(aiocb64*) noexcept __attribute__((alias("aio_read")));
int aio_write64(aiocb64*) noexcept __attribute__((alias("aio_write")));
int aio_fsync64(int, aiocb64*) noexcept __attribute__((alias("aio_fsync")));
int lio_listio64(int, aiocb64* const[], int, sigevent*) noexcept __attribute__((alias("lio_listio")));

}  // extern "C"
#pragma GCC visibility pop
