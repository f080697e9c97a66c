// What the predicate instruction functions share: the flag writer.
#pragma once

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
