// What the predicate instruction functions share: the flag writer.
#pragma once

#include "sve/lanes/compares.h"
#include "sve/state/cpu_state.h"

/// Writes N, Z, C and V of `nzcv` from a predicate in byte form under a mask: N is the result at the first element
/// active in the mask (0 with none), Z is set if no element is active in both, C is the inverse of the result at the
/// last active element (1 with none), V is 0. The element stride is the size of T, whose signedness has no effect. An
/// element's bit is bit 0 of its first byte; no other bit is looked at.
template <class T>
void sve_ptest(cpu_state* state, const char* mask, const char* result);

extern template void sve_ptest<signed char>(cpu_state*, const char*, const char*);
extern template void sve_ptest<short>(cpu_state*, const char*, const char*);
extern template void sve_ptest<int>(cpu_state*, const char*, const char*);
extern template void sve_ptest<long>(cpu_state*, const char*, const char*);
extern template void sve_ptest<unsigned char>(cpu_state*, const char*, const char*);
extern template void sve_ptest<unsigned short>(cpu_state*, const char*, const char*);
extern template void sve_ptest<unsigned int>(cpu_state*, const char*, const char*);
extern template void sve_ptest<unsigned long>(cpu_state*, const char*, const char*);

namespace sve {

/// Writes what was computed under a predicate, and the flags of that.
template <class T>
[[gnu::always_inline]] inline void write_with_flags(cpu_state* state, byte* dst, const byte* predicate,
                                                    ComputedPredicate<T>& result) {
  if (result.every_active) [[likely]] {
    state->nzcv = (state->nzcv & ~flag_mask) | result.flags_of_all();
  } else {
    byte aside[vector_bytes];  // the destination may be the predicate
    result.restrict_to(predicate);
    result.store(aside);
    sve_ptest<std::make_unsigned_t<T>>(state, reinterpret_cast<const char*>(predicate),
                                       reinterpret_cast<const char*>(aside));
  }
  result.store(dst);
}

}  // namespace sve
