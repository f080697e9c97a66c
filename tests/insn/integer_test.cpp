// Element-wise integer arithmetic and logic as instruction functions.
#include <gtest/gtest-spi.h>

#include <limits>

#include "registers.h"

namespace {

using namespace insn_test;

// What an element of width W becomes, told on its low bits as an unsigned 64-bit value; the result is cut to the
// element.
using Binary = u64 (*)(u64 a, u64 b, int width);
using Ternary = u64 (*)(u64 a, u64 b, u64 c);

std::int64_t extended(u64 a, int width) { return static_cast<std::int64_t>(a << (64 - width)) >> (64 - width); }

u64 sdiv(u64 a, u64 b, int width) {
  const __int128 n = extended(a, width), d = extended(b, width);
  return d == 0 ? 0 : static_cast<u64>(n / d);  // in 128 bits the smallest value by -1 does not overflow
}
u64 udiv(u64 a, u64 b, int) { return b == 0 ? 0 : a / b; }

struct Predicated {
  const char* name;
  sve::insn::zpz* function;
  Binary op;
};
const Predicated binaries[] = {
    {"add", sve_add_zpz, [](u64 a, u64 b, int) { return a + b; }},
    {"sub", sve_sub_zpz, [](u64 a, u64 b, int) { return a - b; }},
    {"mul", sve_mul_zpz, [](u64 a, u64 b, int) { return a * b; }},
    {"and", sve_and_zpz, [](u64 a, u64 b, int) { return a & b; }},
    {"orr", sve_orr_zpz, [](u64 a, u64 b, int) { return a | b; }},
    {"eor", sve_eor_zpz, [](u64 a, u64 b, int) { return a ^ b; }},
    {"bic", sve_bic_zpz, [](u64 a, u64 b, int) { return a & ~b; }},
    {"smax", sve_smax_zpz, [](u64 a, u64 b, int w) { return extended(a, w) > extended(b, w) ? a : b; }},
    {"smin", sve_smin_zpz, [](u64 a, u64 b, int w) { return extended(a, w) < extended(b, w) ? a : b; }},
    {"umax", sve_umax_zpz, [](u64 a, u64 b, int) { return a > b ? a : b; }},
    {"umin", sve_umin_zpz, [](u64 a, u64 b, int) { return a < b ? a : b; }},
};
const Predicated divisions[] = {
    {"sdiv", sve_sdiv_zpz, sdiv},
    {"sdivr", sve_sdivr_zpz, [](u64 a, u64 b, int w) { return sdiv(b, a, w); }},
    {"udiv", sve_udiv_zpz, udiv},
    {"udivr", sve_udivr_zpz, [](u64 a, u64 b, int w) { return udiv(b, a, w); }},
};

template <class T>
void check_binary(const Predicated& f, unsigned code) {
  for (const unsigned m : {6u, 5u}) {  // the second source apart, or the destination itself
    aarch64_z_reg zdn = z_tied(5, code);
    run(f.name, 60, calling(f.function, zdn, merging(1), z(m, code)), [&](auto& e, auto& s) {
      merge_elements<T>(
          e.z[5], s.p[1], [&](T a, T b) { return f.op(a, b, 8 * sizeof(T)); }, s.z[5], s.z[m]);
    });
  }
}

TEST(Predicated, BinaryAtEverySize) {
  for_each_type([]<class T>() {
    for (const Predicated& f : binaries) check_binary<T>(f, size_code<T>);
  });
  for (const Predicated& f : binaries)
    for (const unsigned code : {4u, 5u, 7u}) check_binary<u8>(f, code);  // every other code means 8 bits
}

TEST(Predicated, DivisionKnowsTwoSizes) {
  for (const Predicated& f : divisions) {
    check_binary<u64>(f, element_d);
    for (const unsigned code : {0u, 1u, 2u, 4u, 5u}) check_binary<u32>(f, code);
  }
}

template <class T>
void check_division_edges() {
  using S = std::make_signed_t<T>;
  constexpr S low = std::numeric_limits<S>::min();
  cpu_state state{};
  std::memset(state.p[0], 1, vector_bytes);
  const auto divide = [&](auto function, S a, S b) {
    VectorOf<S> v;
    v.fill(a);
    put(state.z[0], v);
    v.fill(b);
    put(state.z[1], v);
    function(&state, z_tied(0, size_code<T>), merging(0), z(1, size_code<T>));
    return elements<S>(state.z[0]).back();
  };
  EXPECT_EQ(divide(sve_sdiv_zpz, low, -1), low);
  EXPECT_EQ(divide(sve_sdiv_zpz, 17, 0), 0);
  EXPECT_EQ(divide(sve_sdiv_zpz, -17, 5), -3);
  EXPECT_EQ(divide(sve_sdivr_zpz, 0, 17), 0);
  EXPECT_EQ(divide(sve_sdivr_zpz, -1, low), low);
  EXPECT_EQ(divide(sve_udiv_zpz, -1, 0), 0);
  EXPECT_EQ(divide(sve_udivr_zpz, 0, -1), 0);
  EXPECT_EQ(divide(sve_udiv_zpz, -1, 1), -1);
}

TEST(Predicated, DivisionEdges) {
  check_division_edges<u32>();
  check_division_edges<u64>();
}

TEST(Predicated, OnlyBitZeroOfAnElementsFirstByteCounts) {
  const auto active_elements = [](byte value, std::size_t step) {
    cpu_state state{};
    for (std::size_t i = 0; i < vector_bytes; i += step) state.p[0][i] = value;
    VectorOf<u32> ones;
    ones.fill(1);
    put(state.z[1], ones);
    sve_add_zpz(&state, z_tied(0, element_s), merging(0), z(1, element_s));
    unsigned n = 0;
    for (const u32 v : elements<u32>(state.z[0])) n += v;
    return n;
  };
  EXPECT_EQ(active_elements(0xfe, 1), 0u);
  EXPECT_EQ(active_elements(0x01, 1), sve::lanes<u32>);
  EXPECT_EQ(active_elements(0x01, 4), sve::lanes<u32>);
  EXPECT_EQ(active_elements(0x03, 4), sve::lanes<u32>);
  EXPECT_EQ(active_elements(0x02, 4), 0u);
}

// ---- Unary: an inactive element keeps the old destination, also when it is not the source ----

template <class T>
void check_unary(const char* name, sve::insn::zpz* function, unsigned code, u64 (*op)(u64, int)) {
  for (const unsigned n : {6u, 5u})
    run(name, 60, calling(function, z(5, code), merging(1), z(n, code)), [&](auto& e, auto& s) {
      merge_elements<T>(
          e.z[5], s.p[1], [&](T a) { return op(a, 8 * sizeof(T)); }, s.z[n]);
    });
}

TEST(Unary, NegateAndExtend) {
  const auto negate = [](u64 a, int) { return 0 - a; };
  for_each_type([&]<class T>() { check_unary<T>("neg", sve_neg_zpz, size_code<T>, negate); });
  check_unary<u8>("neg", sve_neg_zpz, 7, negate);
  const auto sxtb = [](u64 a, int) { return static_cast<u64>(extended(a, 8)); };
  const auto sxth = [](u64 a, int) { return static_cast<u64>(extended(a, 16)); };
  const auto sxtw = [](u64 a, int) { return static_cast<u64>(extended(a, 32)); };
  check_unary<u16>("sxtb", sve_sxtb_zpz, element_h, sxtb);
  check_unary<u32>("sxtb", sve_sxtb_zpz, element_s, sxtb);
  check_unary<u64>("sxtb", sve_sxtb_zpz, element_d, sxtb);
  check_unary<u32>("sxth", sve_sxth_zpz, element_s, sxth);
  check_unary<u64>("sxth", sve_sxth_zpz, element_d, sxth);
  check_unary<u64>("sxtw", sve_sxtw_zpz, element_d, sxtw);
  check_unary<u32>("uxth", sve_uxth_zpz, element_s, [](u64 a, int) { return a & 0xffff; });
  check_unary<u64>("uxth", sve_uxth_zpz, element_d, [](u64 a, int) { return a & 0xffff; });
  check_unary<u64>("uxtw", sve_uxtw_zpz, element_d, [](u64 a, int) { return a & 0xffffffff; });
}

// ---- Multiply-accumulate: an inactive element keeps the first operand ----

TEST(MultiplyAccumulate, EveryFormAndSize) {
  struct {
    const char* name;
    sve::insn::zpzz* function;
    Ternary op;
  } const forms[] = {
      {"mla", sve_mla_zpzz, [](u64 da, u64 n, u64 m) { return da + n * m; }},
      {"mls", sve_mls_zpzz, [](u64 da, u64 n, u64 m) { return da - n * m; }},
      {"mad", sve_mad_zpzz, [](u64 dn, u64 m, u64 a) { return a + dn * m; }},
      {"msb", sve_msb_zpzz, [](u64 dn, u64 m, u64 a) { return a - dn * m; }},
  };
  for_each_type([&]<class T>() {
    for (const auto& f : forms)
      for (const auto& [n, m] : {std::pair{6u, 7u}, {5u, 7u}, {6u, 5u}, {5u, 5u}})
        run(f.name, 40,
            calling(f.function, z_tied(5, size_code<T>), merging(1), z(n, size_code<T>), z(m, size_code<T>)),
            [&](auto& e, auto& s) { merge_elements<T>(e.z[5], s.p[1], f.op, s.z[5], s.z[n], s.z[m]); });
  });
}

// ---- Unpredicated ----

template <class T>
void check_unpredicated(const char* name, sve::insn::zzz* function, unsigned code, Binary op) {
  for (const auto& [n, m] : {std::pair{6u, 7u}, {5u, 7u}, {6u, 5u}})
    run(name, 20, calling(function, z(5, code), z(n, code), z(m, code)), [&](auto& e, auto& s) {
      map_elements<T>(
          e.z[5], [&](T a, T b) { return op(a, b, 0); }, s.z[n], s.z[m]);
    });
}

TEST(Unpredicated, Vectors) {
  for_each_type([]<class T>() {
    check_unpredicated<T>("add", sve_add_zzz, size_code<T>, binaries[0].op);
    check_unpredicated<T>("sub", sve_sub_zzz, size_code<T>, binaries[1].op);
  });
  check_unpredicated<u64>("and", sve_and_zzz, element_d, [](u64 a, u64 b, int) { return a & b; });
  check_unpredicated<u64>("orr", sve_orr_zzz, element_d, [](u64 a, u64 b, int) { return a | b; });
  check_unpredicated<u64>("eor", sve_eor_zzz, element_d, [](u64 a, u64 b, int) { return a ^ b; });
  check_unpredicated<u64>("bic", sve_bic_zzz, element_d, [](u64 a, u64 b, int) { return a & ~b; });
}

TEST(Unpredicated, Immediates) {
  const auto check = [](const char* name, auto element, auto call, auto op) {
    using T = decltype(element);
    run(name, 5, call, [&](auto& e, auto& s) { map_elements<T>(e.z[5], op, s.z[5]); });
  };
  for_each_type([&]<class T>() {
    const aarch64_z_reg zdn = z_tied(5, size_code<T>);
    for (const unsigned imm : {0u, 1u, 255u, 0x100u, 0xff00u}) {  // at 8 bits a shifted one changes nothing
      check(
          "add", T{}, [&](cpu_state* s) { return sve_add_zi(s, zdn, imm); }, [&](u64 a) { return a + imm; });
      check(
          "sub", T{}, [&](cpu_state* s) { return sve_sub_zi(s, zdn, imm); }, [&](u64 a) { return a - imm; });
    }
    for (const int imm : {0, 1, -1, 127, -128})
      check(
          "mul", T{}, [&](cpu_state* s) { return sve_mul_zi(s, zdn, imm); },
          [&](u64 a) { return a * static_cast<u64>(static_cast<std::int64_t>(imm)); });
  });
  constexpr u64 mask = 0x00ff00ff12345678;
  const aarch64_z_reg zdn = z_tied(5, element_d);
  check(
      "and", u64{}, [&](cpu_state* s) { return sve_and_zi(s, zdn, {mask}); }, [](u64 a) { return a & mask; });
  check(
      "orr", u64{}, [&](cpu_state* s) { return sve_orr_zi(s, zdn, {mask}); }, [](u64 a) { return a | mask; });
  check(
      "eor", u64{}, [&](cpu_state* s) { return sve_eor_zi(s, zdn, {mask}); }, [](u64 a) { return a ^ mask; });
}

// A wrong result is shown with its operands: the registers that the call reads.
void expect_a_wrong_sum() {
  run("wrong sum", 1, calling(sve_add_zzz, z(5, element_h), z(3, element_h), z(9, element_h)), [&](auto& e, auto& s) {
    auto a = elements<u16>(s.z[3]);
    const auto b = elements<u16>(s.z[9]);
    for (std::size_t i = 0; i < a.size(); ++i) a[i] = static_cast<u16>(a[i] + b[i] + (i == 2));
    put(e.z[5], a);
  });
}

TEST(Failures, TellOperandsAndResultsByElement) {
  EXPECT_FATAL_FAILURE(expect_a_wrong_sum(),
                       "z5, elements of 2 bytes\n element        z3        z9  expected       got\n       2  ");
}

}  // namespace
