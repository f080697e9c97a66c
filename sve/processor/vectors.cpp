#include "sve/processor/vectors.h"

#include <sys/auxv.h>

namespace sve::processor {

unsigned widths;

void initialize() {
  if constexpr (exists) {
    constexpr unsigned long half = 1ul << 9 | 1ul << 10;  // HWCAP_FPHP and HWCAP_ASIMDHP
    widths = 4 | 8 | ((getauxval(AT_HWCAP) & half) == half ? 2 : 0);
  }
}

}  // namespace sve::processor
