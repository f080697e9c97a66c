// What the tests of the vector library share: random values, contexts of several lengths, and comparisons of what lies
// below the length in use. A routine's result above the length is undefined and never looked at.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "sve/lanes/lanes.h"
#include "sve/veclib/predicates.h"
#include "sve/veclib/routines.h"
#include "tests/edge_words.h"
#include "tests/side_by_side.h"

namespace veclib_test {

using sve::byte;
using namespace test;
using wide = __int128;

/// Lengths in granules: the smallest, the one that `cpu_ctxt` names, one that is no power of two, the model's, the
/// largest.
inline constexpr u32 lengths[] = {1, 2, 6, 14, 32};
inline constexpr u32 lengths_and_zero[] = {0, 1, 2, 6, 14, 32};

/// All 256 bytes, so that elements beyond the length are there to be taken by mistake.
inline VectorV random_vector(Random& random) {
  VectorV v;
  for (std::size_t i = 0; i < 32; ++i) sve::store<u64>(v.bytes, i, random_word(random));
  return v;
}

/// None, all, sparse, dense or even; all 256 bits, also those between elements and beyond the length.
template <class Rng>
PredV random_predicate(Rng& random) {
  PredV p{};
  const unsigned kind = static_cast<unsigned>(random() % 5);
  for (std::size_t i = 0; i < 256; ++i) {
    const u64 r = random();
    const bool set = kind == 0 ? false : kind == 1 ? true : kind == 2 ? r % 24 == 0 : kind == 3 ? r % 8 != 0 : r & 1;
    p.words[i / 64] |= u64{set} << (i % 64);
  }
  return p;
}

inline bool bit(const PredV& p, std::size_t i) { return p.words[i / 64] >> (i % 64) & 1; }
template <class T>
bool active(const PredV& p, std::size_t e) {
  return bit(p, e * sizeof(T));
}
template <class T>
T at(const VectorV& v, std::size_t e) {
  return sve::load<T>(v.bytes, e);
}
/// The bits of element e of T, as a predicate of that type holds them.
template <class T>
unsigned group(const PredV& p, std::size_t e) {
  unsigned g = 0;
  for (std::size_t k = 0; k < sizeof(T); ++k) g |= unsigned{bit(p, e * sizeof(T) + k)} << k;
  return g;
}

template <class T>
std::size_t count(const CpuContext& c) {
  return c.vl_word * std::size_t{8} / sizeof(T);
}

/// The nearest value of T.
template <class T>
T clamp(wide x) {
  constexpr wide low = std::numeric_limits<T>::min(), high = std::numeric_limits<T>::max();
  return static_cast<T>(x < low ? low : x > high ? high : x);
}

/// A predicate from a function of the bit, or canonical from a function of the element.
template <class Test>
PredV bits_of(Test test) {
  PredV p{};
  for (std::size_t i = 0; i < 256; ++i) p.words[i / 64] |= u64{static_cast<bool>(test(i))} << (i % 64);
  return p;
}
template <class T, class Test>
PredV canonical(const CpuContext& c, Test test) {
  element_bytes = sizeof(T);
  const std::size_t n = count<T>(c);
  PredV p{};
  for (std::size_t e = 0; e < n; ++e)
    p.words[e * sizeof(T) / 64] |= u64{static_cast<bool>(test(e))} << (e * sizeof(T) % 64);
  return p;
}

inline constexpr u32 n_bit = 0x80000000, z_bit = 0x40000000, c_bit = 0x20000000, v_bit = 0x10000000;
inline void set_flags(CpuContext& c, bool n, bool z, bool carry, bool v = false) {
  c.nzcv = (c.nzcv & 0x0fffffff) | (n ? n_bit : 0) | (z ? z_bit : 0) | (carry ? c_bit : 0) | (v ? v_bit : 0);
}
inline std::string flags(const CpuContext& c) {
  std::string s;
  for (int i = 0; i < 4; ++i) s += c.nzcv >> (31 - i) & 1 ? "NZCV"[i] : '-';
  return s;
}

/// N, Z and C by their definition in the library: the mask at its first bit, the result at any bit of the group for Z
/// and C and at the first bit for N.
struct Answer {
  bool any_active = false, any = false, n = false, c = true;
};
inline Answer define(const PredV& mask, const PredV& result, std::size_t bytes, const CpuContext& context) {
  Answer a;
  for (std::size_t i = 0; i < context.vl_word * std::size_t{8}; i += bytes) {
    if (!bit(mask, i)) continue;
    bool any = false;
    for (std::size_t k = 0; k < bytes; ++k) any = any || bit(result, i + k);
    if (!a.any_active) a.n = bit(result, i);
    a.any_active = true;
    a.any = a.any || any;
    a.c = !any;
  }
  return a;
}
inline void define_flags(CpuContext& c, const PredV& mask, const PredV& result, std::size_t bytes) {
  const Answer a = define(mask, result, bytes, c);
  set_flags(c, a.any && a.n, !a.any, !a.any || a.c);
}

inline CpuContext random_context(u32 granules, Random& random) {
  CpuContext c;
  c.nzcv = static_cast<u32>(random());
  c.fpsr = static_cast<u32>(random());
  c.fpcr = static_cast<u32>(random());
  c.vl_word = granules;
  c.ffr = random_predicate(random);
  return c;
}

inline std::string difference(const CpuContext& expected, const CpuContext& actual) {
  std::string s;
  if (expected.nzcv != actual.nzcv) s += "nzcv " + flags(expected) + " is " + flags(actual) + "; ";
  if (expected.fpsr != actual.fpsr) s += "fpsr; ";
  if (expected.fpcr != actual.fpcr) s += "fpcr; ";
  if (expected.vl_word != actual.vl_word) s += "vl_word; ";
  for (std::size_t i = 0; i < expected.vl_word * std::size_t{8}; ++i)
    if (bit(expected.ffr, i) != bit(actual.ffr, i)) return s + "ffr bit " + std::to_string(i);
  return s;
}
inline std::string difference(const PredV& expected, const PredV& actual, const CpuContext& c) {
  for (std::size_t i = 0; i < c.vl_word * std::size_t{8}; ++i)
    if (bit(expected, i) != bit(actual, i))
      return "bit " + std::to_string(i) + ", at " + std::to_string(c.vl_word) + " granules";
  return "";
}
inline std::string difference(const VectorV& expected, const VectorV& actual, const CpuContext& c) {
  for (std::size_t i = 0; i < c.vl_word * std::size_t{8}; ++i)
    if (expected.bytes[i] != actual.bytes[i])
      return "byte " + std::to_string(i) + ": expected " + std::to_string(expected.bytes[i]) + ", is " +
             std::to_string(actual.bytes[i]) + ", at " + std::to_string(c.vl_word) + " granules";
  return "";
}
inline std::string difference(u64 expected, u64 actual, const CpuContext& c) {
  return expected == actual ? ""
                            : "expected " + std::to_string(expected) + ", is " + std::to_string(actual) + ", at " +
                                  std::to_string(c.vl_word) + " granules";
}

/// Operands of a routine, drawn anew for each case.
struct Operands {
  VectorV a, b, c;
  PredV p, q, r;
  u64 x, y;
};
inline Operands random_operands(Random& random) {
  return {random_vector(random),    random_vector(random),    random_vector(random), random_predicate(random),
          random_predicate(random), random_predicate(random), random_word(random),   random_word(random)};
}

/// A value as bytes: a predicate's are 0 and 1, a scalar's the first eight.
inline std::array<byte, 256> bytes_of(const VectorV& v) {
  std::array<byte, 256> bytes;
  std::memcpy(bytes.data(), v.bytes, bytes.size());
  return bytes;
}
inline std::array<byte, 256> bytes_of(const PredV& p) {
  std::array<byte, 256> bytes;
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = bit(p, i);
  return bytes;
}
inline std::array<byte, 256> bytes_of(u64 x) {
  std::array<byte, 256> bytes{};
  std::memcpy(bytes.data(), &x, sizeof x);
  return bytes;
}

/// The result beside the operands: those without which the call gives something else.
template <class Call, class Result>
std::string explained(Call call, const Operands& o, const CpuContext& before, const Result& expected,
                      const Result& actual) {
  const std::size_t length = std::is_same_v<Result, u64> ? 8 : before.vl_word * std::size_t{8};
  const auto is = bytes_of(actual), should = bytes_of(expected);
  std::vector<std::pair<std::string, std::array<byte, 256>>> used;
  const auto look = [&](const char* name, auto Operands::*member) {
    Operands other = o;
    unsigned char* const changed = reinterpret_cast<unsigned char*>(&(other.*member));
    for (std::size_t i = 0; i < sizeof(other.*member); ++i) changed[i] ^= 0x55;
    CpuContext context = before;
    const auto now = bytes_of(Result(call(other, &context)));
    if (std::memcmp(now.data(), is.data(), length) != 0) used.emplace_back(name, bytes_of(o.*member));
  };
  look("a", &Operands::a);
  look("b", &Operands::b);
  look("c", &Operands::c);
  look("p", &Operands::p);
  look("q", &Operands::q);
  look("r", &Operands::r);
  look("x", &Operands::x);
  look("y", &Operands::y);
  std::vector<Column> columns;
  for (const auto& [name, bytes] : used) columns.push_back({name, bytes.data()});
  return "\n" + side_by_side(length, columns, should.data(), is.data());
}

/// The next operand of a routine's type: vectors, predicates and scalars each in their order.
template <class A>
A next(const Operands& o, CpuContext* context, std::span<const u64> scalars, unsigned& v, unsigned& p, unsigned& s) {
  if constexpr (std::is_same_v<A, const VectorV&>)
    return std::array{&o.a, &o.b, &o.c}[v++][0];
  else if constexpr (std::is_same_v<A, const PredV&>)
    return std::array{&o.p, &o.q, &o.r}[p++][0];
  else if constexpr (std::is_same_v<A, CpuContext*>)
    return context;
  else
    return static_cast<A>(scalars[s++]);
}

/// Among given scalars: x of the operands that are drawn.
inline constexpr struct DrawnScalar {
} drawn;
inline u64 ScalarOf(DrawnScalar, const Operands& o) { return o.x; }
template <class T>
u64 ScalarOf(T given, const Operands&) {
  return static_cast<u64>(given);
}

/// A call of a routine on operands in their order, its first scalars being those given. What returns nothing gives no
/// element.
template <class R, class... A, class... Given>
auto calling(R (*routine)(A...), Given... given) {
  return [=](const Operands& o, CpuContext* context) {
    const u64 scalars[] = {ScalarOf(given, o)..., o.x, o.y};
    unsigned v = 0, p = 0, s = 0;
    const std::tuple<A...> arguments{next<A>(o, context, scalars, v, p, s)...};  // braces keep the order
    if constexpr (std::is_void_v<R>)
      return std::apply(routine, arguments), PredV{};
    else
      return std::apply(routine, arguments);
  };
}

/// Runs a call, or a routine on operands in their order, at the lengths on random operands that `adjust` has changed.
/// `expect` gives the result from the operands and the context, in which it also makes the changes that the call must
/// make; it is handed the context before the call.
template <class Adjust, class Call, class Expect>
void run_at(std::span<const u32> granules_each, std::string_view name, int cases, Adjust adjust, Call call,
            Expect expect) {
  if constexpr (std::is_pointer_v<Call>)
    return run_at(granules_each, name, cases, adjust, calling(call), expect);
  else {
    Random random(std::hash<std::string_view>{}(name));
    for (const u32 granules : granules_each)
      for (int i = 0; i < cases; ++i) {
        Operands o = random_operands(random);
        adjust(o);
        const CpuContext before = random_context(granules, random);
        CpuContext context = before, expected_context = before;
        const auto expected = expect(o, expected_context);
        const auto actual = call(o, &context);
        ASSERT_EQ(difference(expected, actual, context), "")
            << name << ", case " << i
            << explained<Call, std::decay_t<decltype(actual)>>(call, o, before, expected, actual);
        ASSERT_EQ(difference(expected_context, context), "") << name << ", case " << i << " at " << granules;
      }
  }
}
template <class Call, class Expect>
void run_at(std::span<const u32> granules_each, std::string_view name, int cases, Call call, Expect expect) {
  run_at(
      granules_each, name, cases, [](Operands&) {}, call, expect);
}
template <class... Steps>
void run(std::string_view name, int cases, Steps... steps) {
  run_at(lengths, name, cases, steps...);
}
template <class... Steps>
void run_from_zero(std::string_view name, int cases, Steps... steps) {
  run_at(lengths_and_zero, name, cases, steps...);
}

/// The vector whose element e is element(e), below the length.
template <class T, class Element>
VectorV generated(const CpuContext& c, Element element) {
  element_bytes = sizeof(T);
  VectorV v{};
  for (std::size_t e = 0; e < count<T>(c); ++e) sve::store<T>(v.bytes, e, static_cast<T>(element(e)));
  return v;
}

/// The expectation that element e of the result is element(operands, e), or element(operands, e, context).
template <class T, class Element>
auto elements(Element element) {
  return [=](const Operands& o, const CpuContext& c) {
    return generated<T>(c, [&](std::size_t e) {
      if constexpr (std::is_invocable_v<Element, const Operands&, std::size_t, const CpuContext&>)
        return element(o, e, c);
      else
        return element(o, e);
    });
  };
}

}  // namespace veclib_test

// Calls M(Type letters, element type) for the element types of routine names.
#define FOR_UNSIGNED(M) M(U8, u8) M(U16, u16) M(U32, u32) M(U64, u64)
#define FOR_SIGNED(M) M(S8, s8) M(S16, s16) M(S32, s32) M(S64, s64)
#define FOR_INTEGERS(M) FOR_UNSIGNED(M) FOR_SIGNED(M)
#define FOR_PREDICATES(M) M(P8, u8) M(P16, u16) M(P32, u32) M(P64, u64)
