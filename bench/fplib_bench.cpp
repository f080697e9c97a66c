// Time per operation of the floating-point library on random normal operands, beside the compiler runtime's software
// arithmetic on quad precision and beside the host's own instruction, in one run. The ratios stand at the end, with
// those that the library has to keep.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "sve/fplib/fplib.h"

namespace {

constexpr std::size_t count = 1024;
template <class T>
using Values = std::array<T, count>;

// Quad precision, which both hosts compute in software.
#if defined(__SIZEOF_FLOAT128__)
__extension__ using Quad = __float128;
#else
using Quad = long double;
#endif
static_assert(sizeof(Quad) == 16);

std::mt19937_64 random_bits(896);

// A random sign and fraction under an exponent within `spread` of `centre`.
template <class T>
T normal_value(int spread, int centre = 0) {
  using F = sve::Format<T>;
  const int exponent =
      F::bias + centre - spread + static_cast<int>(random_bits() % (2u * static_cast<unsigned>(spread) + 1));
  return static_cast<T>((random_bits() & (F::fraction_mask | F::sign)) | static_cast<unsigned long>(exponent)
                                                                             << F::fraction_bits);
}

template <>
Quad normal_value<Quad>(int spread, int centre) {
  const unsigned exponent = static_cast<unsigned>(16383 + centre - spread) +
                            static_cast<unsigned>(random_bits() % (2u * static_cast<unsigned>(spread) + 1));
  const unsigned long words[2] = {random_bits(), (random_bits() & 0x8000ffffffffffff) | std::uint64_t{exponent} << 48};
  Quad value;
  std::memcpy(&value, words, sizeof value);
  return value;
}

template <class T>
const Values<T>& normal_values(int spread, int centre = 0) {
  static std::vector<std::unique_ptr<Values<T>>> kept;
  auto& values = *kept.emplace_back(std::make_unique<Values<T>>());
  std::generate(values.begin(), values.end(), [=] { return normal_value<T>(spread, centre); });
  return values;
}

template <class T>
const Values<T>& random_integers() {
  static Values<T> values;
  std::generate(values.begin(), values.end(), [] { return static_cast<T>(random_bits()) >> random_bits() % 8; });
  return values;
}

template <class To, class From>
const Values<To>& as(const Values<From>& from) {
  static std::vector<std::unique_ptr<Values<To>>> kept;
  auto& to = *kept.emplace_back(std::make_unique<Values<To>>());
  std::transform(from.begin(), from.end(), to.begin(), [](From x) { return std::bit_cast<To>(x); });
  return to;
}

// Registers a benchmark that runs `operation(i)` over all indices and keeps every result.
template <class Operation>
std::string add(const std::string& name, Operation operation) {
  benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    static Values<decltype(operation(std::size_t{}))> results;
    for (auto _ : state) {
      for (std::size_t i = 0; i < count; ++i) results[i] = operation(i);
      benchmark::DoNotOptimize(results.data());
      benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(static_cast<std::size_t>(state.iterations()) * count));
  });
  return name;
}

// The library as a vector routine calls it: in line where its header has the operation in line, one control word for
// the loop, a working copy for each element, and the copies' status bits gathered.
template <class Operation>
std::string add_library(const std::string& name, Operation operation) {
  benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    static Values<decltype(operation(std::size_t{}, std::declval<FPSCR&>()))> results;
    FPSCR control = 0;
    benchmark::DoNotOptimize(control);
    const FPSCR fpcr = control;
    FPSCR fpsr = 0;
    for (auto _ : state) {
      for (std::size_t i = 0; i < count; ++i) {
        FPSCR working = fpcr;
        results[i] = operation(i, working);
        fpsr |= working;
      }
      benchmark::DoNotOptimize(results.data());
      benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(fpsr);
    state.SetItemsProcessed(static_cast<std::int64_t>(static_cast<std::size_t>(state.iterations()) * count));
  });
  return name;
}

// One line of the summary: the library's time against that of quad precision, which it has to keep within `limit`.
struct Comparison {
  std::string ours, quad, host;
  double limit;
};
std::vector<Comparison> comparisons;

