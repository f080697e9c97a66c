// Floating-point vector instructions: edge cases of both engines, the shape of the reductions, status and NaNs.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "sve/fplib/fplib.h"
#include "sve/insn/functions.h"
#include "sve/insn/host_fp.h"
#include "sve/veclib/routines.h"
#include "tests/states.h"

namespace {

using half = std::uint16_t;
using single = std::uint32_t;
using real = std::uint64_t;

constexpr FPSCR ioc = 1, dzc = 2, ofc = 4, ixc = 16;
constexpr FPSCR towards_minus_infinity = 2u << 22, towards_zero = 3u << 22, fz16 = 1u << 19, dn = 1u << 25,
                ahp = 1u << 26;

CpuContext context_with(FPSCR fpcr = 0, unsigned granules = 14) {
  CpuContext c{};
  c.fpcr = fpcr;
  c.vl_word = granules;
  return c;
}

template <class T>
VectorV filled(T value) {
  VectorV v;
  for (std::size_t i = 0; i < sizeof v.bytes / sizeof(T); ++i) std::memcpy(v.bytes + i * sizeof(T), &value, sizeof(T));
  return v;
}
template <class T>
T at(const VectorV& v, std::size_t i) {
  T x;
  std::memcpy(&x, v.bytes + i * sizeof(T), sizeof x);
  return x;
}
template <class T>
void put(VectorV& v, std::size_t i, T x) {
  std::memcpy(v.bytes + i * sizeof(T), &x, sizeof x);
}
const PredV all_true{{~0ull, ~0ull, ~0ull, ~0ull}};
const PredV all_false{};
template <class T>
PredV only(std::size_t element) {
  PredV p{};
  p.words[element * sizeof(T) / 64] = 1ull << (element * sizeof(T) % 64);
  return p;
}

single bits(float x) { return std::bit_cast<single>(x); }
real bits(double x) { return std::bit_cast<real>(x); }

// ---- Element-wise ----

TEST(FpVector, NegatedFactorsCarryTheirSignIntoNaNs) {
  CpuContext c = context_with();
  const VectorV r = VecF16FMSVVVM(filled<half>(0x3c00), all_true, filled<half>(0x7e01), filled<half>(0x3c00), &c);
  EXPECT_EQ(at<half>(r, 0), 0xfe01);
  EXPECT_EQ(c.fpsr, 0u);
}

TEST(FpVector, InactiveElementsKeepTheirValueAndRaiseNothing) {
  CpuContext c = context_with();
  c.fpsr = 0x100;  // not a status bit: nothing folds, so it stays
  const VectorV signalling = filled<half>(0x7c01);
  const VectorV r = VecF16AddVVM(signalling, all_false, signalling, &c);
  EXPECT_EQ(std::memcmp(r.bytes, signalling.bytes, 112), 0);
  EXPECT_EQ(c.fpsr, 0x100u);
  EXPECT_EQ(VecF16CmpEQVVZ(all_false, signalling, signalling, &c).words[0], 0u);
  EXPECT_EQ(c.fpsr, 0x100u);
}

TEST(FpVector, HalfImmediatesFoldEvenWithNothingActive) {
  CpuContext c = context_with();
  c.fpsr = 0x100 | ixc;
  const VectorV a = filled<half>(0x7bff);
  EXPECT_EQ(at<half>(VecF16MulVIM(a, all_false, 1, &c), 0), 0x7bff);
  EXPECT_EQ(c.fpsr, ixc) << "the fold of the immediate's conversion drops what is no status bit";
  c.fpsr = 0;
  EXPECT_EQ(at<half>(VecF16MulVIM(a, all_true, 1, &c), 0), 0x7c00) << "twice the largest normal";
  EXPECT_EQ(c.fpsr, ofc | ixc);
  for (const FPSCR fpcr : {FPSCR{0}, fz16 | ahp | dn}) {
    c = context_with(fpcr);
    EXPECT_EQ(at<half>(VecF16AddVIM(filled<half>(0x3c00), all_true, 0, &c), 0), 0x3e00);
    EXPECT_EQ(at<half>(VecF16SubRVIM(filled<half>(0x3800), all_true, 1, &c), 0), 0x3800);
    EXPECT_EQ(at<half>(VecF16MaxVIM(filled<half>(0xbc00), all_true, 0, &c), 0), 0x0000);
    EXPECT_EQ(c.fpcr, fpcr) << "only a copy has its controls cleared";
  }
}

TEST(FpVector, ImmediateConstants) {
  CpuContext c = context_with();
  const VectorV a = filled<single>(bits(3.0f)), d = filled<real>(bits(3.0));
  EXPECT_EQ(at<single>(VecF32AddVIM(a, all_true, 0, &c), 5), bits(3.5f));
  EXPECT_EQ(at<single>(VecF32AddVIM(a, all_true, 1, &c), 5), bits(4.0f));
  EXPECT_EQ(at<single>(VecF32SubRVIM(a, all_true, 1, &c), 5), bits(-2.0f));
  EXPECT_EQ(at<real>(VecD64MulVIM(d, all_true, 0, &c), 5), bits(1.5));
  EXPECT_EQ(at<real>(VecD64MulVIM(d, all_true, 1, &c), 5), bits(6.0));
  EXPECT_EQ(at<real>(VecD64MinNumVIM(d, all_true, 1, &c), 5), bits(1.0));
  EXPECT_EQ(at<real>(VecD64MinNumVIM(d, all_true, 0, &c), 5), bits(0.0));
}

TEST(FpVector, FusedFormsRoundOnceUnderTheContextsControl) {
  // 1 + 2^-12 squared is 1 + 2^-11 + 2^-24: the last term is lost or kept by the rounding mode alone.
  const single x = bits(1.0f + 0x1p-12f);
  for (const FPSCR fpcr : {FPSCR{0}, FPSCR{1u << 22}, towards_minus_infinity, towards_zero}) {
    CpuContext c = context_with(fpcr);
    const VectorV r = VecF32FMAVVVM(filled<single>(0), all_true, filled<single>(x), filled<single>(x), &c);
    EXPECT_EQ(at<single>(r, 0), fpcr == (1u << 22) ? bits(1.0f + 0x1p-11f) + 1 : bits(1.0f + 0x1p-11f));
    EXPECT_EQ(c.fpsr, ixc);
    // With the exact remainder in the accumulator nothing is lost.
    c = context_with(fpcr);
    const VectorV exact =
        VecF32FNMAVVVM(filled<single>(bits(-1.0f - 0x1p-11f)), all_true, filled<single>(x), filled<single>(x), &c);
    EXPECT_EQ(at<single>(exact, 0), bits(-0x1p-24f));
    EXPECT_EQ(c.fpsr, 0u);
  }
}

TEST(FpVector, MultiplyAddFormsAndTheirInactiveElements) {
  const VectorV a = filled<single>(bits(2.0f)), b = filled<single>(bits(3.0f)), d = filled<single>(bits(5.0f));
  const struct {
    VectorV (*routine)(const VectorV&, const PredV&, const VectorV&, const VectorV&, CpuContext*);
    float active;
  } forms[] = {{VecF32FMAVVVM, 2 + 15},    {VecF32FMSVVVM, 2 - 15},   {VecF32FNMAVVVM, -2 - 15},
               {VecF32FNMSVVVM, -2 + 15},  {VecF32FMADDVVVM, 5 + 6},  {VecF32FMSUBVVVM, 5 - 6},
               {VecF32FNMADDVVVM, -5 - 6}, {VecF32FNMSUBVVVM, -5 + 6}};
  for (const auto& f : forms) {
    CpuContext c = context_with();
    const VectorV r = f.routine(a, only<single>(3), b, d, &c);
    EXPECT_EQ(at<single>(r, 3), bits(f.active));
    EXPECT_EQ(at<single>(r, 2), bits(2.0f)) << "an inactive element keeps the first operand";
  }
}

// ---- The host engine ----

class HostFp : public testing::Test {
 protected:
  // On AArch64 the instruction functions work under the live registers, and the handler fetches the status.
  template <class Run>
  void run(Run action) {
    const test::LiveControl control(state);
    action();
#if defined(__aarch64__)
    sve::read_host_status(&state);
#endif
  }
  template <class T>
  void fill(unsigned z, T value) {
    for (std::size_t i = 0; i < sve::lanes<T>; ++i) std::memcpy(state.z[z] + i * sizeof(T), &value, sizeof value);
  }
  template <class T>
  T lane(unsigned z, std::size_t i) {
    T x;
    std::memcpy(&x, state.z[z] + i * sizeof(T), sizeof x);
    return x;
  }
  cpu_state state{};
  const aarch64_p_reg pg{1, aarch64_p_reg::merging};
  static aarch64_z_reg tied(unsigned n, unsigned e) { return {n, 5, e, e}; }
};

TEST_F(HostFp, ASignallingNaNIsQuietedAndRaisesInvalid) {
  std::memset(state.p[1], 1, sizeof state.p[1]);
  fill<single>(0, 0x7f800001);
  fill<single>(1, bits(1.0f));
  run([&] { sve_fadd_zpz(&state, tied(0, element_s), pg, {1, element_s}); });
  EXPECT_EQ(lane<single>(0, sve::lanes<single> - 1), 0x7fc00001u);
  EXPECT_EQ(state.fpsr, ioc);
}

TEST_F(HostFp, InactiveElementsExecuteNothing) {
  fill<real>(0, 0x7ff0000000000001);
  fill<real>(1, 0x7ff0000000000001);
  run([&] {
    sve_fdiv_zpz(&state, tied(0, element_d), pg, {1, element_d});
    sve_fsqrt_zpz(&state, {0, element_d}, pg, {1, element_d});
    sve_fcmgt_ppzz(&state, {2, element_d}, {1, aarch64_p_reg::zeroing}, {0, element_d}, {1, element_d});
  });
  EXPECT_EQ(lane<real>(0, 0), 0x7ff0000000000001u);
  EXPECT_EQ(state.fpsr, 0u);
}

TEST_F(HostFp, FnmlaRoundsOnceAndFollowsTheRoundingMode) {
  std::memset(state.p[1], 1, sizeof state.p[1]);
  const single x = bits(1.0f + 0x1p-12f);
  for (const FPSCR fpcr : {FPSCR{0}, towards_minus_infinity}) {
    state.fpcr = fpcr;
    state.fpsr = 0;
    fill<single>(0, 0);
    fill<single>(1, x);
    run([&] { sve_fnmla_zpzz(&state, tied(0, element_s), pg, {1, element_s}, {1, element_s}); });
    EXPECT_EQ(lane<single>(0, 0), fpcr == 0 ? bits(-1.0f - 0x1p-11f) : bits(-1.0f - 0x1p-11f) + 1);
    EXPECT_EQ(state.fpsr, ixc);
  }
}

TEST_F(HostFp, AbsoluteValueThatNoRowReachesKeepsWhatIsNotBelowZero) {
  std::memset(state.p[1], 1, sizeof state.p[1]);
  const single in[] = {bits(-2.0f), bits(2.0f), 0x80000000, 0, 0x7fc00001, 0xffc00001, 0xff800000, 0x80000001};
  const single out[] = {bits(2.0f), bits(2.0f), 0x80000000, 0, 0xffc00001, 0x7fc00001, 0x7f800000, 0x00000001};
  for (std::size_t i = 0; i < std::size(in); ++i) {
    fill<single>(1, in[i]);
    run([&] { sve_fabs_zpz(&state, {0, element_s}, pg, {1, element_s}); });
    EXPECT_EQ(lane<single>(0, sve::lanes<single> - 1), out[i]) << i;
  }
}

// The functions that no row reaches beside the routines of the same meaning, status included.
class Unreached : public HostFp {
 protected:
  using FunctionZpz = sve::insn::zpz*;
  using FunctionZpzz = sve::insn::zpzz*;

