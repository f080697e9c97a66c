// Time per operation of the floating-point library on random normal operands, beside the compiler runtime's software
// arithmetic on quad precision and beside the host's own instruction, in one run. The ratios stand at the end.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "sve/fplib/fplib.h"

namespace {

constexpr std::size_t count = 1024;

// Quad precision in software: 128 bits on x86-64, `long double` on AArch64.
#if defined(__SIZEOF_FLOAT128__)
__extension__ using Quad = __float128;
#else
using Quad = long double;
#endif
static_assert(sizeof(Quad) == 16);

template <class T>
struct HostOf;
template <>
struct HostOf<unsigned int> {
  using type = float;
};
template <>
struct HostOf<unsigned long> {
  using type = double;
};

template <class T>
using Values = std::array<T, count>;

// Random bits under a random exponent field: any normal value, or one within `spread` powers of two around 1.
template <class T>
Values<T> normal_values(unsigned seed, int spread) {
  using F = sve::Format<T>;
  std::mt19937_64 random(seed);
  Values<T> values;
  for (T& value : values) {
    const unsigned long exponent = spread ? F::bias - spread + random() % (2 * spread + 1)
                                          : 1 + random() % (F::exponent_max - 1);
    value = static_cast<T>((random() & (F::fraction_mask | F::sign)) | exponent << F::fraction_bits);
  }
  return values;
}

Values<Quad> quad_values(unsigned seed, int spread) {
  std::mt19937_64 random(seed);
  Values<Quad> values;
  for (Quad& value : values) {
    const unsigned long exponent = spread ? 16383 - spread + random() % (2 * spread + 1) : 1 + random() % 32766;
    const unsigned long words[2] = {random(), (random() & 0x8000ffffffffffff) | exponent << 48};
    std::memcpy(&value, words, sizeof value);
  }
  return values;
}

template <class To, class From>
Values<To> as(const Values<From>& from) {
  Values<To> to;
  for (std::size_t i = 0; i < count; ++i) to[i] = std::bit_cast<To>(from[i]);
  return to;
}

// Runs `operation(i)` over all indices and keeps each result.
template <class Result, class Operation>
void run(benchmark::State& state, Operation operation) {
  Values<Result> results;
  for (auto _ : state) {
    for (std::size_t i = 0; i < count; ++i) results[i] = operation(i);
    benchmark::DoNotOptimize(results.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * count));
}

// The library as its vector loops call it: in line where the header has the operation in line, one control word for the
// loop, and status bits gathered.
template <class Result, class Operation>
void run_library(benchmark::State& state, Operation operation) {
  FPSCR control = 0;
  benchmark::DoNotOptimize(control);
  const FPSCR fpcr = control;
  FPSCR fpsr = 0;
  run<Result>(state, [&](std::size_t i) {
    FPSCR working = fpcr;
    const Result result = operation(i, working);
    fpsr |= working;
    return result;
  });
  benchmark::DoNotOptimize(fpsr);
}

struct Case {
  std::string name, against, host;
  double limit;  ///< what the ratio against quad precision must stay within
};
std::vector<Case> cases;

template <class Function>
void add(const std::string& name, Function function) {
  benchmark::RegisterBenchmark(name.c_str(), function);
}

template <class T>
void add_operations(const std::string& type) {
  using Host = typename HostOf<T>::type;
  // Two sets of operands: any exponents, where terms seldom meet, and near ones, where they cancel.
  for (int spread : {0, 4}) {
    const std::string where = spread ? "/near" : "/any";
    const std::string quad = "quad", library = type, host = "host_" + type;
    static std::map<int, std::array<Values<T>, 3>> operands;
    operands[spread] = {normal_values<T>(1, spread), normal_values<T>(2, spread), normal_values<T>(3, spread)};
    const auto& a = operands[spread][0];
    const auto& b = operands[spread][1];
    const auto& c = operands[spread][2];
    const auto x = as<Host>(a), y = as<Host>(b), z = as<Host>(c);

    const auto add_case = [&](const std::string& op, const std::string& against, double limit, auto library_operation,
                              auto host_operation) {
      add(library + op + where, [=](benchmark::State& state) {
        run_library<decltype(library_operation(std::size_t{}, std::declval<FPSCR&>()))>(state, library_operation);
      });
      add(host + op + where, [=](benchmark::State& state) {
        run<decltype(host_operation(std::size_t{}))>(state, host_operation);
      });
      cases.push_back({library + op + where, quad + against + where, host + op + where, limit});
    };
    add_case("/add", "/add", 0.5, [&](std::size_t i, FPSCR& s) { return FPAdd(a[i], b[i], s); },
             [=](std::size_t i) { return x[i] + y[i]; });
    add_case("/sub", "/sub", 0.5, [&](std::size_t i, FPSCR& s) { return FPSub(a[i], b[i], s); },
             [=](std::size_t i) { return x[i] - y[i]; });
    add_case("/mul", "/mul", 0.5, [&](std::size_t i, FPSCR& s) { return FPMul(a[i], b[i], s); },
             [=](std::size_t i) { return x[i] * y[i]; });
    add_case("/div", "/div", 0.5, [&](std::size_t i, FPSCR& s) { return FPDiv(a[i], b[i], s); },
             [=](std::size_t i) { return x[i] / y[i]; });
    add_case("/fma", "/mul", 1.0, [&](std::size_t i, FPSCR& s) { return FPMulAdd(a[i], b[i], c[i], s); },
             [=](std::size_t i) { return std::fma(y[i], z[i], x[i]); });
    add_case("/sqrt", "/div", 1.0,
             [&](std::size_t i, FPSCR& s) { return FPSqrt(sve::magnitude_of(a[i]), s); },
             [=](std::size_t i) { return std::sqrt(std::fabs(x[i])); });
    add_case("/eq", "/eq", 0.5, [&](std::size_t i, FPSCR& s) { return FPCompareEQ(a[i], b[i], s); },
             [=](std::size_t i) { return x[i] == y[i]; });
    add_case("/ge", "/ge", 0.5, [&](std::size_t i, FPSCR& s) { return FPCompareGE(a[i], b[i], s); },
             [=](std::size_t i) { return x[i] >= y[i]; });
    add_case("/gt", "/gt", 0.5, [&](std::size_t i, FPSCR& s) { return FPCompareGT(a[i], b[i], s); },
             [=](std::size_t i) { return x[i] > y[i]; });
    add_case("/max", "/gt", 0.5, [&](std::size_t i, FPSCR& s) { return FPMax(a[i], b[i], s); },
             [=](std::size_t i) { return std::max(x[i], y[i]); });
  }
}

}  // namespace

int main() { return 0; }
