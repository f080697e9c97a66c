// Floating point on the host. On AArch64 each function is one scalar instruction under the live FPCR, in a form that
// the compiler may neither fold, contract, nor move across a read of the status register; the status accumulates in the
// live FPSR, and `read_host_status` fetches it. On other hosts the same functions compute through the floating-point
// library under the state's own `fpcr` and accumulate into its `fpsr`, with equal results.
#pragma once

#include <bit>
#include <cstdint>
#include <type_traits>

#include "sve/fplib/fplib.h"
#include "sve/fplib/lane_loops.h"
#include "sve/state/cpu_state.h"

namespace sve {

#if defined(__aarch64__)

/// How a floating-point value of the width of the unsigned type travels.
template <class U>
using FpValue = std::conditional_t<sizeof(U) == 4, float, double>;

/// `fpsr` takes the host's FPSR whole.
inline void read_host_status(cpu_state* state) {
  std::uint64_t fpsr;
  asm volatile("mrs %0, fpsr" : "=r"(fpsr)::"memory");
  state->fpsr = static_cast<std::uint32_t>(fpsr);
}

/// Raises status flags in the host's FPSR. What the vector library raised stands there too from then on, as if the host
/// had computed it, so that the next `read_host_status` does not lose it.
inline void raise_host_status(std::uint32_t flags) {
  std::uint64_t fpsr;
  asm volatile("mrs %0, fpsr\n\torr %0, %0, %1\n\tmsr fpsr, %0" : "=&r"(fpsr) : "r"(std::uint64_t{flags}) : "memory");
}

class HostFp {
 public:
  explicit HostFp(cpu_state*) {}

#define SVE_HOST_BINARY(name, instruction)                                 \
  float name(float a, float b) const {                                     \
    float r;                                                               \
    asm volatile(instruction " %s0, %s1, %s2" : "=w"(r) : "w"(a), "w"(b)); \
    return r;                                                              \
  }                                                                        \
  double name(double a, double b) const {                                  \
    double r;                                                              \
    asm volatile(instruction " %d0, %d1, %d2" : "=w"(r) : "w"(a), "w"(b)); \
    return r;                                                              \
  }
#define SVE_HOST_UNARY(name, instruction)                     \
  float name(float a) const {                                 \
    float r;                                                  \
    asm volatile(instruction " %s0, %s1" : "=w"(r) : "w"(a)); \
    return r;                                                 \
  }                                                           \
  double name(double a) const {                               \
    double r;                                                 \
    asm volatile(instruction " %d0, %d1" : "=w"(r) : "w"(a)); \
    return r;                                                 \
  }
// The addend first, then the factors.
#define SVE_HOST_FUSED(name, instruction)                                                    \
  float name(float addend, float a, float b) const {                                         \
    float r;                                                                                 \
    asm volatile(instruction " %s0, %s1, %s2, %s3" : "=w"(r) : "w"(a), "w"(b), "w"(addend)); \
    return r;                                                                                \
  }                                                                                          \
  double name(double addend, double a, double b) const {                                     \
    double r;                                                                                \
    asm volatile(instruction " %d0, %d1, %d2, %d3" : "=w"(r) : "w"(a), "w"(b), "w"(addend)); \
    return r;                                                                                \
  }
// A compare and the condition that says true; no condition here holds for unordered operands unless it asks for them.
#define SVE_HOST_COMPARE(name, instruction, condition)                                               \
  bool name(float a, float b) const {                                                                \
    int r;                                                                                           \
    asm volatile(instruction " %s1, %s2\n\tcset %w0, " condition : "=r"(r) : "w"(a), "w"(b) : "cc"); \
    return r;                                                                                        \
  }                                                                                                  \
  bool name(double a, double b) const {                                                              \
    int r;                                                                                           \
    asm volatile(instruction " %d1, %d2\n\tcset %w0, " condition : "=r"(r) : "w"(a), "w"(b) : "cc"); \
    return r;                                                                                        \
  }

