#include "sve/runner/preload/thread_block.h"

#include <pthread.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstring>
#include <mutex>

#include "sve/runner/preload/copies.h"
#include "sve/runner/preload/loader.h"
#include "sve/runner/preload/process.h"
#include "sve/runner/sites/site.h"

namespace sve::runner {

thread_local ThreadBlock* this_thread_block __attribute__((tls_model("initial-exec"))) = nullptr;
ThreadBlock* thread_blocks = nullptr;

namespace {

// One mapping a thread: a guard page, the runner's stack, the block.
constexpr std::size_t guard_size = 65536;  // one page at the largest page size
constexpr std::size_t stack_size = 256 * 1024;
constexpr std::size_t block_offset = guard_size + stack_size;
constexpr std::size_t mapping_size = block_offset + thread_counts_offset + most_sites * sizeof(std::uint64_t);

pthread_key_t key;
SleepingLock list_lock;
ThreadBlock* main_block = nullptr;

// The Go runtime asks for alternate stacks, and sets masks, by system calls of its own, and would take the runner's
// stack for one that it is to use. So its threads get the runner's with their first signal, which comes on the stack
// that Go has set.
bool is_go = false;

std::byte* mapping_of(const ThreadBlock* block) {
  return reinterpret_cast<std::byte*>(const_cast<ThreadBlock*>(block)) - block_offset;
}

// The key's destructor, in the first round. Other destructors may still use SVE, so the block stays.
void thread_ends(void* value) { static_cast<ThreadBlock*>(value)->is_ending = true; }

bool is_gone(const ThreadBlock* block) {
  return block->is_ending && system_call(SYS_tgkill, kernel_process_id(), block->thread_id, 0) == -ESRCH;
}

void unmap(ThreadBlock* block) { system_call(SYS_munmap, address(mapping_of(block)), mapping_size); }

// Takes the blocks of threads that are gone off the list.
ThreadBlock* take_unused() {
  const std::lock_guard guard(list_lock);
  ThreadBlock* unused = nullptr;
  for (ThreadBlock** at = &thread_blocks; *at;) {
    ThreadBlock* block = *at;
    if (!is_gone(block)) {
      at = &block->next;
      continue;
    }
    *at = block->next;
    keep_counts_of(block);
    block->next = unused;
    unused = block;
  }
  return unused;
}

}  // namespace

void HeldSignals::hold(const siginfo_t& held) {
  const SignalBits own = bit(held.si_signo);
  if (present & own) return;
  info[place(held.si_signo)] = held;
  present |= own;
}

siginfo_t HeldSignals::take(SignalBits set) {
  for (int sig : {SIGILL, SIGBUS, SIGSEGV}) {
    if (!(present & set & bit(sig))) continue;
    present &= ~bit(sig);
    return info[place(sig)];
  }
  return {};
}

bool ThreadBlock::is_runner_stack(std::uintptr_t sp) const {
  const auto top = reinterpret_cast<std::uintptr_t>(this);
  return sp <= top && sp > top - stack_size;
}

stack_t runner_stack(const ThreadBlock* block) {
  stack_t stack{};
  stack.ss_sp = mapping_of(block) + guard_size;
  stack.ss_size = stack_size;
  return stack;
}

ThreadBlock* make_thread_block() {
  notice_copy();
  const SignalsBlocked signals;
  ThreadBlock* block = take_unused();
  if (block) {
    while (ThreadBlock* more = block->next) {
      block->next = more->next;
      unmap(more);
    }
    std::memset(static_cast<void*>(block), 0, sizeof *block);
  } else {
    const long mapping = system_call(SYS_mmap, 0, mapping_size, PROT_READ | PROT_WRITE,
                                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapping < 0 && mapping > -4096) return nullptr;
    system_call(SYS_mprotect, mapping, guard_size, PROT_NONE);
    // What a copy of the process executes before we know of it counts from nothing, too.
    wipe_in_copies(mapping + static_cast<long>(block_offset + thread_counts_offset),
                   mapping_size - block_offset - thread_counts_offset);
    block = reinterpret_cast<ThreadBlock*>(mapping + static_cast<long>(block_offset));  // the pages come zeroed
  }
  block->program_stack.ss_flags = SS_DISABLE;
  // Known before its thread begins, so that no thread is ever missed.
  const std::lock_guard guard(list_lock);
  block->next = thread_blocks;
  thread_blocks = block;
  return block;
}

void free_thread_block(ThreadBlock* block) {
  const SignalsBlocked signals;
  {
    const std::lock_guard guard(list_lock);
    ThreadBlock** at = &thread_blocks;
    while (*at != block) at = &(*at)->next;
    *at = block->next;
  }
  unmap(block);
}

void begin_thread(ThreadBlock* block) {
  block->thread_id = kernel_thread_id();
  block->blocked |= kernel_mask(SIG_UNBLOCK, owned_signals) & owned_signals;
  if (is_go) block->blocked = 0;
  const SignalsBlocked signals;
  const stack_t ours = runner_stack(block);
  stack_t before{};
  system_call(SYS_sigaltstack, is_go ? 0 : address(&ours), address(&before));
  if (!(before.ss_flags & SS_DISABLE)) block->program_stack = before;
  this_thread_block = block;
  // The key is one of the first, whose values lie in the thread's descriptor: this neither allocates nor locks.
  pthread_setspecific(key, block);
}

ThreadBlock* need_thread_block() {
  if (this_thread_block) return this_thread_block;
  if (!is_active()) return nullptr;
  // At the very start the loader lays out the main thread's variables once more.
  if (main_block && main_block->thread_id == kernel_thread_id()) return this_thread_block = main_block;
  ThreadBlock* block = make_thread_block();
  if (block) begin_thread(block);
  return block;
}

void for_each_thread_block(void (*body)(ThreadBlock* block, void* argument), void* argument) {
  const std::lock_guard guard(list_lock);
  for (ThreadBlock* block = thread_blocks; block; block = block->next) body(block, argument);
}

void wake_thread_for(int sig) {
  const std::lock_guard guard(list_lock);
  for (ThreadBlock* block = thread_blocks; block; block = block->next) {
    if (block == this_thread_block || block->is_ending || block->thread_id == 0) continue;
    if (!(block->waited_for & bit(sig)) && (block->blocked & bit(sig))) continue;
    block->woken |= bit(sig);
    if (system_call(SYS_tgkill, kernel_process_id(), block->thread_id, sig) == 0) return;
  }
}

bool has_other_threads() {
  const SignalsBlocked signals;
  const std::lock_guard guard(list_lock);
  for (const ThreadBlock* block = thread_blocks; block; block = block->next) {
    if (block != this_thread_block && !block->is_ending) return true;
  }
  return false;
}

void leave_guarded(ThreadBlock* block) {
  block->is_guarded = false;
  __builtin_longjmp(block->resume, 1);
}

void start_thread_blocks() {
  is_go = program_has_note_of("Go");
  pthread_key_create(&key, thread_ends);
  main_block = make_thread_block();
  if (main_block) begin_thread(main_block);
}

void lock_thread_blocks() { list_lock.lock(); }
void unlock_thread_blocks() { list_lock.unlock(); }

void keep_own_thread_block() {
  unlock_thread_blocks();
  ThreadBlock* own = this_thread_block;
  for (ThreadBlock* block = thread_blocks; block; block = block->next) block->is_ending = block != own;
  main_block = own;
  if (!own) return;
  own->thread_id = kernel_thread_id();
  own->held.present = 0;
}

}  // namespace sve::runner
