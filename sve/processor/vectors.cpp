#include "sve/processor/vectors.h"

#if defined(__aarch64__)
#include <sys/auxv.h>
#endif

namespace sve::processor {

unsigned widths;

void initialize() {
  if constexpr (exists) widths = 4 | 8;
#if defined(__aarch64__)
  constexpr unsigned long half = 1ul << 9 | 1ul << 10;  // HWCAP_FPHP and HWCAP_ASIMDHP
  if ((getauxval(AT_HWCAP) & half) == half) widths |= 2;
#endif
}

}  // namespace sve::processor
