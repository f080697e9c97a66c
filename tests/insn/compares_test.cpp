// Integer compares as instruction functions: the predicate, and the flags from it.
#include "registers.h"

namespace {

using namespace insn_test;

struct VectorCompare {
  const char* name;
  sve::insn::ppzz* function;
  bool is_signed;
  bool (*test)(__int128, __int128);
};
const VectorCompare vector_compares[] = {
    {"cmpeq", sve_cmpeq_ppzz, true, [](__int128 a, __int128 b) { return a == b; }},
    {"cmpne", sve_cmpne_ppzz, true, [](__int128 a, __int128 b) { return a != b; }},
    {"cmpge", sve_cmpge_ppzz, true, [](__int128 a, __int128 b) { return a >= b; }},
    {"cmpgt", sve_cmpgt_ppzz, true, [](__int128 a, __int128 b) { return a > b; }},
    {"cmphs", sve_cmphs_ppzz, false, [](__int128 a, __int128 b) { return a >= b; }},
    {"cmphi", sve_cmphi_ppzz, false, [](__int128 a, __int128 b) { return a > b; }},
};

struct ImmediateCompare {
  const char* name;
  sve::insn::ppzi_signed* signed_function;
  sve::insn::ppzi* unsigned_function;
  bool (*test)(__int128, __int128);
};
const ImmediateCompare immediate_compares[] = {
    {"cmpeq", sve_cmpeq_ppzi, nullptr, [](__int128 a, __int128 b) { return a == b; }},
    {"cmpne", sve_cmpne_ppzi, nullptr, [](__int128 a, __int128 b) { return a != b; }},
    {"cmpgt", sve_cmpgt_ppzi, nullptr, [](__int128 a, __int128 b) { return a > b; }},
    {"cmplt", sve_cmplt_ppzi, nullptr, [](__int128 a, __int128 b) { return a < b; }},
    {"cmple", sve_cmple_ppzi, nullptr, [](__int128 a, __int128 b) { return a <= b; }},
    {"cmphi", nullptr, sve_cmphi_ppzi, [](__int128 a, __int128 b) { return a > b; }},
    {"cmplo", nullptr, sve_cmplo_ppzi, [](__int128 a, __int128 b) { return a < b; }},
};

template <class T>
__int128 value(T a, bool is_signed) {
  return is_signed ? __int128{static_cast<std::make_signed_t<T>>(a)} : __int128{a};
}

// Sets Pd and the flags from a test of the element index: first byte of an active element, all other bytes 0.
template <class T, class Test>
void expect_compare(cpu_state& e, const cpu_state& s, unsigned d, unsigned g, Test test) {
  const auto result = canonical<T>([&](std::size_t i) { return active<T>(s.p[g], i) && test(i); });
  define_flags(e, s.p[g], result.data(), sizeof(T));
  put(e.p[d], result);
}

TEST(Compare, VectorsAtEverySize) {
  for_each_type([]<class T>() {
    for (const VectorCompare& c : vector_compares)
      for (const unsigned d : {0u, 1u})  // Pd apart, and the same as Pg
        run(
            c.name, 120,
            [](cpu_state& s) {
              if (s.x[0] & 1) std::memcpy(s.z[6], s.z[5], vector_bytes / 2);
            },
            calling(c.function, p(d, size_code<T>), zeroing(1), z(5, size_code<T>), z(6, size_code<T>)),
            [&](auto& e, auto& s) {
              const auto a = elements<T>(s.z[5]), b = elements<T>(s.z[6]);
              expect_compare<T>(e, s, d, 1,
                                [&](auto i) { return c.test(value(a[i], c.is_signed), value(b[i], c.is_signed)); });
            });
  });
}

TEST(Compare, EveryImmediateAtEverySize) {
  for_each_type([]<class T>() {
    for (const ImmediateCompare& c : immediate_compares) {
      const bool is_signed = c.signed_function != nullptr;
      for (int imm = is_signed ? -16 : 0; imm < (is_signed ? 16 : 128); ++imm)
        run(
            c.name, 4,
            [&](cpu_state& s) {
              for (std::size_t i = 0; i < sve::lanes<T>; i += 3) sve::store<T>(s.z[5], i, static_cast<T>(imm));
            },
            [&](cpu_state* s) {
              return is_signed ? c.signed_function(s, p(0, size_code<T>), zeroing(1), z(5, size_code<T>), imm)
                               : c.unsigned_function(s, p(0, size_code<T>), zeroing(1), z(5, size_code<T>),
                                                     static_cast<unsigned>(imm));
            },
            [&](auto& e, auto& s) {
              const auto a = elements<T>(s.z[5]);
              expect_compare<T>(e, s, 0, 1, [&](auto i) { return c.test(value(a[i], is_signed), imm); });
            });
    }
  });
}

TEST(Compare, Edges) {
  cpu_state state{};
  std::memset(state.p[0], 0xff, vector_bytes);
  state.nzcv = 0x90000000;
  sve_cmpeq_ppzz(&state, p(0, element_s), zeroing(1), z(1, element_s), z(1, element_s));  // Pg all false
  EXPECT_EQ(elements<u8>(state.p[0]), VectorOf<byte>{});
  EXPECT_EQ(flags(state), "-ZC-");

  std::memset(state.p[1], 1, vector_bytes);
  std::memset(state.z[1], 0xff, vector_bytes);
  for (const unsigned size : {element_b, element_h, element_s, element_d}) {
    sve_cmpeq_ppzi(&state, p(0, size), zeroing(1), z(1, size), -1);  // all ones at every width
    EXPECT_EQ(flags(state), "N---") << size;
  }
  VectorOf<u8> rising;
  for (std::size_t i = 0; i < vector_bytes; ++i) rising[i] = static_cast<u8>(2 * i + 136 - vector_bytes);
  put(state.z[2], rising);
  sve_cmphi_ppzi(&state, p(0, element_b), zeroing(1), z(2, element_b), 127);
  EXPECT_EQ(elements<u8>(state.p[0]), canonical<u8>([&](auto i) { return rising[i] >= 128; }));

  // At 64 bits only every eighth byte of Pg is looked at.
  std::memset(state.p[1], 0xff, vector_bytes);
  for (std::size_t i = 0; i < vector_bytes; i += 8) state.p[1][i] = 0xfe;
  sve_cmpeq_ppzi(&state, p(0, element_d), zeroing(1), z(1, element_d), -1);
  EXPECT_EQ(elements<u8>(state.p[0]), VectorOf<byte>{});
  EXPECT_EQ(flags(state), "-ZC-");
}

TEST(Compare, OtherSizeCodesAre8Bits) {
  for (const unsigned code : {0u, 4u, 5u})
    run("code", 20, calling(sve_cmpgt_ppzz, p(0, code), zeroing(1), z(5, code), z(6, code)), [&](auto& e, auto& s) {
      expect_compare<u8>(e, s, 0, 1, [&](auto i) {
        return static_cast<std::int8_t>(s.z[5][i]) > static_cast<std::int8_t>(s.z[6][i]);
      });
    });
}

}  // namespace