  SVE_HOST_BINARY(add, "fadd")
  SVE_HOST_BINARY(subtract, "fsub")
  SVE_HOST_BINARY(multiply, "fmul")
  SVE_HOST_BINARY(divide, "fdiv")
  SVE_HOST_BINARY(maximum, "fmax")
  SVE_HOST_BINARY(maximum_number, "fmaxnm")
  SVE_HOST_BINARY(minimum_number, "fminnm")
  SVE_HOST_BINARY(reciprocal_step, "frecps")
  SVE_HOST_UNARY(square_root, "fsqrt")
  SVE_HOST_UNARY(reciprocal_estimate, "frecpe")
  SVE_HOST_UNARY(round_ties_away, "frinta")
  SVE_HOST_FUSED(multiply_add, "fmadd")
  SVE_HOST_FUSED(multiply_subtract, "fmsub")
  SVE_HOST_FUSED(negated_multiply_add, "fnmadd")
  SVE_HOST_FUSED(negated_multiply_subtract, "fnmsub")
  SVE_HOST_COMPARE(equal, "fcmp", "eq")
  SVE_HOST_COMPARE(not_equal, "fcmp", "ne")
  SVE_HOST_COMPARE(unordered, "fcmp", "vs")
  SVE_HOST_COMPARE(greater_or_equal, "fcmpe", "ge")
  SVE_HOST_COMPARE(greater, "fcmpe", "gt")
  SVE_HOST_COMPARE(less_or_equal, "fcmpe", "ls")
  SVE_HOST_COMPARE(less, "fcmpe", "mi")

#undef SVE_HOST_BINARY
#undef SVE_HOST_UNARY
#undef SVE_HOST_FUSED
#undef SVE_HOST_COMPARE

