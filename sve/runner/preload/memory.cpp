// Memory for the library's own containers. The trap may come from the program's malloc itself, so none of ours is used.
#include <sys/mman.h>

#include <cstddef>
#include <cstdlib>
#include <mutex>
#include <new>

#include "sve/runner/preload/kernel.h"

namespace {

using sve::runner::address;
using sve::runner::system_call;

constexpr std::size_t unit = 16;
constexpr std::size_t largest_small = 256;
constexpr std::size_t chunk_size = 256 * 1024;

struct FreeBlock {
  FreeBlock* next;
};

sve::runner::SleepingLock lock;
FreeBlock* free_lists[largest_small / unit + 1];
std::byte* chunk = nullptr;
std::size_t chunk_left = 0;

void* map(std::size_t size) {
  const long mapping =
      system_call(SYS_mmap, 0, static_cast<long>(size), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return mapping < 0 && mapping > -4096 ? nullptr : reinterpret_cast<void*>(mapping);
}

std::size_t rounded(std::size_t size) { return (size + unit - 1) & ~(unit - 1); }

void* allocate(std::size_t size) {
  size = rounded(size ? size : 1);
  if (size > largest_small) return map(size);
  const std::lock_guard guard(lock);
  if (FreeBlock* block = free_lists[size / unit]) {
    free_lists[size / unit] = block->next;
    return block;
  }
  if (chunk_left < size) {
    void* fresh = map(chunk_size);
    if (!fresh) return nullptr;
    chunk = static_cast<std::byte*>(fresh);
    chunk_left = chunk_size;
  }
  void* result = chunk;
  chunk += size;
  chunk_left -= size;
  return result;
}

void release(void* p, std::size_t size) {
  if (!p) return;
  size = rounded(size ? size : 1);
  if (size > largest_small) {
    system_call(SYS_munmap, address(p), static_cast<long>(size));
    return;
  }
  const std::lock_guard guard(lock);
  auto* block = static_cast<FreeBlock*>(p);
  block->next = free_lists[size / unit];
  free_lists[size / unit] = block;
}

}  // namespace

void* operator new(std::size_t size) {
  if (void* p = allocate(size)) return p;
#if defined(__cpp_exceptions)
  throw std::bad_alloc();
#endif
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete(void* p, std::size_t size) noexcept { release(p, size); }
// Without its size a block cannot be returned. Containers give the size; what else there is, is small and rare.
void operator delete(void*) noexcept {}

// The C++ runtime's own: a reserve for exceptions that it makes at the start.
extern "C" void* malloc(std::size_t size) { return allocate(size); }
extern "C" void free(void*) {}

// The library's objects live as long as the process: other libraries' destructors, which run after ours, may still
// execute SVE instructions. So the registrations that the compiler makes for our statics end here.
extern "C" __attribute__((visibility("hidden"))) int __cxa_atexit(void (*)(void*), void*, void*) { return 0; }