  static constexpr unsigned d = 3, a = 4, b = 5;

  template <class T>
  T random_value() {
    static constexpr double specials[] = {0.0,  -0.0,   1.0,          -1.5,          0.5, 2.5,
                                          1e30, -1e-30, 2147483647.0, -2147483648.5, 1e19};
    const std::uint64_t r = random();
    const unsigned kind = static_cast<unsigned>(random() % 8);
    if (kind == 0) return static_cast<T>(sizeof(T) == 4 ? 0x7f800000u : 0x7ff0000000000000u);
    if (kind == 1)
      return static_cast<T>(sizeof(T) == 4 ? 0x7f800001u | (r & 0x803fffffu) : 0x7ff0000000000001u | (r >> 13));
    if (kind == 2) return static_cast<T>(r >> (sizeof(T) == 4 ? 42 : 14));  // subnormal
    if (kind < 6) {
      const double x = specials[r % std::size(specials)];
      if constexpr (sizeof(T) == 4) return bits(static_cast<float>(x));
      return static_cast<T>(bits(x));
    }
    return static_cast<T>(r);
  }

  // `call` on a random state against `routine` on the same values; both give the whole of Zd.
  template <class T, class Call, class Routine>
  void compare(const char* name, Call call, Routine routine) {
    for (int round = 0; round < 400; ++round) {
      for (const unsigned z : {d, a, b})
        for (std::size_t i = 0; i < sve::lanes<T>; ++i) {
          const T x = random_value<T>();
          std::memcpy(state.z[z] + i * sizeof(T), &x, sizeof x);
        }
      PredV p{};
      for (std::size_t i = 0; i < sve::vector_bytes; ++i) {
        state.p[1][i] = static_cast<std::uint8_t>(round == 0 ? 1 : random());
        p.words[i / 64] |= std::uint64_t{state.p[1][i] & 1u} << (i % 64);
      }
      state.fpsr = 0;
      state.fpcr = std::array{0u, 1u << 22, 2u << 22, 3u << 22, 1u << 25, 1u << 24}[random() % 6];
      CpuContext c = context_with(state.fpcr, sve::vector_granules);
      VectorV operands[3];
      for (const unsigned z : {d, a, b}) std::memcpy(operands[z - d].bytes, state.z[z], sve::vector_bytes);
      const VectorV expected = routine(operands, p, &c);
      run([&] { ASSERT_EQ(call(), AARCH64_DECODE_EXECUTED); });
      ASSERT_EQ(std::memcmp(state.z[d], expected.bytes, sve::vector_bytes), 0) << name << " round " << round;
      ASSERT_EQ(state.fpsr & 0x9f, c.fpsr) << name << " round " << round;
    }
  }

