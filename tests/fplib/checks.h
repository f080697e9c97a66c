// Checks of the library's operations against the exact reference; each returns how many results it has compared.
#pragma once

#include <string>
#include <type_traits>

#include "operands.h"
#include "reference.h"

namespace checks {

using operands::Failures;
using operands::hex;

// Runs one operation of the library and compares it with the reference's result.
template <class Expected, class Operation, class... Operands>
void check(Failures& failures, const char* name, const Expected& expected, FPSCR fpscr, Operation operation,
           Operands... values) {
  FPSCR working = fpscr;
  const auto value = operation(values..., working);
  if (value == expected.value && operands::flags_equal(fpscr, working, expected.flags)) return;
  std::string text = std::string(name) + "(";
  ((text += hex(static_cast<std::uint64_t>(values)) + " "), ...);
  failures.add(text + ") under " + hex(fpscr) + " gives " + hex(static_cast<std::uint64_t>(value)) + " and " +
               hex(working & ~fpscr) + ", not " + hex(static_cast<std::uint64_t>(expected.value)) + " and " +
               hex(static_cast<FPSCR>(expected.flags) & ~fpscr));
}

#define CHECK2(operation, expected) \
  check(failures, #operation, reference::expected(a, b, fpscr), fpscr, operation<T>, a, b)

template <class T>
std::uint64_t check_two_operands(Failures& failures, T a, T b, FPSCR fpscr) {
  CHECK2(FPAdd, add);
  CHECK2(FPSub, sub);
  CHECK2(FPMul, mul);
  CHECK2(FPMulX, mulx);
  CHECK2(FPDiv, div);
  CHECK2(FPRecipStepFused, recps);
  CHECK2(FPRSqrtStepFused, rsqrts);
  return 7;
}

template <class T>
std::uint64_t check_compares(Failures& failures, T a, T b, FPSCR fpscr) {
  const auto quiet = reference::compare_values(a, b, fpscr, false);
  const auto signalling = reference::compare_values(a, b, fpscr, true);
  using Truth = reference::Result<bool>;
  check(failures, "FPCompareEQ", Truth{quiet.value == 0, quiet.flags}, fpscr, FPCompareEQ<T>, a, b);
  check(failures, "FPCompareUN", Truth{quiet.value == 2, quiet.flags}, fpscr, FPCompareUN<T>, a, b);
  check(failures, "FPCompareGE", Truth{signalling.value == 0 || signalling.value == 1, signalling.flags}, fpscr,
        FPCompareGE<T>, a, b);
  check(failures, "FPCompareGT", Truth{signalling.value == 1, signalling.flags}, fpscr, FPCompareGT<T>, a, b);
  if constexpr (sizeof(T) >= 4) {
    const auto nibble = [](int relation) { return relation == 0 ? 6 : relation == -1 ? 8 : relation == 1 ? 2 : 3; };
    for (const bool signals : {false, true}) {
      const auto& expected = signals ? signalling : quiet;
      check(
          failures, "FPCompare", reference::Result<int>{nibble(expected.value), expected.flags}, fpscr,
          [signals](T x, T y, FPSCR& s) { return FPCompare(x, y, signals, s); }, a, b);
    }
  }
  check(failures, "FPMax", reference::extreme(a, b, fpscr, true, false), fpscr, FPMax<T>, a, b);
  check(failures, "FPMin", reference::extreme(a, b, fpscr, false, false), fpscr, FPMin<T>, a, b);
  check(failures, "FPMaxNum", reference::extreme(a, b, fpscr, true, true), fpscr, FPMaxNum<T>, a, b);
  check(failures, "FPMinNum", reference::extreme(a, b, fpscr, false, true), fpscr, FPMinNum<T>, a, b);
  return 9;
}

template <class T>
std::uint64_t check_muladd(Failures& failures, T a, T b, T c, FPSCR fpscr) {
  check(failures, "FPMulAdd", reference::muladd(a, b, c, fpscr), fpscr, FPMulAdd<T>, a, b, c);
  return 1;
}

template <class From, class To>
std::uint64_t check_convert(Failures& failures, From a, FPSCR fpscr) {
  for (const int rounding : {0, 1, 2, 3, 5}) {
    check(
        failures, "FPConvert", reference::convert<From, To>(a, rounding, fpscr), fpscr,
        [rounding](From x, FPSCR& s) { return FPConvert<From, To>(x, static_cast<FPRounding>(rounding), s); }, a);
  }
  return 5;
}

template <class From, class To>
std::uint64_t check_to_fixed(Failures& failures, From a, FPSCR fpscr, int fbits) {
  for (int rounding = 0; rounding < 5; ++rounding)
    for (const bool u : {false, true}) {
      check(
          failures, u ? "fplibFPToFixed u" : "fplibFPToFixed",
          reference::to_fixed<From, To>(a, fbits, u, rounding, fpscr), fpscr,
          [=](From x, FPSCR& s) { return fplibFPToFixed<From, To>(x, fbits, u, static_cast<FPRounding>(rounding), s); },
          a);
    }
  return 10;
}

template <class T>
T scale(T a, long by, FPSCR& fpscr) {
  if constexpr (sizeof(T) == 2) return FPScale16(a, static_cast<short>(by), fpscr);
  if constexpr (sizeof(T) == 4) return FPScale32(a, static_cast<int>(by), fpscr);
  if constexpr (sizeof(T) == 8) return FPScale64(a, by, fpscr);
}

template <class T>
std::uint64_t check_scale(Failures& failures, T a, long by, FPSCR fpscr) {
  using By = std::conditional_t<sizeof(T) == 2, short, std::conditional_t<sizeof(T) == 4, int, long>>;
  const By narrow = static_cast<By>(by);
  check(
      failures, "FPScale", reference::scale(a, static_cast<long>(narrow), fpscr), fpscr,
      [](T x, By n, FPSCR& s) { return scale<T>(x, n, s); }, a, narrow);
  return 1;
}

template <class T>
std::uint64_t check_one_operand(Failures& failures, T a, FPSCR fpscr, int fbits) {
  check(failures, "FPSqrt", reference::sqrt(a, fpscr), fpscr, FPSqrt<T>, a);
  check(failures, "FPRecipEstimate", reference::recip_estimate(a, fpscr), fpscr, FPRecipEstimate<T>, a);
  check(failures, "FPRSqrtEstimate", reference::rsqrt_estimate(a, fpscr), fpscr, FPRSqrtEstimate<T>, a);
  std::uint64_t count = 3;
  for (int rounding = 0; rounding < 5; ++rounding)
    for (const bool exact : {false, true}) {
      check(
          failures, "FPRoundInt", reference::round_int(a, rounding, exact, fpscr), fpscr,
          [=](T x, FPSCR& s) { return FPRoundInt(x, static_cast<FPRounding>(rounding), exact, s); }, a);
      ++count;
    }
  if constexpr (sizeof(T) != 2) count += check_convert<T, unsigned short>(failures, a, fpscr);
  if constexpr (sizeof(T) != 4) count += check_convert<T, unsigned int>(failures, a, fpscr);
  if constexpr (sizeof(T) != 8) count += check_convert<T, unsigned long>(failures, a, fpscr);
  if constexpr (sizeof(T) == 2) count += check_to_fixed<T, unsigned short>(failures, a, fpscr, fbits);
  count += check_to_fixed<T, unsigned int>(failures, a, fpscr, fbits);
  count += check_to_fixed<T, unsigned long>(failures, a, fpscr, fbits);
  return count;
}

template <class T>
std::uint64_t check_from_fixed(Failures& failures, std::uint64_t a, FPSCR fpscr, int fbits) {
  for (int rounding = 0; rounding < 4; ++rounding)
    for (const bool u : {false, true}) {
      check(
          failures, "fplibFixedToFP", reference::from_fixed<T>(a, fbits, u, rounding, fpscr), fpscr,
          [=](std::uint64_t x, FPSCR& s) {
            return fplibFixedToFP<T>(x, fbits, u, static_cast<FPRounding>(rounding), s);
          },
          a);
    }
  return 8;
}

}  // namespace checks
