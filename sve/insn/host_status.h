// The host's floating-point status register, where the host is AArch64.
#pragma once

#include <cstdint>

#include "sve/state/cpu_state.h"

namespace sve {

/// `fpsr` takes the host's FPSR whole. On other hosts the floating-point functions accumulate into `fpsr` themselves.
inline void read_host_status([[maybe_unused]] cpu_state* state) {
#if defined(__aarch64__)
  std::uint64_t fpsr;
  asm volatile("mrs %0, fpsr" : "=r"(fpsr));
  state->fpsr = static_cast<std::uint32_t>(fpsr);
#endif
}

}  // namespace sve
