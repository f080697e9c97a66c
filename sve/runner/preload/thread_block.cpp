#include "sve/runner/preload/thread_block.h"

#include <pthread.h>
#include <sys/mman.h>

namespace sve::runner {

thread_local thread_block* this_thread_block __attribute__((tls_model("initial-exec"))) = nullptr;

namespace {

// One mapping a thread: a guard page, the model's stack, the block. The model's stack is ours because the program's may
// have no room to spare: an SVE instruction takes none.
constexpr std::size_t guard_size = 65536;  // one page at the largest page size
constexpr std::size_t stack_size = 256 * 1024;
constexpr std::size_t mapping_size = guard_size + stack_size + ((sizeof(thread_block) + 65535) & ~std::size_t{65535});

pthread_key_t key;
thread_local int exit_rounds __attribute__((tls_model("initial-exec"))) = 0;

// Runs as the key's destructor. The other keys' destructors may still use SVE, so the block is kept until the last
// round.
void thread_ends(void* value) {
  if (++exit_rounds < 4) {  // PTHREAD_DESTRUCTOR_ITERATIONS
    pthread_setspecific(key, value);
    return;
  }
  const SignalsBlocked guard;
  this_thread_block = nullptr;
  auto* mapping = static_cast<std::byte*>(value) - stack_size - guard_size;
  system_call(SYS_munmap, address(mapping), mapping_size);
}

}  // namespace

thread_block* need_thread_block() {
  if (this_thread_block) return this_thread_block;
  const long mapping = system_call(SYS_mmap, 0, mapping_size, PROT_READ | PROT_WRITE,
                                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (mapping < 0 && mapping > -4096) return nullptr;
  auto* bytes = reinterpret_cast<std::byte*>(mapping);
  system_call(SYS_mprotect, mapping, guard_size, PROT_NONE);
  this_thread_block = reinterpret_cast<thread_block*>(bytes + guard_size + stack_size);  // the pages come zeroed
  // The key is one of the first, whose values lie in the thread's descriptor: this neither allocates nor locks.
  pthread_setspecific(key, this_thread_block);
  return this_thread_block;
}

void start_thread_blocks() { pthread_key_create(&key, thread_ends); }

}  // namespace sve::runner
