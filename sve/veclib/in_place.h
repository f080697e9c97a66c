// The other representation of a routine's operands. An exported routine takes values, at any length; its body is
// compiled a second time, under the same name in this namespace, for registers of a `cpu_state` where they lie: vectors
// are not copied, and predicates stay bytes. A body names VectorV, PredV and CpuContext and means those of the
// namespace that it stands in.
#pragma once

#include "sve/lanes/repeat.h"
#include "sve/state/vector_length.h"
#include "sve/veclib/types.h"

#pragma GCC visibility push(hidden)

namespace sve::in_place {

/// A vector register: its `vector_bytes` bytes.
struct VectorV {
  byte* bytes;
};

/// A predicate register: one byte per vector byte, of which bit 0 counts. A result has bytes of 0 and 1 alone.
struct PredV {
  byte* bytes;
};

/// What a body sees of the state, and where its result goes.
struct CpuContext {
  std::uint32_t nzcv, fpsr, fpcr;
  PredV ffr;
  byte* destination;  ///< the register that is written, for results whose every element depends on its own place alone
  byte* result;       ///< for all others: the same, or `aside` where it is also a source
  byte* aside;        ///< room for a register, outside of this record, so that its members can be in registers
};

/// The shape of a routine that no handler calls and that has no body in place.
struct ByValue {};

namespace routine {
#define SVE_BY_VALUE_SHAPE(name, ...) using name = ByValue;
#include "sve/veclib/signatures.inc"
#undef SVE_BY_VALUE_SHAPE
}  // namespace routine

#define SVE_DECLARE_ROUTINE(shape, type, op) extern routine::shape Vec##type##op;
#define SVE_ROUTINES(shape, types, ...) SVE_FOR_EACH_PAIR(SVE_DECLARE_ROUTINE, shape, types, __VA_ARGS__)
#include "sve/veclib/routines.inc"
#undef SVE_ROUTINES
#undef SVE_DECLARE_ROUTINE

}  // namespace sve::in_place

#pragma GCC visibility pop