  /// Between an integer of the type of `value` and a floating-point value of the width of To.
  template <class To, class Integer>
  FpValue<To> from_integer(Integer value) const {
    FpValue<To> r;
#define SVE_HOST_FROM(instruction, to, from) asm volatile(instruction " %" to "0, %" from "1" : "=w"(r) : "r"(value))
    if constexpr (sizeof(To) == 4 && std::is_same_v<Integer, std::int32_t>) SVE_HOST_FROM("scvtf", "s", "w");
    if constexpr (sizeof(To) == 8 && std::is_same_v<Integer, std::int32_t>) SVE_HOST_FROM("scvtf", "d", "w");
    if constexpr (sizeof(To) == 4 && std::is_same_v<Integer, std::int64_t>) SVE_HOST_FROM("scvtf", "s", "x");
    if constexpr (sizeof(To) == 8 && std::is_same_v<Integer, std::int64_t>) SVE_HOST_FROM("scvtf", "d", "x");
    if constexpr (sizeof(To) == 4 && std::is_same_v<Integer, std::uint32_t>) SVE_HOST_FROM("ucvtf", "s", "w");
    if constexpr (sizeof(To) == 8 && std::is_same_v<Integer, std::uint32_t>) SVE_HOST_FROM("ucvtf", "d", "w");
    if constexpr (sizeof(To) == 4 && std::is_same_v<Integer, std::uint64_t>) SVE_HOST_FROM("ucvtf", "s", "x");
    if constexpr (sizeof(To) == 8 && std::is_same_v<Integer, std::uint64_t>) SVE_HOST_FROM("ucvtf", "d", "x");
#undef SVE_HOST_FROM
    return r;
  }
  template <class Integer, class Value>
  Integer to_integer(Value value) const {
    std::conditional_t<sizeof(Integer) == 4, std::uint32_t, std::uint64_t> r;
#define SVE_HOST_TO(instruction, to, from) asm volatile(instruction " %" to "0, %" from "1" : "=r"(r) : "w"(value))
    constexpr bool is_signed = std::is_signed_v<Integer>;
    if constexpr (sizeof(Integer) == 4 && sizeof(Value) == 4 && is_signed) SVE_HOST_TO("fcvtzs", "w", "s");
    if constexpr (sizeof(Integer) == 4 && sizeof(Value) == 8 && is_signed) SVE_HOST_TO("fcvtzs", "w", "d");
    if constexpr (sizeof(Integer) == 8 && sizeof(Value) == 4 && is_signed) SVE_HOST_TO("fcvtzs", "x", "s");
    if constexpr (sizeof(Integer) == 8 && sizeof(Value) == 8 && is_signed) SVE_HOST_TO("fcvtzs", "x", "d");
    if constexpr (sizeof(Integer) == 4 && sizeof(Value) == 4 && !is_signed) SVE_HOST_TO("fcvtzu", "w", "s");
    if constexpr (sizeof(Integer) == 4 && sizeof(Value) == 8 && !is_signed) SVE_HOST_TO("fcvtzu", "w", "d");
    if constexpr (sizeof(Integer) == 8 && sizeof(Value) == 4 && !is_signed) SVE_HOST_TO("fcvtzu", "x", "s");
    if constexpr (sizeof(Integer) == 8 && sizeof(Value) == 8 && !is_signed) SVE_HOST_TO("fcvtzu", "x", "d");
#undef SVE_HOST_TO
    return static_cast<Integer>(r);
  }
  float narrowed(double a) const {
    float r;
    asm volatile("fcvt %s0, %d1" : "=w"(r) : "w"(a));
    return r;
  }
  double widened(float a) const {
    double r;
    asm volatile("fcvt %d0, %s1" : "=w"(r) : "w"(a));
    return r;
  }
};

/// The host executes one instruction for each element: it has no operation on vectors of lanes.
template <class U>
class LanesFp {};

#else

template <class U>
using FpValue = U;

/// The functions below accumulate into `fpsr` themselves.
inline void read_host_status(cpu_state*) {}
inline void raise_host_status(std::uint32_t) {}

class HostFp {
 public:
  explicit HostFp(cpu_state* state) : state_(state), working_(state->fpcr & ~status_bits) {}
  ~HostFp() { state_->fpsr |= working_ & status_bits; }

  FPSCR control() const { return working_ & ~status_bits; }
  FPSCR raised_before() const { return state_->fpsr; }
  bool rounds_to_nearest() const { return rounding() == FPRounding_TiesEven; }
  void raise(int flags) { working_ |= static_cast<FPSCR>(flags); }
  HostFp(const HostFp&) = delete;
  HostFp& operator=(const HostFp&) = delete;

#define SVE_LIBRARY_BINARY(name, operation) \
  template <class U>                        \
  U name(U a, U b) {                        \
    return operation(a, b, working_);       \
  }
  SVE_LIBRARY_BINARY(add, FPAdd)
  SVE_LIBRARY_BINARY(subtract, FPSub)
  SVE_LIBRARY_BINARY(multiply, FPMul)
  SVE_LIBRARY_BINARY(divide, FPDiv)
  SVE_LIBRARY_BINARY(maximum, FPMax)
  SVE_LIBRARY_BINARY(maximum_number, FPMaxNum)
  SVE_LIBRARY_BINARY(minimum_number, FPMinNum)
  SVE_LIBRARY_BINARY(reciprocal_step, FPRecipStepFused)
#undef SVE_LIBRARY_BINARY

