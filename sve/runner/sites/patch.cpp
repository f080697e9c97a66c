#include "sve/runner/sites/patch.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <atomic>

#include "sve/runner/preload/descriptors.h"
#include "sve/runner/preload/kernel.h"
#include "sve/runner/preload/thread_block.h"
#include "sve/runner/sites/code_memory.h"
#include "sve/runner/sites/memory_map.h"

namespace sve::runner {
namespace {

constexpr std::uintptr_t page_mask = 4095;

// The process's memory as a file: what is written there lies in a private copy of the page, whatever its protection. An
// emulator may go on executing what it has translated, since nothing tells it.
KeptFile memory_file;
bool file_is_seen = false;

bool write_through_file(std::uint32_t* at, std::uint32_t word) {
  const int fd = memory_file.get();
  return fd >= 0 && system_call(SYS_pwrite64, fd, address(&word), sizeof word, address(at)) == sizeof word;
}

// The page that write_through_mapping changes now, 0 if none.
std::atomic<std::uintptr_t> page_in_work{0};
std::atomic<unsigned> works{0};  // how often there was one
int worker = 0;                  // the process that does it

// For the moment of writing the page cannot be executed; a thread that meets that tries again.
bool write_through_mapping(std::uint32_t* at, std::uint32_t word) {
  Mapping m;
  const auto place = reinterpret_cast<std::uintptr_t>(at);
  if (!find_code_mapping(place, m)) return false;
  const long page = static_cast<long>(place & ~page_mask);
  worker = kernel_process_id();
  page_in_work.store(place & ~page_mask);
  ++works;
  const long size = page_mask + 1;
  if (!m.writable && system_call(SYS_mprotect, page, size, PROT_READ | PROT_WRITE) != 0) {
    page_in_work.store(0);
    return false;
  }
  std::atomic_ref(*at).store(word, std::memory_order_release);
  if (!m.writable) {
    const long protection = (m.readable ? PROT_READ : 0) | (m.executable ? PROT_EXEC : 0);
    system_call(SYS_mprotect, page, size, protection);
  }
  page_in_work.store(0);
  return true;
}

// Executes a function, changes it through the file, and executes it again.
bool probe_file() {
  const std::uint32_t code[] = {0x52800020, 0xd65f03c0};  // mov w0, #1; ret
  const std::uint32_t changed = 0x52800040;               // mov w0, #2
  const long page = system_call(SYS_mmap, 0, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (page < 0 && page > -4096) return false;
  auto* words = reinterpret_cast<std::uint32_t*>(page);
  words[0] = code[0];
  words[1] = code[1];
  bool seen = false;
  if (system_call(SYS_mprotect, page, 4096, PROT_READ | PROT_EXEC) == 0) {
    auto* const function = reinterpret_cast<int (*)()>(page);
    const auto begin = static_cast<std::uintptr_t>(page);
    synchronize_code(begin, begin + sizeof code);
    if (function() == 1 && write_through_file(words, changed)) {
      synchronize_code(begin, begin + sizeof code);
      seen = function() == 2;
    }
  }
  system_call(SYS_munmap, page, 4096);
  return seen;
}

}  // namespace

void start_patching() {
  const long fd = system_call(SYS_openat, AT_FDCWD, address("/proc/self/mem"), O_RDWR | O_CLOEXEC);
  if (fd >= 0) memory_file.take(static_cast<int>(fd));
  file_is_seen = fd >= 0 && probe_file();
}

// What the process's mappings say is not asked: an emulator's list of them may leave out one that another thread is
// changing.
bool may_try_again(TriedAgain& last, std::uintptr_t pc) {
  if (file_is_seen) return false;
  const std::uintptr_t page = pc & ~page_mask;
  unsigned seen = works.load();
  for (unsigned waits = 0; page_in_work.load() == page; ++waits) {
    if (waits > 1000 && worker != kernel_process_id()) {
      // A copy of the process that no handler of ours told of, made in that very moment (emulators make one for vfork):
      // nobody will finish here.
      system_call(SYS_mprotect, static_cast<long>(page), page_mask + 1, PROT_READ | PROT_EXEC);
      page_in_work.store(0);
    }
    system_call(SYS_sched_yield);
    seen = works.load();
  }
  // What is over by now cannot make this place fault once more.
  const bool is_answer = last.pc == pc && last.works == seen;
  last = {pc, seen};
  return seen != 0 && !is_answer;
}

bool patch_word(std::uint32_t* at, std::uint32_t from, std::uint32_t to) {
  if (std::atomic_ref(*at).load(std::memory_order_relaxed) != from) return false;
  if (!(file_is_seen ? write_through_file(at, to) : write_through_mapping(at, to))) return false;
  const auto begin = reinterpret_cast<std::uintptr_t>(at);
  synchronize_code(begin, begin + sizeof to);
  return true;
}

}  // namespace sve::runner