  template <class T>
  void fused(const char* name, FunctionZpzz function, sve::routine::vvvm* routine) {
    const unsigned e = sizeof(T) == 4 ? element_s : element_d;
    compare<T>(
        name,
        [&] {
          return function(&state, tied(d, e), pg, {a, e}, {b, e});
        },
        [&](const VectorV(&o)[3], const PredV& p, CpuContext* c) { return routine(o[0], p, o[1], o[2], c); });
  }

  template <class T>
  void convert(const char* name, FunctionZpz function, sve::routine::vvm* routine) {
    const unsigned e = sizeof(T) == 4 ? element_s : element_d;
    compare<T>(
        name,
        [&] {
          return function(&state, {d, e}, pg, {a, e});
        },
        [&](const VectorV(&o)[3], const PredV& p, CpuContext* c) { return routine(o[0], p, o[1], c); });
  }

  // A scalar result lies in the lowest element, above zeros.
  template <class T>
  void reduce(const char* name, sve::insn::vpz* function, sve::routine::pv_scalar* routine) {
    compare<T>(
        name,
        [&] {
          return function(&state, d, pg, {a, sizeof(T) == 4 ? element_s : element_d});
        },
        [&](const VectorV(&o)[3], const PredV& p, CpuContext* c) {
          VectorV r{};
          put(r, 0, static_cast<T>(routine(p, o[1], c)));
          return r;
        });
  }

