// What tests of whole machine states share: random ones, a comparison of two, the host's controls, and rows by name.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "sve/decode/table.h"
#include "tests/edge_words.h"

namespace test {

/// A predicate of one of several kinds: none, all, sparse, dense, even, and bytes with other bits than bit 0 set.
inline void random_predicate(u8* bytes, Random& random) {
  const unsigned kind = static_cast<unsigned>(random() % 6);
  for (std::size_t i = 0; i < sve::vector_bytes; ++i) {
    const unsigned r = static_cast<unsigned>(random());
    bytes[i] = static_cast<u8>(kind == 0   ? 0
                               : kind == 1 ? 1
                               : kind == 2 ? r % 24 == 0
                               : kind == 3 ? r % 8 != 0
                               : kind == 4 ? r & 1
                                           : r);
  }
}

inline void random_words(u8* bytes, std::size_t count, Random& random) {
  for (std::size_t i = 0; i < count; i += 8) {
    const u64 word = random_word(random);
    std::memcpy(bytes + i, &word, 8);
  }
}

inline cpu_state random_state(Random& random) {
  cpu_state state{};
  for (auto& r : state.z) random_words(r, sve::vector_bytes, random);
  for (auto& r : state.x) r = random() % 2 ? edge_words[random() % std::size(edge_words)] : random();
  for (auto& r : state.p) random_predicate(r, random);
  random_predicate(state.ffr, random);
  state.sp = random();
  state.nzcv = random();  // all 64 bits: a flag write keeps the others
  state.fpsr = static_cast<u32>(random());
  state.fpcr = static_cast<u32>(random());
  state.instr = random();
  return state;
}

/// Where two states differ, or an empty string.
inline std::string difference(const cpu_state& expected, const cpu_state& actual) {
  std::string out;
  const auto bytes = [&](const char* name, std::size_t n, const u8* a, const u8* b) {
    if (std::memcmp(a, b, sve::vector_bytes) == 0) return;
    std::size_t i = 0;
    while (a[i] == b[i]) ++i;
    out += name + std::to_string(n) + " byte " + std::to_string(i) + ": expected " + std::to_string(a[i]) + ", is " +
           std::to_string(b[i]) + "; ";
  };
  const auto word = [&](const char* name, std::size_t n, u64 a, u64 b) {
    if (a == b) return;
    char text[80];
    std::snprintf(text, sizeof text, "%s%zu: expected %lx, is %lx; ", name, n, a, b);
    out += text;
  };
  for (std::size_t i = 0; i < 32; ++i) bytes("z", i, expected.z[i], actual.z[i]);
  for (std::size_t i = 0; i < 16; ++i) bytes("p", i, expected.p[i], actual.p[i]);
  bytes("ffr", 0, expected.ffr, actual.ffr);
  for (std::size_t i = 0; i < 31; ++i) word("x", i, expected.x[i], actual.x[i]);
  word("sp", 0, expected.sp, actual.sp);
  word("nzcv", 0, expected.nzcv, actual.nzcv);
  word("fpsr", 0, expected.fpsr, actual.fpsr);
  word("fpcr", 0, expected.fpcr, actual.fpcr);
  word("instr", 0, expected.instr, actual.instr);
  return out;
}

/// While it lives, the instruction functions find the controls of a state in the registers of a host that has them.
struct LiveControl {
#if defined(__aarch64__)
  explicit LiveControl(const cpu_state& state) {
    asm volatile("mrs %0, fpcr\n\tmrs %1, fpsr" : "=r"(fpcr), "=r"(fpsr));
    asm volatile("msr fpcr, %0\n\tmsr fpsr, %1" ::"r"(u64{state.fpcr}), "r"(u64{state.fpsr}));
  }
  ~LiveControl() { asm volatile("msr fpcr, %0\n\tmsr fpsr, %1" ::"r"(fpcr), "r"(fpsr)); }
  u64 fpcr, fpsr;
#else
  explicit LiveControl(const cpu_state&) {}
#endif
};

/// Calls body(map, row) for every row of the table.
template <class Body>
void for_each_row(Body body) {
  for (const sve::decode::Map* m : sve::decode::maps_in_is_sve_order())
    for (const sve::decode::Row& r : m->rows) body(*m, r);
}

/// The word of the row of that name, with no operands.
inline u32 word_of(std::string_view name) {
  u32 word = 0;
  for_each_row([&](auto& map, auto& row) {
    if (row.name == name) word = map.word(row.key);
  });
  EXPECT_NE(word, 0u) << name;
  return word;
}

}  // namespace test
