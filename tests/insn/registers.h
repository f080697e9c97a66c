// What the tests of instruction functions share: random machine states, registers as element arrays, operand records,
// and a comparison of whole states, so that every test also checks that nothing else has changed.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "sve/insn/functions.h"
#include "sve/insn/predicates.h"
#include "sve/lanes/lanes.h"
#include "tests/side_by_side.h"
#include "tests/states.h"

namespace insn_test {

using sve::byte;
using sve::vector_bytes;
using namespace test;

template <class T>
using VectorOf = std::array<T, vector_bytes / sizeof(T)>;

template <class T>
inline constexpr unsigned size_code = std::countr_zero(sizeof(T));

template <class T>
VectorOf<T> elements(const byte* bytes) {
  VectorOf<T> v;
  std::memcpy(v.data(), bytes, vector_bytes);
  return v;
}
template <class T>
void put(byte* bytes, const VectorOf<T>& v) {
  element_bytes = sizeof(T);
  std::memcpy(bytes, v.data(), vector_bytes);
}
template <class T>
bool active(const byte* predicate, std::size_t i) {
  return predicate[i * sizeof(T)] & 1;
}

/// A canonical predicate for elements of T from a function of the index.
template <class T, class Test>
VectorOf<byte> canonical(Test test) {
  element_bytes = sizeof(T);
  VectorOf<byte> p{};
  for (std::size_t i = 0; i < sve::lanes<T>; ++i) p[i * sizeof(T)] = test(i) ? 1 : 0;
  return p;
}

/// What a predicate pattern selects of a register's elements of `1 << size` bytes; patterns without a name select none.
inline unsigned pattern_length(unsigned pattern, unsigned size) {
  const auto all = static_cast<unsigned>(vector_bytes >> size);
  const auto if_there_are = [all](unsigned n) { return n <= all ? n : 0; };
  switch (pattern) {
    case 0:
      return std::bit_floor(all);
    case 29:
      return all - all % 4;
    case 30:
      return all - all % 3;
    case 31:
      return all;
    default:
      return pattern <= 8 ? if_there_are(pattern) : pattern <= 13 ? if_there_are(16u << (pattern - 9)) : 0;
  }
}

// Operand records.
inline aarch64_z_reg z(unsigned number, unsigned size) { return {number, size}; }
inline aarch64_z_reg z_tied(unsigned number, unsigned size) { return {number, aarch64_z_reg::none, size, size}; }
inline aarch64_p_reg p(unsigned number, unsigned size = aarch64_p_reg::bare) { return {number, size}; }
inline aarch64_p_reg p_tied(unsigned number, unsigned size) { return {number, aarch64_p_reg::none, size, size}; }
inline aarch64_p_reg merging(unsigned number) { return {number, aarch64_p_reg::merging}; }
inline aarch64_p_reg zeroing(unsigned number) { return {number, aarch64_p_reg::zeroing}; }
inline aarch64_i_reg x(unsigned number, unsigned size = element_d) { return {number, size}; }
inline aarch64_i_reg x_tied(unsigned number, unsigned size = element_d) {
  return {number, aarch64_i_reg::none, size, size};
}
inline aarch64_i_rsp_reg xsp(unsigned number) { return {number, element_d}; }

inline void set_flags(cpu_state& state, bool n, bool z_, bool c, bool v = false) {
  state.nzcv = (state.nzcv & ~u64{0xf0000000}) | u64{n} << 31 | u64{z_} << 30 | u64{c} << 29 | u64{v} << 28;
}

/// The flags of a predicate under a mask by their definition, at elements of `size` bytes: first bits alone count.
inline void define_flags(cpu_state& state, const byte* mask, const byte* result, std::size_t size) {
  bool n = false, any = false, last = false, seen = false;
  for (std::size_t i = 0; i < vector_bytes; i += size) {
    if (!(mask[i] & 1)) continue;
    const bool r = result[i] & 1;
    if (!seen) n = r;
    seen = true;
    any = any || r;
    last = r;
  }
  set_flags(state, n, !any, !last);
}

inline std::string flags(const cpu_state& state) {
  std::string s;
  for (int bit = 31; bit >= 28; --bit) s += state.nzcv >> bit & 1 ? "NZCV"[31 - bit] : '-';
  return s;
}

/// Calls `body.operator()<T>()` for each unsigned element type.
template <class Body>
void for_each_type(Body body) {
  body.template operator()<u8>();
  body.template operator()<u16>();
  body.template operator()<u32>();
  body.template operator()<u64>();
}

/// The first register that differs, beside the operands: the registers without which the call gives something else.
template <class Call>
std::string explained(Call call, const cpu_state& start, const cpu_state& expected, const cpu_state& actual) {
  const auto registers = [](auto& state) {
    std::vector<decltype(&state.ffr[0])> all;
    for (auto& r : state.z) all.push_back(r);
    for (auto& r : state.p) all.push_back(r);
    all.push_back(state.ffr);
    return all;
  };
  const auto name = [](std::size_t n) {
    return n == 48 ? std::string("ffr") : (n < 32 ? "z" : "p") + std::to_string(n % 32);
  };
  const auto is = registers(actual), should = registers(expected), was = registers(start);
  std::size_t result = 0;
  while (result < is.size() && std::memcmp(is[result], should[result], vector_bytes) == 0) ++result;
  if (result == is.size()) return "";
  std::vector<Column> operands;
  for (std::size_t n = 0; n < was.size(); ++n) {
    cpu_state other = start;
    byte* const changed = registers(other)[n];
    for (std::size_t i = 0; i < vector_bytes; ++i) changed[i] ^= 0x55;
    call(&other);
    if (std::memcmp(registers(other)[result], is[result], vector_bytes) != 0) operands.push_back({name(n), was[n]});
  }
  return "\n" + name(result) + ", " + side_by_side(vector_bytes, operands, should[result], is[result]);
}

/// The call of a function with these operands on a state.
template <class... Operands, class... Given>
auto calling(aarch64_decode_rc (*function)(cpu_state*, Operands...), Given... given) {
  return [=](cpu_state* state) { return function(state, given...); };
}

/// dst[i] = op(src[i]...), or where there is a predicate active ? op(src[i]...) : dst[i], for elements of T.
template <class T, class Op, class... Sources>
void map_elements(byte* dst, Op op, const Sources*... src) {
  VectorOf<T> r;
  for (std::size_t i = 0; i < r.size(); ++i) r[i] = static_cast<T>(op(sve::load<T>(src, i)...));
  put(dst, r);
}
template <class T, class Op, class... Sources>
void merge_elements(byte* dst, const byte* predicate, Op op, const Sources*... src) {
  auto r = elements<T>(dst);
  for (std::size_t i = 0; i < r.size(); ++i)
    if (active<T>(predicate, i)) r[i] = static_cast<T>(op(sve::load<T>(src, i)...));
  put(dst, r);
}

/// Runs `call` on random states, which `adjust` has changed, against `expect`, which turns a copy of the start into the
/// expected state.
template <class Adjust, class Call, class Expect>
void run(const char* name, int cases, Adjust adjust, Call call, Expect expect) {
  Random random(std::hash<std::string_view>{}(name));
  for (int i = 0; i < cases; ++i) {
    cpu_state start = random_state(random);
    adjust(start);
    cpu_state expected = start, actual = start;
    expect(expected, start);
    ASSERT_EQ(call(&actual), AARCH64_DECODE_EXECUTED) << name;
    ASSERT_EQ(difference(expected, actual), "") << name << ", case " << i << explained(call, start, expected, actual);
  }
}

template <class Call, class Expect>
void run(const char* name, int cases, Call call, Expect expect) {
  run(
      name, cases, [](cpu_state&) {}, call, expect);
}

}  // namespace insn_test
