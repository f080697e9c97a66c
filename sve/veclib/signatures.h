// The shapes of the vector library's routines. Vectors and predicates are read-only; the last operand is always the
// context; the result is returned. Scalars and immediates are 64 bits wide, signed where the element type is.
#pragma once

#include <cstdint>

#include "sve/veclib/types.h"

namespace sve::routine {

using vector = const VectorV&;
using predicate = const PredV&;
using context = CpuContext*;
using u64 = std::uint64_t;
using s64 = std::int64_t;

// Element-wise, merging: first vector (source of inactive elements), predicate, then the rest.
using vvm = VectorV(vector, predicate, vector, context);           // also unary: old destination, predicate, source
using vvvm = VectorV(vector, predicate, vector, vector, context);  // accumulator, predicate, two vectors
using vim = VectorV(vector, predicate, u64, context);              // also scalar and floating-point immediate
using vim_signed = VectorV(vector, predicate, s64, context);
using vvm_rotated = VectorV(vector, predicate, vector, u64, context);
using vvvm_rotated = VectorV(vector, predicate, vector, vector, u64, context);

// Element-wise, zeroing.
using vz = VectorV(predicate, vector, context);
using iz = VectorV(predicate, s64, context);

// Unpredicated.
using v = VectorV(vector, context);
using vvx = VectorV(vector, vector, context);
using vix = VectorV(vector, u64, context);
using vix_signed = VectorV(vector, s64, context);
using vvix = VectorV(vector, vector, u64, context);
using vvvx = VectorV(vector, vector, vector, context);
using vvvix = VectorV(vector, vector, vector, u64, context);
using vvvix_rotated = VectorV(vector, vector, vector, u64, u64, context);
using i = VectorV(u64, context);
using i_signed = VectorV(s64, context);
using ii_signed = VectorV(s64, s64, context);

// Selects and extracts: predicate first.
using pvv = VectorV(predicate, vector, vector, context);
using pv = VectorV(predicate, vector, context);
using pv_scalar = u64(predicate, vector, context);
using psv_scalar = u64(predicate, u64, vector, context);

// Compares.
using cmp_vv = PredV(predicate, vector, vector, context);
using cmp_vi = PredV(predicate, vector, u64, context);
using cmp_vi_signed = PredV(predicate, vector, s64, context);
using cmp_v0 = PredV(predicate, vector, context);

// Predicates.
using p = PredV(context);
using pp = PredV(predicate, context);
using ppp = PredV(predicate, predicate, context);
using pppp = PredV(predicate, predicate, predicate, context);
using pattern_p = PredV(u64, context);
using while_unsigned = PredV(u64, u64, context);
using while_signed = PredV(s64, s64, context);
using test = void(predicate, predicate, context);
using terminate = void(u64, u64, context);
using write_ffr = void(predicate, context);
using set_ffr = void(context);

// Element counts. The multiplier field is the raw field, one less than the multiplier.
using count = u64(u64, u64, context);              // pattern, multiplier field
using count_scalar = u64(u64, u64, u64, context);  // operand, pattern, multiplier field
using count_vector = VectorV(vector, u64, u64, context);
using count_p = u64(predicate, predicate, context);
using count_p_scalar = u64(predicate, u64, context);
using count_p_vector = VectorV(predicate, vector, context);
using length = u64(s64, context);
using add_length = u64(u64, s64, context);

// Memory. Addresses are host addresses.
using load_si = VectorV(predicate, u64, s64, context);  // predicate, base, immediate
using load_ss = VectorV(predicate, u64, u64, context);  // predicate, base, index
using store_si = void(predicate, u64, s64, vector, context);
using store_ss = void(predicate, u64, u64, vector, context);
using fill_v = VectorV(u64, s64, context);
using fill_p = PredV(u64, s64, context);
using spill_v = void(u64, s64, vector, context);
using spill_p = void(u64, s64, predicate, context);
using load2_si = void(predicate, u64, s64, VectorV&, VectorV&, context);
using load3_si = void(predicate, u64, s64, VectorV&, VectorV&, VectorV&, context);
using load4_si = void(predicate, u64, s64, VectorV&, VectorV&, VectorV&, VectorV&, context);
using load2_ss = void(predicate, u64, u64, VectorV&, VectorV&, context);
using load3_ss = void(predicate, u64, u64, VectorV&, VectorV&, VectorV&, context);
using load4_ss = void(predicate, u64, u64, VectorV&, VectorV&, VectorV&, VectorV&, context);
using store2_si = void(predicate, u64, s64, vector, vector, context);
using store3_si = void(predicate, u64, s64, vector, vector, vector, context);
using store4_si = void(predicate, u64, s64, vector, vector, vector, vector, context);
using store2_ss = void(predicate, u64, u64, vector, vector, context);
using store3_ss = void(predicate, u64, u64, vector, vector, vector, context);
using store4_ss = void(predicate, u64, u64, vector, vector, vector, vector, context);
using gather_vs = VectorV(predicate, vector, u64, context);  // vector and base register, or vector and immediate
using gather_sv = VectorV(predicate, u64, vector, context);  // base register and vector
using scatter_vs = void(predicate, vector, u64, vector, context);
using scatter_sv = void(predicate, u64, vector, vector, context);

}  // namespace sve::routine
