#include "sve/runner/preload/copies.h"

#include <sys/mman.h>

#include <cerrno>

#include "sve/runner/preload/kernel.h"
#include "sve/runner/preload/thread_block.h"

#ifndef MADV_WIPEONFORK
#define MADV_WIPEONFORK 18
#endif

namespace sve::runner {
namespace {

// A page that is empty in a copy of the process and whole in a child that shares its memory.
volatile int* marker = nullptr;
bool is_wiped = false;
int process_id = 0;
void (*adopt_copy)() = nullptr;

// An emulator may answer every advice with success and follow none. There a copy is known by its process id, and a
// child in borrowed memory by vfork having been called.
constexpr int no_advice = 9999;
constexpr long page = 65536;  // of the largest size

void make_marker() {
  const long mapping = system_call(SYS_mmap, 0, page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping < 0 && mapping > -4096) return;
  is_wiped = system_call(SYS_madvise, mapping, page, no_advice) == -EINVAL &&
             system_call(SYS_madvise, mapping, page, MADV_WIPEONFORK) == 0;
  marker = reinterpret_cast<volatile int*>(mapping);
}

bool is_own_process() { return kernel_process_id() == process_id; }

bool is_vforked() { return this_thread_block && this_thread_block->is_vforked; }

}  // namespace

void begin_process() {
  if (!marker) make_marker();
  if (marker) *marker = 1;
  process_id = kernel_process_id();
}

bool copies_are_wiped() { return is_wiped; }

void wipe_in_copies(long begin, std::size_t size) {
  if (is_wiped) system_call(SYS_madvise, begin, static_cast<long>(size), MADV_WIPEONFORK);
}

bool in_borrowed_memory() {
  if (is_own_process()) return false;
  if (is_vforked() || (is_wiped && *marker)) return true;
  notice_copy();
  return false;
}

void notice_copy() {
  const bool may_be_copy = is_wiped ? *marker == 0 : !is_own_process() && !is_vforked();
  if (may_be_copy && adopt_copy) adopt_copy();
}

void when_copied(void (*adopt)()) { adopt_copy = adopt; }

}  // namespace sve::runner
