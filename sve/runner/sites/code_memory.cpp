#include "sve/runner/sites/code_memory.h"

#include <linux/membarrier.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <atomic>
#include <cstring>

#include "sve/runner/preload/kernel.h"
#include "sve/runner/sites/memory_map.h"

namespace sve::runner {
namespace {

constexpr std::size_t region_size = std::size_t{4} << 20;
constexpr std::size_t most_regions = 64;

struct Region {
  std::uintptr_t code = 0;      // executable here,
  std::uintptr_t writable = 0;  // writable here; 0: full, or the parent's
  std::size_t used = 0;
};

Region regions[most_regions];
std::atomic<std::size_t> region_count{0};
bool other_cores_told = false;

bool failed(long result) { return result < 0 && result > -4096; }

// A second view of shared memory, at a place whose own mapping it replaces.
long view_again(long memory, std::uintptr_t place) {
  return system_call(SYS_mremap, memory, 0, region_size, MREMAP_MAYMOVE | MREMAP_FIXED, static_cast<long>(place));
}

// The same for a kernel, or an emulator of one, that makes no second view of memory without a name. Beyond the limit on
// files this would be a signal.
long view_of_file(long memory, std::uintptr_t place) {
  rlimit limit{};
  system_call(SYS_prlimit64, 0, RLIMIT_FSIZE, 0, address(&limit));
  const long fd = limit.rlim_cur < region_size ? -1 : system_call(SYS_memfd_create, address("sve-run"), MFD_CLOEXEC);
  if (failed(fd)) return fd;
  long view = -1;
  if (system_call(SYS_ftruncate, fd, region_size) == 0 &&
      !failed(system_call(SYS_mmap, memory, region_size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, fd, 0)))
    view = system_call(SYS_mmap, static_cast<long>(place), region_size, PROT_READ, MAP_SHARED | MAP_FIXED, fd, 0);
  system_call(SYS_close, fd);
  return view;
}

// Takes the nearest gap. The program's other threads map memory meanwhile, and the kernel likes to put it into the same
// gap, so it is looked for again if it is taken.
long take_gap(std::uintptr_t near) {
  for (int tries = 0; tries < 16; ++tries) {
    const auto place = static_cast<long>(find_gap(near, region_size, branch_reach));
    if (place == 0) return -1;
    const long gap = system_call(SYS_mmap, place, region_size, PROT_NONE,
                                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED_NOREPLACE, -1, 0);
    if (gap == place) return gap;
    if (!failed(gap)) system_call(SYS_munmap, gap, region_size);
  }
  return -1;
}

// Both views of the same memory, or nothing.
bool make_region(std::uintptr_t near, Region& r) {
  // First the one that lies anywhere, so that it does not take the other's gap.
  const long writable =
      system_call(SYS_mmap, 0, region_size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (failed(writable)) return false;
  const long gap = take_gap(near);
  if (!failed(gap)) {
    const auto place = static_cast<std::uintptr_t>(gap);
    const bool seen_twice = !failed(view_again(writable, place)) || !failed(view_of_file(writable, place));
    if (seen_twice && system_call(SYS_mprotect, gap, region_size, PROT_READ | PROT_EXEC) == 0) {
      r = {place, static_cast<std::uintptr_t>(writable), 0};
      return true;
    }
    system_call(SYS_munmap, gap, region_size);
  }
  system_call(SYS_munmap, writable, region_size);
  return false;
}

bool reaches(const Region& r, std::uintptr_t near) {
  return near - r.code + branch_reach < 2 * branch_reach &&
         near - (r.code + region_size) + branch_reach < 2 * branch_reach;
}

}  // namespace

CodeSpace reserve_code(std::uintptr_t near, std::size_t words) {
  const std::size_t count = region_count.load(std::memory_order_relaxed);
  for (std::size_t i = 0; i < count; ++i) {
    const Region& r = regions[i];
    if (r.writable != 0 && reaches(r, near) && region_size - r.used >= 4 * words)
      return {r.code + r.used, (region_size - r.used) / 4};
  }
  if (count == most_regions || !make_region(near, regions[count])) return {};
  if (count == 0)
    other_cores_told = system_call(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED_SYNC_CORE, 0) == 0;
  region_count.store(count + 1, std::memory_order_release);
  return {regions[count].code, region_size / 4};
}

void commit_code(const CodeSpace& space, const std::uint32_t* words, std::size_t count) {
  for (Region& r : regions) {
    if (r.writable == 0 || r.code + r.used != space.address) continue;
    std::memcpy(reinterpret_cast<void*>(r.writable + r.used), words, 4 * count);
    synchronize_code(space.address, space.address + 4 * count);
    r.used += (4 * count + 15) & ~std::size_t{15};
    return;
  }
}

bool is_own_code(std::uintptr_t pc) {
  const std::size_t count = region_count.load(std::memory_order_acquire);
  for (std::size_t i = 0; i < count; ++i)
    if (pc - regions[i].code < region_size) return true;
  return false;
}

void leave_code_to_parent() {
  for (Region& r : regions) {
    if (r.writable == 0) continue;
    system_call(SYS_munmap, static_cast<long>(r.writable), region_size);
    r.writable = 0;
  }
}

void synchronize_code(std::uintptr_t from, std::uintptr_t to) {
  __builtin___clear_cache(reinterpret_cast<char*>(from), reinterpret_cast<char*>(to));
  if (other_cores_told) system_call(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED_SYNC_CORE, 0);
}

}  // namespace sve::runner
