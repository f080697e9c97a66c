// Stamping routine definitions over element types. `SVE_DEFINE_VVM(AddVVM, merging<T>(a, p, b, ctx, sum), U8, U16)`
// defines VecU8AddVVM and VecU16AddVVM, whose bodies return the given expression with T the element type and the
// operands under the names below, for both representations. An expression with commas outside parentheses goes into
// parentheses of its own.
#pragma once

#include "sve/veclib/elements.h"
#include "sve/veclib/routines.h"

#define SVE_DEFINE(result, parameters, op, expression, ...) \
  SVE_FOR_EACH_WITH(SVE_DEFINE_EACH, (result, parameters, op, expression), __VA_ARGS__)
#define SVE_DEFINE_EACH(with, type) SVE_DEFINE_1(type, SVE_UNWRAP with)
#define SVE_DEFINE_1(...) SVE_DEFINE_2(__VA_ARGS__)
#define SVE_DEFINE_2(type, result, parameters, op, expression) \
  SVE_IN_BOTH(result Vec##type##op parameters {                \
    using T [[maybe_unused]] = sve::element::type;             \
    return expression;                                         \
  })

// The definitions for values, and once more for registers in place. The build says which of them an object holds: those
// for values are the same at every vector length.
#define SVE_IN_BOTH(...) SVE_FOR_VALUES(__VA_ARGS__) SVE_FOR_REGISTERS(__VA_ARGS__)
#ifdef SVE_STAMPS_VALUES
#define SVE_FOR_VALUES(...) __VA_ARGS__
#else
#define SVE_FOR_VALUES(...)
#endif
#ifdef SVE_STAMPS_REGISTERS
#define SVE_FOR_REGISTERS(...) \
  namespace sve::in_place {    \
  __VA_ARGS__                  \
  }
#else
#define SVE_FOR_REGISTERS(...)
#endif

// The element types of most routines.
#define UNSIGNED_TYPES U8, U16, U32, U64
#define SIGNED_TYPES S8, S16, S32, S64
#define INTEGER_TYPES UNSIGNED_TYPES, SIGNED_TYPES
#define FP_TYPES F16, F32, D64

#define SVE_IN_V(name) [[maybe_unused]] const VectorV& name
#define SVE_IN_P(name) [[maybe_unused]] const PredV& name
#define SVE_IN_U(name) [[maybe_unused]] std::uint64_t name
#define SVE_IN_S(name) [[maybe_unused]] std::int64_t name
#define SVE_CTX [[maybe_unused]] CpuContext* ctx

