// Single and double precision against the host's own arithmetic, in each of its rounding modes, with its flags.
//
// The host defines the same results for finite operands. Where hosts differ, on x86-64 less is compared: it judges
// tininess after rounding, so its underflow must be the library's, but not the other way round; it has other NaNs; and
// it has no saturation.
#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <type_traits>

#include "operands.h"

namespace {

using operands::Failures;
using operands::hex;
using operands::Random;

#if defined(__aarch64__)
constexpr bool host_is_arm = true;
#else
constexpr bool host_is_arm = false;
#endif

template <class T>
struct HostType;
template <>
struct HostType<unsigned int> {
  using type = float;
};
template <>
struct HostType<unsigned long> {
  using type = double;
};
template <class T>
using Host = typename HostType<T>::type;

constexpr int host_modes[] = {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO};

struct HostResult {
  std::uint64_t value;
  int flags;
};

// Runs one operation on the host. Operands and result pass through volatile objects, which keeps the operation between
// the two accesses of the environment.
template <class Result, class Operation, class... Operands>
HostResult on_host(int rounding, Operation operation, Operands... operands) {
  std::fesetround(host_modes[rounding]);
  std::feclearexcept(FE_ALL_EXCEPT);
  volatile auto result = [&](const volatile auto... values) { return operation(values...); }(operands...);
  const int raised = std::fetestexcept(FE_ALL_EXCEPT);
  std::fesetround(FE_TONEAREST);
  int flags = 0;
  if (raised & FE_INVALID) flags |= sve::flag_ioc;
  if (raised & FE_DIVBYZERO) flags |= sve::flag_dzc;
  if (raised & FE_OVERFLOW) flags |= sve::flag_ofc;
  if (raised & FE_UNDERFLOW) flags |= sve::flag_ufc;
  if (raised & FE_INEXACT) flags |= sve::flag_ixc;
  const auto plain = result;
  if constexpr (std::is_floating_point_v<std::remove_cv_t<decltype(plain)>>) {
    return {std::bit_cast<Result>(plain), flags};
  } else {
    return {static_cast<std::uint64_t>(plain), flags};
  }
}

bool same_flags(int flags, int host) {
  if (host_is_arm) return flags == host;
  const bool underflow_ok = (flags & sve::flag_ufc) || !(host & sve::flag_ufc);
  return underflow_ok && ((flags ^ host) & ~sve::flag_ufc) == 0;
}

template <class T>
bool same_value(T value, T host) {
  if (!host_is_arm && sve::is_nan(value)) return sve::is_nan(host);
  return value == host;
}

template <class T, class Library, class Operation, class... Operands>
void check(Failures& failures, const char* name, int rounding, Library library, Operation operation,
           Operands... operands) {
  const HostResult host = on_host<T>(rounding, operation, operands...);
  FPSCR fpscr = static_cast<FPSCR>(rounding) << 22;
  const T value = library(fpscr);
  const int flags = static_cast<int>(fpscr & 0xff);
  bool same = same_flags(flags, host.flags);
  if constexpr (std::is_floating_point_v<decltype(operation(operands...))>) {
    same = same && same_value(value, static_cast<T>(host.value));
  } else if (host_is_arm || !(flags & sve::flag_ioc)) {
    same = same && value == static_cast<T>(host.value);
  }
  if (same) return;
  std::string text = std::string(name) + "(";
  char buffer[40];
  ((std::snprintf(buffer, sizeof buffer, "%a ", static_cast<double>(operands)), text += buffer), ...);
  failures.add(text + ") rounded by " + std::to_string(rounding) + " gives " + hex(value) + " and " +
               hex(static_cast<std::uint64_t>(flags)) + ", on the host " + hex(host.value) + " and " +
               hex(static_cast<std::uint64_t>(host.flags)));
}

unsigned widths_run = 0;

template <class T>
class HostTest : public testing::Test {
 protected:
  HostTest() { widths_run |= sizeof(T); }
  ~HostTest() override { std::fesetround(FE_TONEAREST); }
};
using Types = testing::Types<unsigned int, unsigned long>;
TYPED_TEST_SUITE(HostTest, Types);

template <class T>
std::uint64_t check_all(Failures& failures, int rounding, T a, T b, T c) {
  using Float = Host<T>;
  using Signed = std::make_signed_t<T>;
  using Other = std::conditional_t<sizeof(T) == 4, unsigned long, unsigned int>;
  const Float x = std::bit_cast<Float>(a), y = std::bit_cast<Float>(b), z = std::bit_cast<Float>(c);
  const auto run = [&](const char* name, auto library, auto operation, auto... operands) {
    check<T>(failures, name, rounding, library, operation, operands...);
  };
  run(
      "FPAdd", [=](FPSCR& s) { return FPAdd(a, b, s); }, [](Float p, Float q) { return p + q; }, x, y);
  run(
      "FPSub", [=](FPSCR& s) { return FPSub(a, b, s); }, [](Float p, Float q) { return p - q; }, x, y);
  run(
      "FPMul", [=](FPSCR& s) { return FPMul(a, b, s); }, [](Float p, Float q) { return p * q; }, x, y);
  run(
      "FPDiv", [=](FPSCR& s) { return FPDiv(a, b, s); }, [](Float p, Float q) { return p / q; }, x, y);
  run(
      "FPSqrt", [=](FPSCR& s) { return FPSqrt(a, s); }, [](Float p) { return std::sqrt(p); }, x);
  run(
      "FPRoundInt", [=](FPSCR& s) { return FPRoundInt(a, static_cast<FPRounding>(rounding), true, s); },
      [](Float p) { return std::rint(p); }, x);
  if (host_is_arm || !(sve::is_nan(a) || sve::is_nan(b) || sve::is_nan(c))) {
    run(
        "FPMulAdd", [=](FPSCR& s) { return FPMulAdd(c, a, b, s); },
        [](Float p, Float q, Float r) { return std::fma(p, q, r); }, x, y, z);
  }
  check<Other>(
      failures, "FPConvert", rounding,
      [=](FPSCR& s) { return FPConvert<T, Other>(a, static_cast<FPRounding>(rounding), s); },
      [](Float p) { return static_cast<Host<Other>>(p); }, x);
  check<unsigned int>(
      failures, "fplibFPToFixed 32", rounding,
      [=](FPSCR& s) { return fplibFPToFixed<T, unsigned int>(a, 0, false, FPRounding_Zero, s); },
      [](Float p) { return static_cast<int>(p); }, x);
  check<unsigned long>(
      failures, "fplibFPToFixed 64", rounding,
      [=](FPSCR& s) { return fplibFPToFixed<T, unsigned long>(a, 0, false, FPRounding_Zero, s); },
      [](Float p) { return static_cast<long>(p); }, x);
  run(
      "fplibFixedToFP",
      [=](FPSCR& s) {
        const long wide = static_cast<Signed>(b);
        return fplibFixedToFP<T>(static_cast<unsigned long>(wide), 0, false, static_cast<FPRounding>(rounding), s);
      },
      [](Signed p) { return static_cast<Float>(p); }, static_cast<Signed>(b));
  check<bool>(
      failures, "FPCompareEQ", rounding, [=](FPSCR& s) { return FPCompareEQ(a, b, s); },
      [](Float p, Float q) { return static_cast<int>(p == q); }, x, y);
  check<bool>(
      failures, "FPCompareGE", rounding, [=](FPSCR& s) { return FPCompareGE(a, b, s); },
      [](Float p, Float q) { return static_cast<int>(p >= q); }, x, y);
  check<bool>(
      failures, "FPCompareGT", rounding, [=](FPSCR& s) { return FPCompareGT(a, b, s); },
      [](Float p, Float q) { return static_cast<int>(p > q); }, x, y);
  return 14;
}

TYPED_TEST(HostTest, GridOfTwoOperands) {
  using T = TypeParam;
  Failures failures;
  Random random(20);
  std::uint64_t count = 0;
  const auto values = operands::grid<T>();
  for (const T a : values) {
    for (const T b : values) {
      count += check_all(failures, static_cast<int>(random.below(4)), a, b, values[random.below(values.size())]);
    }
    if (failures.enough()) return;
  }
  operands::report("grid of two operands against the host", count);
}

TYPED_TEST(HostTest, RandomOperands) {
  using T = TypeParam;
  Failures failures;
  Random random(20 + sizeof(T));
  std::uint64_t count = 0;
  const std::uint64_t wanted = operands::cases(4000000);
  T a = 1;
  while (count < wanted && !failures.enough()) {
    a = operands::random_value<T>(random, a);
    const T b = operands::random_value<T>(random, a);
    FPSCR scratch = 0;
    const T near = random() & 1 ? FPMul(a, b, scratch) : b;
    const T c = operands::random_value<T>(random, near);
    count += check_all(failures, static_cast<int>(random.below(4)), a, b, c);
  }
  operands::report("random operands against the host", count);
}

TEST(HostTestGuard, RanForEveryFormat) { EXPECT_EQ(widths_run, 4u | 8u); }

}  // namespace
