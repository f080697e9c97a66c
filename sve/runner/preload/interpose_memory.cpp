// Changes of the program's mappings: code of ours may stand for what they change.
#include <sys/mman.h>

#include <cerrno>
#include <cstdarg>

#include "sve/runner/preload/copies.h"
#include "sve/runner/preload/interpose.h"
#include "sve/runner/preload/kernel.h"
#include "sve/runner/preload/process.h"
#include "sve/runner/sites/site.h"

#pragma GCC visibility push(default)

namespace {

using namespace sve::runner;

// What a system call returns, as libc gives it to a program.
long result_or_error(long result) {
  if (result >= 0 || result < -4095) return result;
  errno = static_cast<int>(-result);
  return -1;
}

void code_changes(const void* begin, std::size_t size, bool becomes_writable) {
  notice_copy();
  const auto from = without_tag(reinterpret_cast<std::uintptr_t>(begin));
  sites_change(from, from + size, becomes_writable);
}

void* as_pointer(long result) { return reinterpret_cast<void*>(result_or_error(result)); }

}  // namespace

extern "C" {

int mprotect(void* begin, std::size_t size, int protection) noexcept {
  if (!is_active()) return next<int(void*, std::size_t, int)>("mprotect")(begin, size, protection);
  code_changes(begin, size, (protection & PROT_WRITE) != 0);
  return static_cast<int>(
      result_or_error(system_call(SYS_mprotect, address(begin), static_cast<long>(size), protection)));
}

int pkey_mprotect(void* begin, std::size_t size, int protection, int key) noexcept {
  if (!is_active()) return next<int(void*, std::size_t, int, int)>("pkey_mprotect")(begin, size, protection, key);
  code_changes(begin, size, (protection & PROT_WRITE) != 0);
  return static_cast<int>(
      result_or_error(system_call(SYS_pkey_mprotect, address(begin), static_cast<long>(size), protection, key)));
}

int munmap(void* begin, std::size_t size) noexcept {
  if (!is_active()) return next<int(void*, std::size_t)>("munmap")(begin, size);
  code_changes(begin, size, false);
  return static_cast<int>(result_or_error(system_call(SYS_munmap, address(begin), static_cast<long>(size))));
}

void* mmap(void* begin, std::size_t size, int protection, int flags, int fd, off_t offset) noexcept {
  if (!is_active())
    return next<void*(void*, std::size_t, int, int, int, off_t)>("mmap")(begin, size, protection, flags, fd, offset);
  if (flags & MAP_FIXED) code_changes(begin, size, false);
  return as_pointer(system_call(SYS_mmap, address(begin), static_cast<long>(size), protection, flags, fd, offset));
}
void* mmap64(void* begin, std::size_t size, int protection, int flags, int fd, off_t offset) noexcept
    __attribute__((alias("mmap")));

void* mremap(void* begin, std::size_t size, std::size_t new_size, int flags, ...) noexcept {
  va_list list;
  va_start(list, flags);
  void* const to = flags & MREMAP_FIXED ? va_arg(list, void*) : nullptr;
  va_end(list);
  if (!is_active())
    return next<void*(void*, std::size_t, std::size_t, int, ...)>("mremap")(begin, size, new_size, flags, to);
  code_changes(begin, size, false);
  if (to) code_changes(to, new_size, false);
  return as_pointer(system_call(SYS_mremap, address(begin), static_cast<long>(size), static_cast<long>(new_size), flags,
                                address(to)));
}

}  // extern "C"
#pragma GCC visibility pop