struct QuadNames {
  std::string add, sub, mul, div, eq, ge, gt;
};

QuadNames add_quad(const std::string& where, int spread) {
  const auto &x = normal_values<Quad>(spread), &y = normal_values<Quad>(spread);
  const std::string quad = "quad/";
  return {
      add(quad + "add" + where, [&](std::size_t i) { return x[i] + y[i]; }),
      add(quad + "sub" + where, [&](std::size_t i) { return x[i] - y[i]; }),
      add(quad + "mul" + where, [&](std::size_t i) { return x[i] * y[i]; }),
      add(quad + "div" + where, [&](std::size_t i) { return x[i] / y[i]; }),
      add(quad + "eq" + where, [&](std::size_t i) { return x[i] == y[i]; }),
      add(quad + "ge" + where, [&](std::size_t i) { return x[i] >= y[i]; }),
      add(quad + "gt" + where, [&](std::size_t i) { return x[i] > y[i]; }),
  };
}

template <class T, class Host>
void add_arithmetic(const std::string& type, const std::string& where, int spread, const QuadNames& quad) {
  const auto &a = normal_values<T>(spread), &b = normal_values<T>(spread), &c = normal_values<T>(spread);
  const auto &x = as<Host>(a), &y = as<Host>(b), &z = as<Host>(c);
  const auto compare = [&](const char* op, const std::string& against, double limit, auto library, auto host) {
    comparisons.push_back({add_library("fplib" + type + "/" + op + where, library), against,
                           add("host" + type + "/" + op + where, host), limit});
  };
#define COMPARE(op, against, limit, library, host) \
  compare(                                         \
      op, against, limit, [&](std::size_t i, FPSCR& s) { return library; }, [&](std::size_t i) { return host; })
  COMPARE("add", quad.add, 0.5, FPAdd(a[i], b[i], s), x[i] + y[i]);
  COMPARE("sub", quad.sub, 0.5, FPSub(a[i], b[i], s), x[i] - y[i]);
  COMPARE("mul", quad.mul, 0.5, FPMul(a[i], b[i], s), x[i] * y[i]);
  COMPARE("div", quad.div, 0.5, FPDiv(a[i], b[i], s), x[i] / y[i]);
  COMPARE("fma", quad.mul, 1, FPMulAdd(c[i], a[i], b[i], s), std::fma(x[i], y[i], z[i]));
  COMPARE("sqrt", quad.div, 1, FPSqrt(FPAbs(a[i]), s), std::sqrt(std::fabs(x[i])));
  COMPARE("eq", quad.eq, 0.5, FPCompareEQ(a[i], b[i], s), x[i] == y[i]);
  COMPARE("ge", quad.ge, 0.5, FPCompareGE(a[i], b[i], s), x[i] >= y[i]);
  COMPARE("gt", quad.gt, 0.5, FPCompareGT(a[i], b[i], s), x[i] > y[i]);
  COMPARE("max", quad.gt, 0.5, FPMax(a[i], b[i], s), std::fmax(x[i], y[i]));
#undef COMPARE
}