  template <class U>
  U square_root(U a) {
    return FPSqrt(a, working_);
  }
  template <class U>
  U reciprocal_estimate(U a) {
    return FPRecipEstimate(a, working_);
  }
  template <class U>
  U round_ties_away(U a) {
    return FPRoundInt(a, FPRounding_TiesAway, false, working_);
  }
  template <class U>
  U multiply_add(U c, U a, U b) {
    return FPMulAdd(c, a, b, working_);
  }
  template <class U>
  U multiply_subtract(U c, U a, U b) {
    return FPMulAdd(c, FPNeg(a), b, working_);
  }
  template <class U>
  U negated_multiply_add(U c, U a, U b) {
    return FPMulAdd(FPNeg(c), FPNeg(a), b, working_);
  }
  template <class U>
  U negated_multiply_subtract(U c, U a, U b) {
    return FPMulAdd(FPNeg(c), a, b, working_);
  }
  template <class U>
  bool equal(U a, U b) {
    return FPCompareEQ(a, b, working_);
  }
  template <class U>
  bool not_equal(U a, U b) {
    return !FPCompareEQ(a, b, working_);
  }
  template <class U>
  bool unordered(U a, U b) {
    return FPCompareUN(a, b, working_);
  }
  template <class U>
  bool greater_or_equal(U a, U b) {
    return FPCompareGE(a, b, working_);
  }
  template <class U>
  bool greater(U a, U b) {
    return FPCompareGT(a, b, working_);
  }
  template <class U>
  bool less_or_equal(U a, U b) {
    return FPCompareGE(b, a, working_);
  }
  template <class U>
  bool less(U a, U b) {
    return FPCompareGT(b, a, working_);
  }

  template <class To, class Integer>
  To from_integer(Integer value) {
    return fplibFixedToFP<To>(static_cast<unsigned long>(static_cast<long>(value)), 0, std::is_unsigned_v<Integer>,
                              rounding(), working_);
  }
  template <class Integer, class Value>
  Integer to_integer(Value value) {
    using U = std::make_unsigned_t<Integer>;
    return static_cast<Integer>(
        fplibFPToFixed<Value, U>(value, 0, std::is_unsigned_v<Integer>, FPRounding_Zero, working_));
  }
  std::uint32_t narrowed(std::uint64_t a) { return FPConvert<std::uint64_t, std::uint32_t>(a, rounding(), working_); }
  std::uint64_t widened(std::uint32_t a) { return FPConvert<std::uint32_t, std::uint64_t>(a, rounding(), working_); }

 private:
  static constexpr FPSCR status_bits = 0x9f;
  FPRounding rounding() const { return static_cast<FPRounding>(working_ >> fpscr_rmode_shift & 3); }

  cpu_state* state_;
  FPSCR working_;
};

/// The operations that vectors of lanes have; see `Lanes`.
template <class U>
class LanesFp {
 public:
  explicit LanesFp(LaneStatus<U>& status) : status_(status) {}

  using L = Lanes<U>;
  L add(L a, L b) const { return FPAdd(a, b, status_); }
  L subtract(L a, L b) const { return FPSub(a, b, status_); }
  L multiply(L a, L b) const { return FPMul(a, b, status_); }
  L reciprocal_step(L a, L b) const { return FPRecipStepFused(a, b, status_); }
  L multiply_add(L c, L a, L b) const { return FPMulAdd(c, a, b, status_); }
  L multiply_subtract(L c, L a, L b) const { return FPMulAdd(c, FPNeg(a), b, status_); }
  L negated_multiply_add(L c, L a, L b) const { return FPMulAdd(FPNeg(c), FPNeg(a), b, status_); }
  L negated_multiply_subtract(L c, L a, L b) const { return FPMulAdd(FPNeg(c), a, b, status_); }
  auto equal(L a, L b) const { return FPCompareEQ(a, b, status_); }
  auto not_equal(L a, L b) const { return !FPCompareEQ(a, b, status_); }
  auto unordered(L a, L b) const { return FPCompareUN(a, b, status_); }
  auto greater_or_equal(L a, L b) const { return FPCompareGE(a, b, status_); }
  auto greater(L a, L b) const { return FPCompareGT(a, b, status_); }
  auto less_or_equal(L a, L b) const { return FPCompareGE(b, a, status_); }
  auto less(L a, L b) const { return FPCompareGT(b, a, status_); }

 private:
  LaneStatus<U>& status_;
};

#endif

}  // namespace sve
