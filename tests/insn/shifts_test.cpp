// Shifts and bit reversal as instruction functions. An amount is the whole unsigned element.
#include "registers.h"

namespace {

using namespace insn_test;

template <class T>
T left(T a, u64 n) {
  return n >= 8 * sizeof(T) ? T{0} : static_cast<T>(u64{a} << n);
}
template <class T>
T right(T a, u64 n) {
  return n >= 8 * sizeof(T) ? T{0} : static_cast<T>(a >> n);
}
template <class T>
T right_arithmetic(T a, u64 n) {
  const __int128 x = static_cast<std::make_signed_t<T>>(a);
  return static_cast<T>(x >> (n > 100 ? 100 : n));
}

enum Shift { lsl, lsr, asr };
template <class T>
T shifted(Shift kind, T a, u64 n) {
  return kind == lsl ? left(a, n) : kind == lsr ? right(a, n) : right_arithmetic(a, n);
}

template <class T>
void check_vector(Shift kind, sve::insn::zpz* function, unsigned code) {
  for (const unsigned m : {6u, 5u})
    run("vector", 200, calling(function, z_tied(5, code), merging(1), z(m, code)), [&](auto& e, auto& s) {
      merge_elements<T>(
          e.z[5], s.p[1], [&](T a, T n) { return shifted(kind, a, n); }, s.z[5], s.z[m]);
    });
}

TEST(Shift, ByVectorOnWholeAmounts) {
  for_each_type([]<class T>() {
    check_vector<T>(lsl, sve_lsl_zpz, size_code<T>);
    check_vector<T>(lsr, sve_lsr_zpz, size_code<T>);
    check_vector<T>(asr, sve_asr_zpz, size_code<T>);
  });
  check_vector<u8>(lsl, sve_lsl_zpz, 7);
}

// One element by one amount.
template <class T>
T one(sve::insn::zpz* function, T a, T n) {
  cpu_state state{};
  std::memset(state.p[0], 1, vector_bytes);
  VectorOf<T> v;
  v.fill(a);
  put(state.z[0], v);
  v.fill(n);
  put(state.z[1], v);
  function(&state, z_tied(0, size_code<T>), merging(0), z(1, size_code<T>));
  return elements<T>(state.z[0])[1];
}

TEST(Shift, EdgeAmounts) {
  for_each_type([]<class T>() {
    constexpr T width = 8 * sizeof(T), negative = static_cast<T>(T{1} << (width - 1)), ones = static_cast<T>(~T{0});
    for (const T n : {width, static_cast<T>(width + 1), negative, ones}) {
      EXPECT_EQ(one<T>(sve_lsl_zpz, ones, n), 0);
      EXPECT_EQ(one<T>(sve_lsr_zpz, ones, n), 0);
      EXPECT_EQ(one<T>(sve_asr_zpz, negative, n), ones);
      EXPECT_EQ(one<T>(sve_asr_zpz, static_cast<T>(negative - 1), n), 0);
    }
    EXPECT_EQ(one<T>(sve_asr_zpz, negative, 0), negative);
  });
  EXPECT_EQ(one<u16>(sve_lsr_zpz, 0xffff, 256), 0);  // the amount's low byte is 0
  EXPECT_EQ(one<u64>(sve_lsl_zpz, 1, 0x8000000000000000), 0u);
}

TEST(Shift, ByEveryImmediate) {
  for_each_type([]<class T>() {
    struct {
      Shift kind;
      sve::insn::zpi* predicated;
      sve::insn::zzi* plain;
    } const forms[] = {
        {lsl, sve_lsl_zpi, sve_lsl_zzi}, {lsr, sve_lsr_zpi, sve_lsr_zzi}, {asr, sve_asr_zpi, sve_asr_zzi}};
    for (const auto& f : forms)
      for (unsigned imm = 0; imm <= 8 * sizeof(T) + 1; ++imm) {  // the width and more, too
        run("zpi", 3, calling(f.predicated, z_tied(5, size_code<T>), merging(1), imm), [&](auto& e, auto& s) {
          merge_elements<T>(
              e.z[5], s.p[1], [&](T a) { return shifted(f.kind, a, imm); }, s.z[5]);
        });
        for (const unsigned n : {5u, 6u})
          run("zzi", 3, calling(f.plain, z(5, size_code<T>), z(n, size_code<T>), imm), [&](auto& e, auto& s) {
            map_elements<T>(
                e.z[5], [&](T a) { return shifted(f.kind, a, imm); }, s.z[n]);
          });
      }
  });
}

TEST(Bits, RbitAndRevw) {
  for_each_type([]<class T>() {
    for (const unsigned n : {5u, 6u})
      run("rbit", 60, calling(sve_rbit_zpz, z(5, size_code<T>), merging(1), z(n, size_code<T>)), [&](auto& e, auto& s) {
        const auto reversed = [](T a) {
          T r = 0;
          for (std::size_t k = 0; k < 8 * sizeof(T); ++k) r = static_cast<T>(r << 1 | (a >> k & 1));
          return r;
        };
        merge_elements<T>(e.z[5], s.p[1], reversed, s.z[n]);
      });
  });
  run("revw", 60, calling(sve_revw_zpz, z(5, element_d), merging(1), z(6, element_d)), [&](auto& e, auto& s) {
    merge_elements<u64>(
        e.z[5], s.p[1], [](u64 a) { return a << 32 | a >> 32; }, s.z[6]);
  });
}

}  // namespace