// Conversions, each beside quad precision's conversion from or to the same type.
template <class T, class Host, class Other, class OtherHost>
void add_conversions(const std::string& type) {
  const int spread = 100;  // in the range of single precision
  const auto &a = normal_values<T>(spread), &integral = normal_values<T>(30, 30);
  const auto &x = as<Host>(a), &xi = as<Host>(integral);
  const auto &q = normal_values<Quad>(spread), &qi = normal_values<Quad>(30, 30);
  const auto& n = random_integers<long>();
  const auto compare = [&](const std::string& op, auto library, auto host, auto quad) {
    comparisons.push_back({add_library("fplib" + type + "/" + op, library), add("quad" + type + "/" + op, quad),
                           add("host" + type + "/" + op, host), 0.5});
  };
  const auto nearest = FPRounding_TiesEven;
#define COMPARE(op, library, host, quad)                                                         \
  compare(                                                                                       \
      op, [&](std::size_t i, FPSCR& s) { return library; }, [&](std::size_t i) { return host; }, \
      [&](std::size_t i) { return quad; })
  if constexpr (sizeof(T) == 4) {
    COMPARE("widen", (FPConvert<T, Other>(a[i], nearest, s)), static_cast<OtherHost>(x[i]), static_cast<Quad>(x[i]));
  } else {
    COMPARE("narrow", (FPConvert<T, Other>(a[i], nearest, s)), static_cast<OtherHost>(x[i]),
            static_cast<OtherHost>(q[i]));
  }
  COMPARE("to_signed", (fplibFPToFixed<T, unsigned long>(integral[i], 0, false, FPRounding_Zero, s)),
          static_cast<long>(xi[i]), static_cast<long>(qi[i]));
  COMPARE("to_unsigned", (fplibFPToFixed<T, unsigned long>(FPAbs(integral[i]), 0, true, FPRounding_Zero, s)),
          static_cast<unsigned long>(std::fabs(xi[i])), static_cast<unsigned long>(qi[i] < 0 ? -qi[i] : qi[i]));
  COMPARE("from_signed", fplibFixedToFP<T>(static_cast<unsigned long>(n[i]), 0, false, nearest, s),
          static_cast<Host>(n[i]), static_cast<Quad>(n[i]));
  COMPARE("from_unsigned", fplibFixedToFP<T>(static_cast<unsigned long>(n[i]), 0, true, nearest, s),
          static_cast<Host>(static_cast<unsigned long>(n[i])), static_cast<Quad>(static_cast<unsigned long>(n[i])));
#undef COMPARE
  // Rounding to integral has no software form in the runtime.
  comparisons.push_back(
      {add_library("fplib" + type + "/round",
                   [&](std::size_t i, FPSCR& s) { return FPRoundInt(integral[i], nearest, true, s); }),
       "", add("host" + type + "/round", [&](std::size_t i) { return std::rint(xi[i]); }), 0});
}

// Prints as usual, and keeps the time of each operation.
class Keeper : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs)
      if (run.run_type == Run::RT_Iteration || run.aggregate_name == "median")
        times[run.run_name.function_name] = run.GetAdjustedCPUTime() / count;
  }
  std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  // Exponents far apart, so that terms seldom meet, and close together, so that they cancel; products stay normal.
  for (const bool close : {false, true}) {
    const std::string where = close ? "/close" : "/far";
    const QuadNames quad = add_quad(where, close ? 4 : 8000);
    add_arithmetic<unsigned int, float>("32", where, close ? 4 : 60, quad);
    add_arithmetic<unsigned long, double>("64", where, close ? 4 : 500, quad);
  }
  add_conversions<unsigned int, float, unsigned long, double>("32");
  add_conversions<unsigned long, double, unsigned int, float>("64");

  Keeper keeper;
  benchmark::RunSpecifiedBenchmarks(&keeper);
  benchmark::Shutdown();

  std::printf("\n%-24s %9s %9s %9s %12s %12s\n", "operation", "ns", "quad ns", "host ns", "of quad", "of host");
  int late = 0;
  for (const Comparison& line : comparisons) {
    const auto own = keeper.times.find(line.ours), host = keeper.times.find(line.host);
    if (own == keeper.times.end() || host == keeper.times.end()) continue;
    const auto quad = keeper.times.find(line.quad);
    std::printf("%-24s %9.2f ", line.ours.c_str(), own->second);
    if (quad == keeper.times.end()) {
      std::printf("%9s %9.2f %12s %11.1fx\n", "", host->second, "", own->second / host->second);
      continue;
    }
    const double ratio = own->second / quad->second;
    const bool kept = ratio <= line.limit;
    late += !kept;
    std::printf("%9.2f %9.2f %6.2f %s %.1f %11.1fx\n", quad->second, host->second, ratio, kept ? "<=" : "> ",
                line.limit, own->second / host->second);
  }
  std::printf("%d of the ratios exceed their limits\n", late);
}