// Merging: a is the first operand or old destination, p the predicate.
#define SVE_DEFINE_VVM(...) SVE_DEFINE(VectorV, (SVE_IN_V(a), SVE_IN_P(p), SVE_IN_V(b), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_VVVM(...) \
  SVE_DEFINE(VectorV, (SVE_IN_V(a), SVE_IN_P(p), SVE_IN_V(b), SVE_IN_V(c), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_VIM(...) SVE_DEFINE(VectorV, (SVE_IN_V(a), SVE_IN_P(p), SVE_IN_U(imm), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_VIM_SIGNED(...) SVE_DEFINE(VectorV, (SVE_IN_V(a), SVE_IN_P(p), SVE_IN_S(imm), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_VVM_ROTATED(...) \
  SVE_DEFINE(VectorV, (SVE_IN_V(a), SVE_IN_P(p), SVE_IN_V(b), SVE_IN_U(rotation), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_VVVM_ROTATED(...) \
  SVE_DEFINE(VectorV, (SVE_IN_V(a), SVE_IN_P(p), SVE_IN_V(b), SVE_IN_V(c), SVE_IN_U(rotation), SVE_CTX), __VA_ARGS__)
// Zeroing.
#define SVE_DEFINE_PV(...) SVE_DEFINE(VectorV, (SVE_IN_P(p), SVE_IN_V(a), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_PI_SIGNED(...) SVE_DEFINE(VectorV, (SVE_IN_P(p), SVE_IN_S(imm), SVE_CTX), __VA_ARGS__)
// Unpredicated.
#define SVE_DEFINE_V(...) SVE_DEFINE(VectorV, (SVE_IN_V(a), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_VV(...) SVE_DEFINE(VectorV, (SVE_IN_V(a), SVE_IN_V(b), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_VVV(...) SVE_DEFINE(VectorV, (SVE_IN_V(a), SVE_IN_V(b), SVE_IN_V(c), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_VI(...) SVE_DEFINE(VectorV, (SVE_IN_V(a), SVE_IN_U(imm), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_VI_SIGNED(...) SVE_DEFINE(VectorV, (SVE_IN_V(a), SVE_IN_S(imm), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_VVI(...) SVE_DEFINE(VectorV, (SVE_IN_V(a), SVE_IN_V(b), SVE_IN_U(imm), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_VVVI(...) \
  SVE_DEFINE(VectorV, (SVE_IN_V(a), SVE_IN_V(b), SVE_IN_V(c), SVE_IN_U(imm), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_VVVI_ROTATED(...) \
  SVE_DEFINE(VectorV, (SVE_IN_V(a), SVE_IN_V(b), SVE_IN_V(c), SVE_IN_U(rotation), SVE_IN_U(imm), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_I(...) SVE_DEFINE(VectorV, (SVE_IN_U(imm), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_I_SIGNED(...) SVE_DEFINE(VectorV, (SVE_IN_S(imm), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_II_SIGNED(...) SVE_DEFINE(VectorV, (SVE_IN_S(start), SVE_IN_S(step), SVE_CTX), __VA_ARGS__)
// Selects and extracts: the predicate first.
#define SVE_DEFINE_PVV(...) SVE_DEFINE(VectorV, (SVE_IN_P(p), SVE_IN_V(a), SVE_IN_V(b), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_PV_SCALAR(...) SVE_DEFINE(std::uint64_t, (SVE_IN_P(p), SVE_IN_V(a), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_PSV_SCALAR(...) \
  SVE_DEFINE(std::uint64_t, (SVE_IN_P(p), SVE_IN_U(scalar), SVE_IN_V(a), SVE_CTX), __VA_ARGS__)
// Compares: p the governing predicate.
#define SVE_DEFINE_CMP_VV(...) SVE_DEFINE(PredV, (SVE_IN_P(p), SVE_IN_V(a), SVE_IN_V(b), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_CMP_VI(...) SVE_DEFINE(PredV, (SVE_IN_P(p), SVE_IN_V(a), SVE_IN_U(imm), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_CMP_VI_SIGNED(...) SVE_DEFINE(PredV, (SVE_IN_P(p), SVE_IN_V(a), SVE_IN_S(imm), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_CMP_V0(...) SVE_DEFINE(PredV, (SVE_IN_P(p), SVE_IN_V(a), SVE_CTX), __VA_ARGS__)
// Predicates.
#define SVE_DEFINE_P(...) SVE_DEFINE(PredV, (SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_PP(...) SVE_DEFINE(PredV, (SVE_IN_P(p), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_PPP(...) SVE_DEFINE(PredV, (SVE_IN_P(p), SVE_IN_P(q), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_PPPP(...) SVE_DEFINE(PredV, (SVE_IN_P(p), SVE_IN_P(q), SVE_IN_P(r), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_PATTERN_P(...) SVE_DEFINE(PredV, (SVE_IN_U(pattern), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_WHILE(...) SVE_DEFINE(PredV, (SVE_IN_U(first), SVE_IN_U(limit), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_WHILE_SIGNED(...) SVE_DEFINE(PredV, (SVE_IN_S(first), SVE_IN_S(limit), SVE_CTX), __VA_ARGS__)
// Element counts: `field` is the multiplier less one.
#define SVE_DEFINE_COUNT(...) SVE_DEFINE(std::uint64_t, (SVE_IN_U(pattern), SVE_IN_U(field), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_COUNT_X(...) \
  SVE_DEFINE(std::uint64_t, (SVE_IN_U(x), SVE_IN_U(pattern), SVE_IN_U(field), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_COUNT_V(...) \
  SVE_DEFINE(VectorV, (SVE_IN_V(a), SVE_IN_U(pattern), SVE_IN_U(field), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_COUNT_P(...) SVE_DEFINE(std::uint64_t, (SVE_IN_P(p), SVE_IN_P(q), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_COUNT_P_X(...) SVE_DEFINE(std::uint64_t, (SVE_IN_P(p), SVE_IN_U(x), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_COUNT_P_V(...) SVE_DEFINE(VectorV, (SVE_IN_P(p), SVE_IN_V(a), SVE_CTX), __VA_ARGS__)