  std::mt19937_64 random{3};
};

TEST_F(Unreached, FusedForms) {
#define FUSED(function, op)                                               \
  fused<single>(#function ".s", sve_##function##_zpzz, VecF32##op##VVVM); \
  fused<real>(#function ".d", sve_##function##_zpzz, VecD64##op##VVVM);
  FUSED(fmla, FMA)
  FUSED(fmls, FMS)
  FUSED(fnmls, FNMS)
  FUSED(fmad, FMADD)
  FUSED(fmsb, FMSUB)
  FUSED(fnmad, FNMADD)
  FUSED(fnmsb, FNMSUB)
#undef FUSED
}

TEST_F(Unreached, Conversions) {
  convert<single>("fcvtzs_s2s", sve_fcvtzs_s2s_zpz, VecS32_4FromFVM);
  convert<real>("fcvtzs_s2d", sve_fcvtzs_s2d_zpz, VecS64_8FromFVM);
  convert<real>("fcvtzs_d2s", sve_fcvtzs_d2s_zpz, VecS64_4FromDVM);
  convert<real>("fcvtzs_d2d", sve_fcvtzs_d2d_zpz, VecS64_8FromDVM);
  convert<single>("fcvtzu_s2s", sve_fcvtzu_s2s_zpz, VecU32_4FromFVM);
  convert<real>("fcvtzu_s2d", sve_fcvtzu_s2d_zpz, VecU64_8FromFVM);
  convert<real>("fcvtzu_d2s", sve_fcvtzu_d2s_zpz, VecU64_4FromDVM);
  convert<real>("fcvtzu_d2d", sve_fcvtzu_d2d_zpz, VecU64_8FromDVM);
  convert<real>("fcvt_d2s", sve_fcvt_d2s_zpz, VecF64TruncDVM);
  convert<real>("fcvt_s2d", sve_fcvt_s2d_zpz, VecD64ExtndFVM);
}

TEST_F(Unreached, Sums) {
  reduce<single>("faddv.s", sve_faddv_vpz, VecF32AddReduceFV);
  reduce<real>("faddv.d", sve_faddv_vpz, VecD64AddReduceFV);
  const auto in_order = [&]<class T>(const char* name, auto routine) {
    compare<T>(
        name,
        [&] {
          return sve_fadda_vpz(&state, d, pg, {a, sizeof(T) == 4 ? element_s : element_d});
        },
        [&](const VectorV(&o)[3], const PredV& p, CpuContext* c) {
          VectorV r{};
          put(r, 0, static_cast<T>(routine(p, at<T>(o[0], 0), o[1], c)));
          return r;
        });
  };
  in_order.operator()<single>("fadda.s", VecF32AddReduceAV);
  in_order.operator()<real>("fadda.d", VecD64AddReduceAV);
}

// ---- Reductions ----

template <class T>
T pairwise(std::vector<T> values, T (*op)(T, T, FPSCR&), FPSCR& status) {
  while (values.size() > 1) {
    std::vector<T> next;
    for (std::size_t k = 0; k < values.size(); k += 2) next.push_back(op(values[k], values[k + 1], status));
    values = next;
  }
  return values[0];
}

TEST(FpReductions, SumsFollowTheTreeOfAdjacentPairs) {
  std::mt19937 random(7);
  for (const unsigned granules : {1u, 2u, 6u, 14u, 32u}) {
    bool differs = false;
    for (int round = 0; round < 50; ++round) {
      CpuContext c = context_with(0, granules);
      VectorV v;
      const std::size_t n = granules * 2;
      std::vector<single> values(std::bit_ceil(n), 0);
      single ordered = 0;
      FPSCR ignored = 0, status = 0;
      for (std::size_t i = 0; i < n; ++i) {
        values[i] = bits(std::ldexp(static_cast<float>(random() % 2000) - 1000.0f, static_cast<int>(random() % 30)));
        put(v, i, values[i]);
        ordered = FPAdd<single>(ordered, values[i], ignored);
      }
      const single expected = pairwise<single>(
          values, [](single a, single b, FPSCR& s) { return FPAdd(a, b, s); }, status);
      EXPECT_EQ(VecF32AddReduceFV(all_true, v, &c), expected);
      EXPECT_EQ(c.fpsr, status & 0x9f);
      EXPECT_EQ(VecF32AddReduceAV(all_true, 0, v, &c), ordered);
      differs = differs || expected != ordered;
    }
    if (granules >= 6) {
      EXPECT_TRUE(differs) << "the order must show";
    }
  }
}

TEST(FpReductions, NothingActiveGivesThePad) {
  CpuContext c = context_with();
  const VectorV signalling = filled<half>(0x7c01);
  EXPECT_EQ(VecF16AddReduceFV(all_false, signalling, &c), 0u);
  EXPECT_EQ(VecF16MaxReduceFV(all_false, signalling, &c), 0xfc00u);
  EXPECT_EQ(VecF16MinReduceFV(all_false, signalling, &c), 0x7c00u);
  EXPECT_EQ(VecF16MaxNumReduceFV(all_false, signalling, &c), 0x7e00u);
  EXPECT_EQ(VecF32MinNumReduceFV(all_false, signalling, &c), 0x7fc00000u);
  EXPECT_EQ(VecD64MaxReduceFV(all_false, signalling, &c), 0xfff0000000000000u);
  EXPECT_EQ(VecD64MinNumReduceFV(all_false, signalling, &c), 0x7ff8000000000000u);
  EXPECT_EQ(VecF16AddReduceAV(all_false, 0x7c01, signalling, &c), 0x7c01u) << "no operation touches the start";
  EXPECT_EQ(c.fpsr, 0u);
}

TEST(FpReductions, SignsAndNaNs) {
  CpuContext c = context_with();
  EXPECT_EQ(VecF32AddReduceFV(only<single>(5), filled<single>(0x80000000), &c), 0u) << "-0 meets the pad +0";
  CpuContext down = context_with(towards_minus_infinity);
  EXPECT_EQ(VecF32AddReduceFV(only<single>(5), filled<single>(0x80000000), &down), 0x80000000u);
  EXPECT_EQ(c.fpsr, 0u);
  VectorV v = filled<single>(bits(1.0f));
  put<single>(v, 9, 0x7fc00005);
  EXPECT_EQ(VecF32MaxReduceFV(all_true, v, &c), 0x7fc00005u);
  EXPECT_EQ(VecF32MaxNumReduceFV(all_true, v, &c), bits(1.0f));
  EXPECT_EQ(c.fpsr, 0u);
  put<single>(v, 9, 0x7f800005);
  EXPECT_EQ(VecF32AddReduceFV(all_true, v, &c), 0x7fc00005u);
  EXPECT_EQ(c.fpsr, ioc);
}

// ---- Complex and indexed ----

TEST(FpComplex, AdditionTurnsItsSecondOperand) {
  VectorV a{}, b{};
  for (std::size_t e = 0; e < 14; ++e) {
    put(a, 2 * e, bits(1.0f)), put(a, 2 * e + 1, bits(2.0f));
    put(b, 2 * e, bits(3.0f)), put(b, 2 * e + 1, bits(4.0f));
  }
  CpuContext c = context_with();
  const VectorV by_90 = VecF32FCADDVVM(a, all_true, b, 0, &c), by_270 = VecF32FCADDVVM(a, all_true, b, 1, &c);
  for (std::size_t e = 0; e < 14; ++e) {
    EXPECT_EQ(at<single>(by_90, 2 * e), bits(-3.0f));
    EXPECT_EQ(at<single>(by_90, 2 * e + 1), bits(5.0f));
    EXPECT_EQ(at<single>(by_270, 2 * e), bits(5.0f));
    EXPECT_EQ(at<single>(by_270, 2 * e + 1), bits(-1.0f));
  }
  // Each half has its own predicate; the other neither changes nor raises anything.
  put<single>(a, 1, 0x7f800001);
  const VectorV real_only = VecF32FCADDVVM(a, only<single>(0), b, 0, &c);
  EXPECT_EQ(at<single>(real_only, 0), bits(-3.0f));
  EXPECT_EQ(at<single>(real_only, 1), 0x7f800001u);
  EXPECT_EQ(c.fpsr, 0u);
}

TEST(FpComplex, TwoRotationsMakeAComplexMultiplyAdd) {
  CpuContext c = context_with();
  VectorV acc{}, n{}, m{};
  for (std::size_t e = 0; e < 7; ++e) {
    const double k = static_cast<double>(e);
    put(acc, 2 * e, bits(k)), put(acc, 2 * e + 1, bits(-k));
    put(n, 2 * e, bits(k + 1)), put(n, 2 * e + 1, bits(2 * k - 3));
    put(m, 2 * e, bits(4 - k)), put(m, 2 * e + 1, bits(k * k));
  }
  VectorV r = VecD64FCMLAVVVM(acc, all_true, n, m, 0, &c);
  r = VecD64FCMLAVVVM(r, all_true, n, m, 1, &c);
  VectorV conjugate = VecD64FCMLAVVVM(acc, all_true, n, m, 2, &c);
  conjugate = VecD64FCMLAVVVM(conjugate, all_true, n, m, 3, &c);
  for (std::size_t e = 0; e < 7; ++e) {
    const double k = static_cast<double>(e), nr = k + 1, ni = 2 * k - 3, mr = 4 - k, mi = k * k;
    EXPECT_EQ(at<real>(r, 2 * e), bits(k + nr * mr - ni * mi)) << e;
    EXPECT_EQ(at<real>(r, 2 * e + 1), bits(-k + nr * mi + ni * mr)) << e;
    EXPECT_EQ(at<real>(conjugate, 2 * e), bits(k - nr * mr + ni * mi)) << e;
    EXPECT_EQ(at<real>(conjugate, 2 * e + 1), bits(-k - nr * mi - ni * mr)) << e;
  }
  const VectorV nan = VecF16FCMLAVVVM(filled<half>(0), all_true, filled<half>(0x3c00), filled<half>(0x7e07), 2, &c);
  EXPECT_EQ(at<half>(nan, 0), 0xfe07);
  EXPECT_EQ(at<half>(nan, 1), 0xfe07);
}

TEST(FpComplex, IndexedFormsReadTheirOwnSegment) {
  CpuContext c = context_with();
  VectorV m{};
  for (std::size_t i = 0; i < 28; ++i) put(m, i, bits(static_cast<float>(i)));
  const VectorV one = filled<single>(bits(1.0f)), zero{};
  for (std::uint64_t index = 0; index < 4; ++index) {
    const VectorV product = VecF32MulVVIX(one, m, index, &c), sum = VecF32FMAVVVIX(one, one, m, index, &c),
                  difference = VecF32FMSVVVIX(one, one, m, index, &c);
    for (std::size_t i = 0; i < 28; ++i) {
      const float x = static_cast<float>(i / 4 * 4 + index);
      EXPECT_EQ(at<single>(product, i), bits(x));
      EXPECT_EQ(at<single>(sum, i), bits(1 + x));
      EXPECT_EQ(at<single>(difference, i), bits(1 - x));
    }
  }
  const VectorV pair = VecF32FCMLAVVVIX(one, m, zero, 0, 1, &c);
  for (std::size_t e = 0; e < 14; ++e) {
    EXPECT_EQ(at<single>(pair, 2 * e), bits(static_cast<float>(e / 2 * 4 + 2)));
    EXPECT_EQ(at<single>(pair, 2 * e + 1), bits(static_cast<float>(e / 2 * 4 + 3)));
  }
}

// ---- Compares ----

TEST(FpCompares, QuietNaNs) {
  const VectorV nan = filled<half>(0x7e00), one = filled<half>(0x3c00);
  const struct {
    PredV (*routine)(const PredV&, const VectorV&, const VectorV&, CpuContext*);
    bool result;
    FPSCR status;
  } forms[] = {{VecF16CmpGEVVZ, false, ioc}, {VecF16CmpGTVVZ, false, ioc}, {VecF16CmpEQVVZ, false, 0},
               {VecF16CmpNEVVZ, true, 0},    {VecF16CmpUNVVZ, true, 0},    {VecF16AcGEVVZ, false, ioc}};
  for (const auto& f : forms) {
    CpuContext c = context_with();
    const PredV r = f.routine(only<half>(2), nan, one, &c);
    EXPECT_EQ(r.words[0], f.result ? 1u << 4 : 0u);
    EXPECT_EQ(r.words[1], 0u);
    EXPECT_EQ(c.fpsr, f.status);
    EXPECT_EQ(c.nzcv, 0u);
  }
}

TEST(FpCompares, AgainstZero) {
  CpuContext c = context_with();
  EXPECT_EQ(VecF16CmpLEV0Z(only<half>(0), filled<half>(0x7e00), &c).words[0], 0u);
  EXPECT_EQ(c.fpsr, ioc);
  EXPECT_EQ(VecF16CmpLEV0Z(only<half>(0), filled<half>(0x8000), &c).words[0], 1u);
  EXPECT_EQ(VecF16CmpLTV0Z(only<half>(0), filled<half>(0x8000), &c).words[0], 0u);
  EXPECT_EQ(VecF32AcGTVVZ(only<single>(0), filled<single>(bits(-3.0f)), filled<single>(bits(2.0f)), &c).words[0], 1u);
  // The wider forms that no row reaches negate the opposite compare, and a NaN compares true.
  EXPECT_EQ(VecF32CmpLEV0Z(only<single>(0), filled<single>(0x7fc00000), &c).words[0], 1u);
  EXPECT_EQ(VecD64CmpLTV0Z(only<real>(0), filled<real>(0x7ff8000000000000), &c).words[0], 1u);
  EXPECT_EQ(VecD64CmpLEV0Z(only<real>(0), filled<real>(bits(-1.0)), &c).words[0], 1u);
  EXPECT_EQ(VecF32CmpLTV0Z(only<single>(0), filled<single>(bits(1.0f)), &c).words[0], 0u);
}

// ---- Rounding and conversions ----

TEST(FpConversions, RoundingToIntegral) {
  const VectorV v = filled<single>(bits(2.5f)), old = filled<single>(bits(9.0f));
  CpuContext c = context_with();
  EXPECT_EQ(at<single>(VecF32FRIntIVM(old, all_true, v, &c), 0), bits(2.0f));
  EXPECT_EQ(c.fpsr, 0u);
  EXPECT_EQ(at<single>(VecF32FRIntXVM(old, all_true, v, &c), 0), bits(2.0f));
  EXPECT_EQ(c.fpsr, ixc);
  c = context_with(1u << 22);
  EXPECT_EQ(at<single>(VecF32FRIntIVM(old, all_true, v, &c), 0), bits(3.0f));
  EXPECT_EQ(at<single>(VecF32FRIntAVM(old, all_true, v, &c), 0), bits(3.0f));
  EXPECT_EQ(at<single>(VecF32FRIntNVM(old, all_true, v, &c), 0), bits(2.0f));
  EXPECT_EQ(at<single>(VecF32FRIntMVM(old, only<single>(3), v, &c), 0), bits(9.0f)) << "inactive";
}

TEST(FpConversions, HalfFormatsIgnoreTheirControls) {
  CpuContext c = context_with(ahp);
  EXPECT_EQ(at<single>(VecH32TruncFVM(filled<single>(~0u), all_true, filled<single>(bits(1e10f)), &c), 0), 0x7c00u)
      << "the IEEE infinity, zero-extended to its slot";
  EXPECT_EQ(c.fpcr, ahp);
  EXPECT_EQ(c.fpsr, ofc | ixc);
  c = context_with(fz16);
  EXPECT_EQ(at<single>(VecF32ExtndHVM(filled<single>(0), all_true, filled<single>(0xabcd0001), &c), 0), bits(0x1p-24f));
  EXPECT_EQ(c.fpsr, 0u);
  EXPECT_EQ(at<real>(VecF64TruncDVM(filled<real>(0), all_true, filled<real>(bits(1.5)), &c), 0), real{bits(1.5f)});
}

TEST(FpConversions, ToIntegers) {
  const struct {
    VectorV (*routine)(const VectorV&, const PredV&, const VectorV&, CpuContext*);
    double value;
    real result;
    FPSCR status;
  } doubles[] = {{VecS64_4FromDVM, -1.75, ~real{0}, ixc},
                 {VecU64_4FromDVM, 4294967295.0, 0xffffffff, 0},
                 {VecU64_4FromDVM, 1e10, 0xffffffff, ioc},
                 {VecS64_4FromDVM, 3e9, 0x7fffffff, ioc},
                 {VecS64_4FromDVM, -3e9, 0xffffffff80000000, ioc},
                 {VecS64_8FromDVM, 1e19, 0x7fffffffffffffff, ioc},
                 {VecU64_8FromDVM, -1.0, 0, ioc}};
  for (const auto& f : doubles) {
    CpuContext c = context_with(1u << 22);  // the rounding mode does not matter
    EXPECT_EQ(at<real>(f.routine(filled<real>(0), all_true, filled<real>(bits(f.value)), &c), 0), f.result) << f.value;
    EXPECT_EQ(c.fpsr, f.status) << f.value;
  }
  CpuContext c = context_with();
  EXPECT_EQ(at<single>(VecU32_4FromFVM(filled<single>(0), all_true, filled<single>(bits(-1.5f)), &c), 0), 0u);
  EXPECT_EQ(c.fpsr, ioc);
  c = context_with();
  EXPECT_EQ(at<single>(VecS32_4FromFVM(filled<single>(0), all_true, filled<single>(bits(3e9f)), &c), 0), 0x7fffffffu);
  EXPECT_EQ(c.fpsr, ioc);
}

TEST(FpConversions, FromIntegers) {
  CpuContext c = context_with();
  EXPECT_EQ(at<single>(VecF16FromS4VM(filled<single>(~0u), all_true, filled<single>(100000), &c), 0), 0x7c00u);
  EXPECT_EQ(c.fpsr, ofc | ixc);
  c = context_with();
  EXPECT_EQ(at<half>(VecF16FromU2VM(filled<half>(0), all_true, filled<half>(0xffff), &c), 0), 0x7c00);
  EXPECT_EQ(at<half>(VecF16FromS2VM(filled<half>(0), all_true, filled<half>(0xffff), &c), 0), 0xbc00);
  EXPECT_EQ(at<real>(VecF64FromU8VM(filled<real>(~0ull), all_true, filled<real>(1ull << 63), &c), 0),
            real{bits(0x1p63f)});
}

// ---- Estimates and accelerators ----

TEST(FpAccelerators, VectorForms) {
  CpuContext c = context_with();
  EXPECT_EQ(at<single>(VecF32RecpEV(filled<single>(bits(1.0f)), &c), 27), 0x3f7f8000u);
  EXPECT_EQ(at<half>(VecF16RecpEV(filled<half>(0x3c00), &c), 55), 0x3bfc);
  EXPECT_EQ(at<single>(VecF32RSqrtEV(filled<single>(bits(1.0f)), &c), 27), 0x3f7f8000u);
  EXPECT_EQ(c.fpsr, 0u);
  EXPECT_EQ(at<single>(VecF32RecpEV(filled<single>(0x80000000), &c), 0), 0xff800000u);
  EXPECT_EQ(c.fpsr, dzc);
  c = context_with();
  EXPECT_EQ(at<single>(VecF32RecpSVV(filled<single>(0x7f800000), filled<single>(0), &c), 3), bits(2.0f));
  EXPECT_EQ(at<single>(VecF32RSqrtSVV(filled<single>(0), filled<single>(0x7f800000), &c), 3), bits(1.5f));
  EXPECT_EQ(at<single>(VecF32RecpXVM(filled<single>(7), only<single>(1), filled<single>(bits(3.0f)), &c), 1),
            0x3f800000u);
  EXPECT_EQ(at<single>(VecF32RecpXVM(filled<single>(7), only<single>(1), filled<single>(bits(3.0f)), &c), 0), 7u);
  EXPECT_EQ(at<single>(VecF32TRISSELVV(filled<single>(0x7f800001), filled<single>(3), &c), 0), bits(-1.0f));
  EXPECT_EQ(at<single>(VecF32TRISSELVV(filled<single>(bits(4.0f)), filled<single>(0xfffffff2), &c), 0), bits(-4.0f));
  EXPECT_EQ(at<real>(VecD64EXPAV(filled<real>(0), &c), 13), 0u);
  EXPECT_EQ(at<single>(VecF32EXPAV(filled<single>(127 << 6 | 1), &c), 13), 0x3f800000u | 0x164d2u);
  // The first coefficients, by the sign of the second operand: 1 + 0 * |x|.
  EXPECT_EQ(at<real>(VecD64TRIMADDVVI(filled<real>(0), filled<real>(bits(2.0)), 1, &c), 0), 0xbfc5555555555543u);
  EXPECT_EQ(at<real>(VecD64TRIMADDVVI(filled<real>(0), filled<real>(0x8000000000000000), 1, &c), 0),
            0xbfe0000000000000u);
  EXPECT_EQ(at<single>(VecF32TRISMULVV(filled<single>(bits(-3.0f)), filled<single>(1), &c), 0), bits(-9.0f));
  EXPECT_EQ(at<single>(VecF32TRISMULVV(filled<single>(0x7fc00002), filled<single>(1), &c), 0), 0x7fc00002u);
  EXPECT_EQ(c.fpsr, 0u);
}

// ---- Lengths ----

TEST(FpLengths, NothingHappensAtLengthZero) {
  CpuContext c = context_with(0, 0);
  c.fpsr = 0x100;
  VecF16MulVIM(filled<half>(0x7bff), all_true, 1, &c);
  VecF32AddVVX(filled<single>(0x7f800001), filled<single>(1), &c);
  EXPECT_EQ(VecF32AddReduceAV(all_true, 5, filled<single>(0x7f800001), &c), 5u);
  EXPECT_EQ(c.fpsr, 0x100u);
}

TEST(FpLengths, EveryElementBelowTheLength) {
  for (const unsigned granules : {1u, 2u, 6u, 14u, 32u}) {
    CpuContext c = context_with(0, granules);
    const VectorV r = VecD64AddVVM(filled<real>(bits(1.0)), all_true, filled<real>(bits(2.0)), &c);
    for (std::size_t i = 0; i < granules; ++i) EXPECT_EQ(at<real>(r, i), bits(3.0));
    const VectorV h = VecF16MulVVX(filled<half>(0x4000), filled<half>(0x4200), &c);
    for (std::size_t i = 0; i < granules * 4; ++i) EXPECT_EQ(at<half>(h, i), 0x4600);
  }
}

}  // namespace
