// Moves of elements as instruction functions, against plain index arithmetic.
#include <functional>

#include "registers.h"
#include "tests/index_rules.h"

namespace {

using namespace insn_test;

template <class T>
void permute(byte* dst, const byte* a, const byte* b, IndexRule rule) {
  constexpr std::size_t n = sve::lanes<T>;
  const auto x = elements<T>(a), y = elements<T>(b);
  VectorOf<T> r;
  for (std::size_t i = 0; i < n; ++i) {
    const std::size_t from = rule(i, n);
    r[i] = from < n ? x[from] : y[from - n];
  }
  put(dst, r);
}

struct VectorPermute {
  const char* name;
  sve::insn::zzz* function;
  IndexRule rule;
};
const VectorPermute vector_permutes[] = {{"zip1", sve_zip1_zzz, zip1}, {"zip2", sve_zip2_zzz, zip2},
                                         {"uzp1", sve_uzp1_zzz, uzp1}, {"uzp2", sve_uzp2_zzz, uzp2},
                                         {"trn1", sve_trn1_zzz, trn1}, {"trn2", sve_trn2_zzz, trn2}};
struct PredicatePermute {
  const char* name;
  sve::insn::ppp* function;
  IndexRule rule;
};
const PredicatePermute predicate_permutes[] = {{"zip1", sve_zip1_ppp, zip1},
                                               {"zip2", sve_zip2_ppp, zip2},
                                               {"uzp1", sve_uzp1_ppp, uzp1},
                                               {"trn1", sve_trn1_ppp, trn1}};

TEST(Permute, VectorsFollowTheirIndexRule) {
  for_each_type([]<class T>() {
    for (const VectorPermute& f : vector_permutes)
      for (const unsigned d : {4u, 5u, 6u})  // the destination apart, or one of the sources
        run(f.name, 30, calling(f.function, z(d, size_code<T>), z(5, size_code<T>), z(6, size_code<T>)),
            [&](auto& e, auto& s) { permute<T>(e.z[d], s.z[5], s.z[6], f.rule); });
  });
}

// Whole units move, with whatever the bytes between the flags hold.
TEST(Permute, PredicatesFollowTheSameRules) {
  for_each_type([]<class T>() {
    for (const PredicatePermute& f : predicate_permutes)
      for (const unsigned d : {4u, 5u, 6u})
        run(f.name, 60, calling(f.function, p(d, size_code<T>), p(5, size_code<T>), p(6, size_code<T>)),
            [&](auto& e, auto& s) { permute<T>(e.p[d], s.p[5], s.p[6], f.rule); });
  });
}

TEST(Permute, InterleavesOfBuffers) {
  Random random(7);
  for_each_type([&]<class T>() {
    byte a[vector_bytes], b[vector_bytes], dst[vector_bytes], expected[vector_bytes];
    random_words(a, vector_bytes, random);
    random_words(b, vector_bytes, random);
    const auto check = [&](auto function, IndexRule rule) {
      const auto chars = [](byte* bytes) { return reinterpret_cast<char*>(bytes); };
      function(chars(dst), chars(a), chars(b), static_cast<element_size>(size_code<T>));
      permute<T>(expected, a, b, rule);
      EXPECT_EQ(std::memcmp(dst, expected, vector_bytes), 0) << sizeof(T);
    };
    check(sve_zip1, zip1);
    check(sve_zip2, zip2);
    check(sve_uzp1, uzp1);
  });
}

TEST(Permute, ReversalsMoveWholeUnits) {
  for_each_type([]<class T>() {
    for (const unsigned d : {4u, 5u}) {
      run("rev", 40, calling(sve_rev_zz, z(d, size_code<T>), z(5, size_code<T>)),
          [&](auto& e, auto& s) { permute<T>(e.z[d], s.z[5], s.z[5], reverse); });
      run("rev_pp", 40, calling(sve_rev_pp, p(d, size_code<T>), p(5, size_code<T>)),
          [&](auto& e, auto& s) { permute<T>(e.p[d], s.p[5], s.p[5], reverse); });
    }
  });
}

TEST(Permute, ExtAtEveryStart) {
  for (unsigned imm = 0; imm < 256; ++imm)
    for (const unsigned m : {5u, 6u})
      run("ext", 2, calling(sve_ext_zzi, z_tied(5, element_b), z(m, element_b), imm), [&](auto& e, auto& s) {
        for (std::size_t i = 0; i < vector_bytes; ++i) {
          const std::size_t from = i + (imm < vector_bytes ? imm : 0);  // a start beyond the vector counts as 0
          e.z[5][i] = from < vector_bytes ? s.z[5][from] : s.z[m][from - vector_bytes];
        }
      });
}

TEST(Permute, TblTakesTheIndexAtFullWidth) {
  for_each_type([]<class T>() {
    constexpr std::size_t n = sve::lanes<T>;
    for (const unsigned d : {4u, 5u, 6u})
      run(
          "tbl", 60,
          [&](cpu_state& s) {
            for (std::size_t i = 0; i < n; i += 2) sve::store<T>(s.z[6], i, static_cast<T>(i % 3 ? n - 1 - i : n + i));
          },
          calling(sve_tbl_zzz, z(d, size_code<T>), z(5, size_code<T>), z(6, size_code<T>)),
          [&](auto& e, auto& s) {
            map_elements<T>(
                e.z[d], [&](T index) { return index < n ? sve::load<T>(s.z[5], index) : T{0}; }, s.z[6]);
          });
  });
}

// ---- Broadcasts and copies ----

template <class T>
void fill(byte* dst, u64 value) {
  VectorOf<T> r;
  r.fill(static_cast<T>(value));
  put(dst, r);
}

TEST(Dup, ImmediateRegisterAndPattern) {
  for_each_type([]<class T>() {
    for (const int imm : {0, 1, -1, -128, 127, -32768, 32512})
      run("dup_zi", 2, calling(sve_dup_zi, z(3, size_code<T>), imm),
          [&](auto& e, auto&) { fill<T>(e.z[3], static_cast<u64>(static_cast<std::int64_t>(imm))); });
    for (const unsigned n : {0u, 30u, 31u})  // 31 is the stack pointer
      run("dup_zr", 10, calling(sve_dup_zr, z(3, size_code<T>), xsp(n)),
          [&](auto& e, auto& s) { fill<T>(e.z[3], n == 31 ? s.sp : s.x[n]); });
  });
  run("dupm", 5, calling(sve_dupm_zi, z(3, element_d), aarch64_sve_logical64_imm{0x00ff00ff12345678}),
      [&](auto& e, auto&) { fill<u64>(e.z[3], 0x00ff00ff12345678); });
}

TEST(Dup, IndexedAtEverySizeAndIndex) {
  for (unsigned size = 0; size <= element_q; ++size) {
    const std::size_t bytes = std::size_t{1} << size;
    for (unsigned index = 0; index < 128; ++index)
      for (const unsigned n : {3u, 4u})
        run("dup_zzi", 2, calling(sve_dup_zzi, z(3, size), z(n, size), index), [&](auto& e, auto& s) {
          for (std::size_t i = 0; i < vector_bytes; ++i)
            e.z[3][i] = index * bytes < vector_bytes ? s.z[n][index * bytes + i % bytes] : 0;
        });
  }
  cpu_state state{};
  for (std::size_t i = 0; i < vector_bytes; ++i) state.z[1][i] = static_cast<byte>(i);
  constexpr unsigned units = vector_bytes / 16;
  sve_dup_zzi(&state, z(2, element_q), z(1, element_q), units - 1);  // the last sixteen bytes, to all units
  for (std::size_t i = 0; i < vector_bytes; ++i) EXPECT_EQ(state.z[2][i], vector_bytes - 16 + i % 16);
  sve_dup_zzi(&state, z(2, element_q), z(1, element_q), units);
  EXPECT_EQ(elements<u8>(state.z[2]), VectorOf<u8>{});
}

TEST(Copy, ImmediatesMergeOrZero) {
  for_each_type([]<class T>() {
    for (const unsigned qualifier : {aarch64_p_reg::merging, aarch64_p_reg::zeroing, aarch64_p_reg::bare})
      for (const int imm : {0, -1, 127, -128, 32512, -32768})
        run("cpy_zpi", 10, calling(sve_cpy_zpi, z(3, size_code<T>), p(9, qualifier), imm), [&](auto& e, auto& s) {
          if (qualifier == aarch64_p_reg::zeroing) fill<T>(e.z[3], 0);
          merge_elements<T>(e.z[3], s.p[9], [&] { return imm; });
        });
  });
}

TEST(Copy, ScalarsMerge) {
  for_each_type([]<class T>() {
    for (const unsigned n : {0u, 31u})
      run("cpy_zpr", 30, calling(sve_cpy_zpr, z(3, size_code<T>), merging(2), xsp(n)),
          [&](auto& e, auto& s) { merge_elements<T>(e.z[3], s.p[2], [&] { return n == 31 ? s.sp : s.x[0]; }); });
    for (const unsigned n : {3u, 4u})
      run("cpy_zpv", 30, calling(sve_cpy_zpv, z(3, size_code<T>), merging(2), z(n, size_code<T>)),
          [&](auto& e, auto& s) { merge_elements<T>(e.z[3], s.p[2], [&] { return sve::load<T>(s.z[n], 0); }); });
  });
}

TEST(Select, ElementsAndPredicateBytes) {
  for_each_type([]<class T>() {
    for (const auto& [n, m] : {std::pair{4u, 5u}, {4u, 4u}, {3u, 5u}, {4u, 3u}})
      run("sel", 30, calling(sve_sel_zpzz, z_tied(3, size_code<T>), p(2), z(n, size_code<T>), z_tied(m, size_code<T>)),
          [&](auto& e, auto& s) {
            std::memcpy(e.z[3], s.z[m], vector_bytes);
            merge_elements<T>(e.z[3], s.p[2], std::identity(), s.z[n]);
          });
  });
  for (const unsigned d : {0u, 1u, 2u, 3u})
    run("sel_pppp", 60, calling(sve_sel_pppp, p(d), p(1), p(2), p(3)), [&](auto& e, auto& s) {
      for (std::size_t i = 0; i < vector_bytes; ++i) e.p[d][i] = s.p[1][i] & 1 ? s.p[2][i] : s.p[3][i];
    });
}

TEST(MovePrefix, CopiesOrBlends) {
  run("movprfx", 5, calling(sve_movprfx_zz, z(3, aarch64_z_reg::none), z(4, aarch64_z_reg::none)),
      [&](auto& e, auto& s) { std::memcpy(e.z[3], s.z[4], vector_bytes); });
  for_each_type([]<class T>() {
    for (const unsigned qualifier : {aarch64_p_reg::merging, aarch64_p_reg::zeroing})
      run("movprfx", 30, calling(sve_movprfx_zpz, z(3, size_code<T>), p(2, qualifier), z(4, size_code<T>)),
          [&](auto& e, auto& s) {
            if (qualifier == aarch64_p_reg::zeroing) fill<T>(e.z[3], 0);
            merge_elements<T>(e.z[3], s.p[2], std::identity(), s.z[4]);
          });
  });
}

// ---- Unpacks ----

template <class To, class From>
void check_unpack(const char* name, sve::insn::zz* function, bool high) {
  constexpr std::size_t n = sve::lanes<To>;
  using Raw = std::make_unsigned_t<To>;
  for (const unsigned d : {4u, 5u})
    run(name, 20, calling(function, z(d, size_code<To>), z(5, size_code<From>)), [&](auto& e, auto& s) {
      std::size_t i = high ? n : 0;
      map_elements<Raw>(e.z[d], [&] { return static_cast<To>(sve::load<From>(s.z[5], i++)); });
    });
}

TEST(Unpack, VectorsAndPredicates) {
  check_unpack<u16, u8>("uunpklo b", sve_uunpklo_b2h_zz, false);
  check_unpack<u16, u8>("uunpkhi b", sve_uunpkhi_b2h_zz, true);
  check_unpack<u32, u16>("uunpklo h", sve_uunpklo_h2s_zz, false);
  check_unpack<u32, u16>("uunpkhi h", sve_uunpkhi_h2s_zz, true);
  check_unpack<u64, u32>("uunpklo s", sve_uunpklo_s2d_zz, false);
  check_unpack<u64, u32>("uunpkhi s", sve_uunpkhi_s2d_zz, true);
  check_unpack<std::int64_t, std::int32_t>("sunpklo s", sve_sunpklo_s2d_zz, false);
  check_unpack<std::int64_t, std::int32_t>("sunpkhi s", sve_sunpkhi_s2d_zz, true);
  for (const bool high : {false, true})
    for (const unsigned d : {4u, 5u})
      run("punpk", 60, calling(high ? sve_punpkhi_pp : sve_punpklo_pp, p(d, element_h), p(5, element_b)),
          [&](auto& e, auto& s) {
            for (std::size_t i = 0; i < vector_bytes / 2; ++i) {
              e.p[d][2 * i] = s.p[5][(high ? vector_bytes / 2 : 0) + i] & 1;
              e.p[d][2 * i + 1] = 0;
            }
          });
}

// ---- Extracts ----

// LAST B: the last active element, or `none`.
template <class T, class None>
u64 last_b(const cpu_state& s, None none) {
  for (std::size_t i = sve::lanes<T>; i-- > 0;)
    if (active<T>(s.p[2], i)) return elements<T>(s.z[4])[i];
  return none;
}

TEST(Extract, LastBAndItsConditionalForm) {
  for_each_type([]<class T>() {
    const auto top = [](const cpu_state& s) { return u64{elements<T>(s.z[4]).back()}; };
    for (const unsigned d : {7u, 31u}) {  // a result for 31 is dropped
      run("lastb_r", 80, calling(sve_lastb_rpz, x(d), p(2), z(4, size_code<T>)), [&](auto& e, auto& s) {
        if (d != 31) e.x[d] = last_b<T>(s, top(s));
      });
      run("clastb_r", 80, calling(sve_clastb_rpz, x_tied(d, size_code<T> == 3 ? 3 : 2), p(2), z(4, size_code<T>)),
          [&](auto& e, auto& s) {
            if (d != 31) e.x[d] = last_b<T>(s, static_cast<T>(s.x[d]));
          });
    }
    for (const unsigned d : {3u, 4u})
      run("lastb_v", 80, calling(sve_lastb_vpz, d, p(2), z(4, size_code<T>)), [&](auto& e, auto& s) {
        const u64 value = last_b<T>(s, top(s));
        std::memset(e.z[d], 0, vector_bytes);
        std::memcpy(e.z[d], &value, 8);
      });
  });
}

// ---- Index ----

TEST(Index, WrapsAtTheElement) {
  for_each_type([]<class T>() {
    const auto expect = [](cpu_state& e, u64 start, u64 step) {
      VectorOf<T> r;
      for (std::size_t i = 0; i < sve::lanes<T>; ++i) r[i] = static_cast<T>(start + i * step);
      put(e.z[3], r);
    };
    const auto wide = [](int i) { return static_cast<u64>(static_cast<std::int64_t>(i)); };
    const aarch64_z_reg d = z(3, size_code<T>);
    const auto reg = [](const cpu_state& s, unsigned n) { return n == 31 ? 0 : s.x[n]; };  // 31 is zero, not sp
    for (int a = -16; a < 16; a += 3)
      for (int b = -16; b < 16; b += 3)
        run("index_ii", 1, calling(sve_index_zii, d, a, b), [&](auto& e, auto&) { expect(e, wide(a), wide(b)); });
    for (const unsigned n : {5u, 31u})
      for (const unsigned m : {6u, 31u}) {
        run("index_rr", 20, calling(sve_index_zrr, d, x(n), x(m)),
            [&](auto& e, auto& s) { expect(e, reg(s, n), reg(s, m)); });
        run("index_ir", 20, calling(sve_index_zir, d, -7, x(m)),
            [&](auto& e, auto& s) { expect(e, wide(-7), reg(s, m)); });
        run("index_ri", 20, calling(sve_index_zri, d, x(n), -7),
            [&](auto& e, auto& s) { expect(e, reg(s, n), wide(-7)); });
      }
  });
}

}  // namespace
