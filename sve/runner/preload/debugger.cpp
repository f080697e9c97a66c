#include "sve/runner/preload/debugger.h"

#include <fcntl.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "sve/runner/preload/kernel.h"
#include "sve/runner/preload/signals.h"
#include "sve/runner/preload/thread_block.h"
#include "sve/runner/sites/site.h"

extern "C" {
extern const char sve_entry_save[], sve_entry_leaving[], sve_entry_left[];
}

// The types of the registers as a debugger shows them. This file alone has debug information, and these are in it.
union sve_z_register {
  union {
    std::uint8_t u[sve::vector_bytes];
    std::int8_t s[sve::vector_bytes];
  } b;
  union {
    __fp16 f[sve::vector_bytes / 2];
    std::uint16_t u[sve::vector_bytes / 2];
    std::int16_t s[sve::vector_bytes / 2];
  } h;
  union {
    float f[sve::vector_bytes / 4];
    std::uint32_t u[sve::vector_bytes / 4];
    std::int32_t s[sve::vector_bytes / 4];
  } s;
  union {
    double f[sve::vector_bytes / 8];
    std::uint64_t u[sve::vector_bytes / 8];
    std::int64_t s[sve::vector_bytes / 8];
  } d;
};

// A flag an element: that of its lowest byte.
struct sve_p_register {
  std::uint8_t b[sve::vector_bytes], h[sve::vector_bytes / 2], s[sve::vector_bytes / 4], d[sve::vector_bytes / 8];
};

namespace sve::runner {
namespace {

volatile std::uint64_t end_is_near = 0;

}  // namespace

bool is_traced() {
  char text[512];
  const long fd = system_call(SYS_openat, AT_FDCWD, address("/proc/self/status"), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const long size = system_call(SYS_read, fd, address(text), sizeof text);
  system_call(SYS_close, fd);
  const std::string_view status(text, size > 0 ? static_cast<std::size_t>(size) : 0);
  constexpr std::string_view name = "TracerPid:\t";
  const std::size_t at = status.find(name);
  return at != status.npos && status.substr(at + name.size(), 2) != "0\n";
}

void death_is_near() { end_is_near = 1; }

}  // namespace sve::runner

#pragma GCC visibility push(default)
extern "C" {

using namespace sve::runner;

/// Read by gdb.py, which knows this order. All are words of 64 bits.
extern const struct sve_run_debugger_interface {
  std::uint64_t version = 2;
  ThreadBlock* const* blocks;
  std::uint64_t next = offsetof(ThreadBlock, next), thread_id = offsetof(ThreadBlock, thread_id),
                running = offsetof(ThreadBlock, running), used = offsetof(ThreadBlock, used_sve),
                state = offsetof(ThreadBlock, state);
  std::uint64_t x = offsetof(cpu_state, x), sp = offsetof(cpu_state, sp), nzcv = offsetof(cpu_state, nzcv),
                z = offsetof(cpu_state, z), p = offsetof(cpu_state, p), ffr = offsetof(cpu_state, ffr);
  EntryPlace* const* entries;
  const void* entry_count;
  std::uint64_t vector_bytes = sve::vector_bytes;
  std::uint64_t site_address = offsetof(Site, address), site_count = offsetof(Site, count);
  const char *save, *leaving, *left;
  const void* handler_return;
  const volatile void* end_is_near;
  bool (*debugged)();
  bool (*prepare)(std::uint32_t* from, std::uint32_t* to);
  // So that the types are described.
  sve_z_register* const z_type = nullptr;
  sve_p_register* const p_type = nullptr;
} sve_run_debugger;

constinit const sve_run_debugger_interface sve_run_debugger = {.blocks = &thread_blocks,
                                                               .entries = &entries,
                                                               .entry_count = &entry_count,
                                                               .save = sve_entry_save,
                                                               .leaving = sve_entry_leaving,
                                                               .left = sve_entry_left,
                                                               .handler_return = handler_return,
                                                               .end_is_near = &end_is_near,
                                                               .debugged = sites_are_debugged,
                                                               .prepare = prepare_sites};
}
#pragma GCC visibility pop
