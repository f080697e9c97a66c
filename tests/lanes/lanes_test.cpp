// Whole registers in pieces: predicates' bits and queries, compares and table lookups, each against a plain loop.
#include "sve/lanes/lanes.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "sve/lanes/compares.h"
#include "sve/lanes/lookup.h"
#include "sve/lanes/patterns.h"

namespace {

using sve::byte;
using sve::lanes;
using sve::load;
using sve::RegisterBits;
using sve::RegisterPlaces;
using sve::vector_bytes;

struct VectorRegister {
  alignas(16) byte bytes[vector_bytes];
};

// Dense, sparse, all or none; of a byte the lowest bit alone counts.
VectorRegister random_predicate(std::mt19937_64& random) {
  VectorRegister r;
  const unsigned density = static_cast<unsigned>(random() % 5);
  for (byte& b : r.bytes) {
    const bool set = density == 4 || (density != 0 && random() % 4 < density);
    b = static_cast<byte>((random() & 0xfe) | set);
  }
  return r;
}

template <class T>
class Registers : public testing::Test {
 protected:
  std::mt19937_64 random{sizeof(T)};
  static constexpr int cases = 400;
};
using Elements = testing::Types<std::uint8_t, std::uint16_t, std::uint32_t, std::uint64_t, std::int8_t, std::int16_t,
                                std::int32_t, std::int64_t>;
TYPED_TEST_SUITE(Registers, Elements);

TYPED_TEST(Registers, QueriesOfPredicates) {
  using T = TypeParam;
  for (int c = 0; c < this->cases; ++c) {
    const VectorRegister p = random_predicate(this->random), q = random_predicate(this->random);
    const RegisterBits bits(p.bytes);
    bool all = true, canonical = true;
    unsigned common = 0;
    byte joined[16] = {};
    for (std::size_t i = 0; i < vector_bytes; ++i) {
      ASSERT_EQ(bits.test(static_cast<int>(i)), p.bytes[i] & 1);
      canonical = canonical && p.bytes[i] <= 1;
      joined[i % 16] |= p.bytes[i];
      if (i % sizeof(T) != 0) continue;
      all = all && p.bytes[i] & 1;
      common += p.bytes[i] & q.bytes[i] & 1;
    }
    EXPECT_EQ(sve::all_active<T>(p.bytes), all);
    EXPECT_EQ(sve::common_elements<T>(p.bytes, q.bytes), common);
    EXPECT_EQ(sve::is_canonical(p.bytes), canonical);
    byte pieces[16];
    sve::store_piece(pieces, sve::union_of(p.bytes));
    EXPECT_EQ(std::memcmp(pieces, joined, sizeof joined), 0);
    VectorRegister made = p;
    sve::make_canonical(made.bytes);
    for (std::size_t i = 0; i < vector_bytes; ++i) ASSERT_EQ(made.bytes[i], p.bytes[i] & 1);
    EXPECT_TRUE(sve::is_canonical(made.bytes));
  }
}

// Every byte set or not by its bit 0, and the places asked of that.
template <class Bits, class T>
void check_places(const VectorRegister& p, const VectorRegister& q) {
  const Bits elements = Bits::elements(sizeof(T)), bits = Bits(p.bytes) & elements;
  int first = -1, last = -1, source_last = -1;
  for (int i = 0; i < static_cast<int>(vector_bytes); ++i) {
    const bool starts = i % sizeof(T) == 0;
    ASSERT_EQ(Bits(p.bytes).test(i), p.bytes[i] & 1) << i;
    ASSERT_EQ(bits.test(i), starts && p.bytes[i] & 1) << i;
    ASSERT_EQ((~bits).test(i), !(starts && p.bytes[i] & 1)) << i;
    if (starts && q.bytes[i] & 1) source_last = i;
    if (!bits.test(i)) continue;
    first = first < 0 ? i : first;
    last = i;
  }
  ASSERT_EQ(bits.first(), first);
  ASSERT_EQ(bits.last(), last);
  ASSERT_EQ(static_cast<bool>(bits), first >= 0);
  for (int end = 0; end <= static_cast<int>(vector_bytes); ++end) {
    const Bits below = Bits::below(end);
    ASSERT_EQ((~below & Bits::below(vector_bytes)).first(), end < static_cast<int>(vector_bytes) ? end : -1);
    ASSERT_EQ(below.last(), end - 1);
    ASSERT_EQ(static_cast<bool>(below & bits), first >= 0 && first < end) << end;
  }
  int next = source_last + 1;
  while (next < static_cast<int>(vector_bytes) && !bits.test(next)) ++next;
  const bool found = next < static_cast<int>(vector_bytes);
  const sve::NextElement element = sve::next_element<T>(p.bytes, q.bytes);
  EXPECT_EQ(element.place, found ? next : -1);
  EXPECT_EQ(element.is_first, found && next == first);
  EXPECT_EQ(element.is_last, found && next == last);
}

TYPED_TEST(Registers, PlacesInPredicates) {
  using T = TypeParam;
  for (int c = 0; c < this->cases; ++c) {
    VectorRegister p = random_predicate(this->random), q = random_predicate(this->random);
    if (c % 2 == 0)  // few bits, so that places differ
      for (std::size_t i = 0; i < vector_bytes; ++i)
        if (this->random() % 32 != 0) p.bytes[i] &= 0xfe, q.bytes[i] &= 0xfe;
    check_places<RegisterBits, T>(p, q);
    check_places<RegisterPlaces, T>(p, q);
    if (this->HasFatalFailure()) return;
  }
}

TYPED_TEST(Registers, LeadingElements) {
  using T = TypeParam;
  for (std::size_t n = 0; n <= lanes<T>; ++n) {
    VectorRegister p;
    sve::set_leading<T>(p.bytes, n);
    for (std::size_t i = 0; i < vector_bytes; ++i)
      ASSERT_EQ(p.bytes[i], i % sizeof(T) == 0 && i < n * sizeof(T)) << n << " at " << i;
  }
  for (unsigned end = 0; end <= 256; ++end)
    for (std::size_t i = 0; i < vector_bytes; ++i) {
      byte piece[16];
      sve::store_piece(piece, sve::LeadingOnes(end)(i / 16));
      ASSERT_EQ(piece[i % 16], i < end) << end << " at " << i;
    }
}

TYPED_TEST(Registers, Compares) {
  using T = TypeParam;
  for (int c = 0; c < this->cases; ++c) {
    const VectorRegister p = random_predicate(this->random);
    VectorRegister a, b, r;
    for (byte& x : a.bytes) x = static_cast<byte>(this->random());
    for (std::size_t i = 0; i < lanes<T>; ++i)  // equal ones too
      sve::store<T>(b.bytes, i, this->random() % 2 ? load<T>(a.bytes, i) : static_cast<T>(this->random()));
    const auto greater_or_equal = [](auto x, auto y) { return x >= y; };
    const auto pieces = sve::compared_pieces<T>(greater_or_equal, a.bytes, b.bytes);
    sve::ComputedPredicate<T> outcome(p.bytes, pieces);
    EXPECT_EQ(outcome.every_active, sve::all_active<T>(p.bytes));
    outcome.restrict_to(p.bytes);
    outcome.store(r.bytes);
    for (std::size_t i = 0; i < vector_bytes; ++i) {
      const std::size_t e = i / sizeof(T);
      const bool expected = i % sizeof(T) == 0 && p.bytes[i] & 1 && load<T>(a.bytes, e) >= load<T>(b.bytes, e);
      ASSERT_EQ(r.bytes[i], expected) << i;
    }
    VectorRegister everywhere;
    std::memset(everywhere.bytes, 1, vector_bytes);
    const std::uint32_t flags = sve::ComputedPredicate<T>(everywhere.bytes, pieces).flags_of_all();
    bool first = false, any = false, last = false;
    for (std::size_t e = 0; e < lanes<T>; ++e) {
      last = load<T>(a.bytes, e) >= load<T>(b.bytes, e);
      first = e == 0 ? last : first;
      any = any || last;
    }
    EXPECT_EQ(flags, std::uint32_t{first} << 31 | std::uint32_t{!any} << 30 | std::uint32_t{!last} << 29);
  }
}

TYPED_TEST(Registers, LookupsIntoEachOfTheirOperands) {
  using T = std::make_unsigned_t<TypeParam>;
  for (int c = 0; c < this->cases; ++c) {
    VectorRegister table, indices, expected;
    for (byte& x : table.bytes) x = static_cast<byte>(this->random());
    for (std::size_t i = 0; i < lanes<T>; ++i) {
      const T at = static_cast<T>(this->random() % 4 == 0 ? this->random() : this->random() % (lanes<T> + 2));
      sve::store<T>(indices.bytes, i, at);
      sve::store<T>(expected.bytes, i, at < lanes<T> ? load<T>(table.bytes, at) : T{0});
    }
    VectorRegister result, over_table = table, over_indices = indices;
    sve::look_up<T>(result.bytes, table.bytes, indices.bytes);
    sve::look_up<T>(over_table.bytes, over_table.bytes, indices.bytes);
    sve::look_up<T>(over_indices.bytes, table.bytes, over_indices.bytes);
    for (const VectorRegister* r : {&result, &over_table, &over_indices})
      ASSERT_EQ(std::memcmp(r->bytes, expected.bytes, vector_bytes), 0);
  }
}

// The loops over a register, in pieces and by the host's operations on these, and over any number of elements, one by
// one, whose count the compiler must not know.
template <class T, class Op>
void expect_same_loops(const char* name, std::mt19937_64& random, Op op) {
  volatile std::size_t unknown = lanes<T>;
  const std::size_t n = unknown;
  const auto compare = [&](auto whole, auto any, const char* loop) {
    const VectorRegister p = random_predicate(random);
    VectorRegister old, a, b, r, expected;
    for (VectorRegister* v : {&old, &a, &b})
      for (byte& x : v->bytes) x = static_cast<byte>(random());
    for (std::size_t i = 0; i < lanes<T>; ++i)  // amounts of shifts, in range and at its end
      if (random() % 2) sve::store<T>(b.bytes, i, static_cast<T>(random() % (8 * sizeof(T) + 2)));
    VectorRegister over = a;
    whole(r.bytes, old.bytes, p.bytes, a.bytes, b.bytes);
    any(expected.bytes, old.bytes, p.bytes, a.bytes, b.bytes);
    ASSERT_EQ(std::memcmp(r.bytes, expected.bytes, vector_bytes), 0) << name << ", " << loop;
    whole(over.bytes, old.bytes, p.bytes, over.bytes, b.bytes);
    ASSERT_EQ(std::memcmp(over.bytes, expected.bytes, vector_bytes), 0) << name << ", " << loop << " over a source";
  };
  for (int c = 0; c < 100; ++c) {
    compare([op](byte* r, byte*, const byte*, byte* a, byte* b) { sve::map_lanes<T>(r, lanes<T>, op, a, b); },
            [op, n](byte* r, byte*, const byte*, byte* a, byte* b) { sve::map_lanes<T>(r, n, op, a, b); }, "mapped");
    compare(
        [op](byte* r, byte* o, const byte* p, byte* a, byte* b) { sve::merge_lanes<T>(r, o, p, lanes<T>, op, a, b); },
        [op, n](byte* r, byte* o, const byte* p, byte* a, byte* b) { sve::merge_lanes<T>(r, o, p, n, op, a, b); },
        "merged");
    compare([op](byte* r, byte*, const byte* p, byte* a, byte* b) { sve::zero_lanes<T>(r, p, lanes<T>, op, a, b); },
            [op, n](byte* r, byte*, const byte* p, byte* a, byte* b) { sve::zero_lanes<T>(r, p, n, op, a, b); },
            "zeroed");
  }
}

TYPED_TEST(Registers, LoopsEqualThoseOfAnyLength) {
  using T = TypeParam;
  using U = std::make_unsigned_t<T>;
  const auto expect_same = [this](const char* name, auto op) { expect_same_loops<T>(name, this->random, op); };
  expect_same("sum", [](T a, T b) { return static_cast<U>(static_cast<U>(a) + static_cast<U>(b)); });
  expect_same("product", SVE_BY_PIECES(2, sve::native::multiply<Element>(a, b), [](T a, T b) {
                return static_cast<T>(std::uint64_t{static_cast<U>(a)} * static_cast<U>(b));
              }));
}

#ifndef LOOPS_ALONE  // What is done with one piece is the same at every length.
TYPED_TEST(Registers, OperationsOnPiecesEqualThoseOnElements) {
  using T = TypeParam;
  using U = std::make_unsigned_t<T>;
  using Wide = __int128;
  constexpr unsigned width = 8 * sizeof(T);
  const auto amount = [](T n) { return static_cast<U>(n) < width ? static_cast<unsigned>(static_cast<U>(n)) : width; };
  const auto reversed_by = [](T a, unsigned bits) {  // containers of so many bits
    U r = 0;
    for (unsigned at = 0; at < width; at += bits)
      for (unsigned i = 0; i < bits; ++i)
        if (static_cast<U>(a) >> (at + i) & 1) r = static_cast<U>(r | U{1} << (width - bits - at + i));
    return r;
  };
  const auto expect_same = [this](const char* name, auto op) { expect_same_loops<T>(name, this->random, op); };
  expect_same("left", SVE_BY_PIECES(2, sve::native::shifted_left<Element>(a, b), [amount](T a, T b) {
                return static_cast<T>(static_cast<unsigned __int128>(static_cast<U>(a)) << amount(b));
              }));
  expect_same("right", SVE_BY_PIECES(2, sve::native::shifted_right<Element>(a, b),
                                     [amount](T a, T b) { return static_cast<T>(Wide{a} >> amount(b)); }));
  if constexpr (std::is_signed_v<T>)
    expect_same("divided", SVE_BY_PIECES(2, sve::native::divided_by_power<Element>(a, b), [amount](T a, T b) {
                  return static_cast<T>(Wide{a} / (Wide{1} << amount(b)));
                }));
  expect_same("absolute difference", SVE_BY_PIECES(2, sve::native::absolute_difference<Element>(a, b), [](T a, T b) {
                return static_cast<T>(a < b ? Wide{b} - a : Wide{a} - b);
              }));
  if constexpr (std::is_signed_v<T>)
    expect_same("absolute", SVE_BY_PIECES(2, sve::native::absolute<Element>(a ^ b), [](T a, T b) {
                  const Wide x = static_cast<T>(a ^ b);
                  return static_cast<T>(x < 0 ? -x : x);
                }));
  expect_same("scaled", SVE_BY_PIECES(2, (sve::native::add<Element>(a, sve::native::multiplied<Element, 4>(b))),
                                      [](T a, T b) { return static_cast<T>(Wide{a} + 4 * Wide{b}); }));
  if constexpr (sizeof(T) > 1)
    expect_same("extended", SVE_BY_PIECES(2, (sve::native::extended<Element, 1>(a ^ b)), [](T a, T b) {
                  using Low = std::conditional_t<std::is_signed_v<T>, std::int8_t, std::uint8_t>;
                  return static_cast<T>(static_cast<Low>(a ^ b));
                }));
  expect_same("high product", SVE_BY_PIECES(2, sve::native::high_product<Element>(a, b), [](T a, T b) {
                using Product = std::conditional_t<std::is_signed_v<T>, Wide, unsigned __int128>;
                return static_cast<T>(Product{a} * b >> width);
              }));
  const auto nearest = [](Wide x) {
    constexpr Wide least = std::numeric_limits<T>::min(), most = std::numeric_limits<T>::max();
    return static_cast<T>(x < least ? least : x > most ? most : x);
  };
  expect_same("saturating sum", SVE_BY_PIECES(2, sve::native::saturating_sum<Element>(a, b),
                                              [nearest](T a, T b) { return nearest(Wide{a} + b); }));
  expect_same("saturating difference", SVE_BY_PIECES(2, sve::native::saturating_difference<Element>(a, b),
                                                     [nearest](T a, T b) { return nearest(Wide{a} - b); }));
  if constexpr (std::is_signed_v<T> && sizeof(T) <= 2) {
    expect_same("saturating sum with unsigned",
                SVE_BY_PIECES(2, sve::native::saturating_sum_with_unsigned<Element>(a, b),
                              [nearest](T a, T b) { return nearest(Wide{a} + static_cast<U>(b)); }));
    expect_same("saturating difference with unsigned",
                SVE_BY_PIECES(2, sve::native::saturating_difference_with_unsigned<Element>(a, b),
                              [nearest](T a, T b) { return nearest(Wide{a} - static_cast<U>(b)); }));
  }
  expect_same("bits", SVE_BY_PIECES(2, sve::native::bits_counted<Element>(a & b), [](T a, T b) {
                return static_cast<T>(__builtin_popcountll(static_cast<U>(a & b)));
              }));
  expect_same("reversed bits", SVE_BY_PIECES(2, sve::native::bits_reversed<Element>(a ^ b), [reversed_by](T a, T b) {
                return static_cast<T>(reversed_by(static_cast<T>(a ^ b), 1));
              }));
  expect_same("reversed bytes", SVE_BY_PIECES(2, (sve::native::reversed<Element, 1>(a ^ b)), [reversed_by](T a, T b) {
                return static_cast<T>(reversed_by(static_cast<T>(a ^ b), 8));
              }));
  if constexpr (sizeof(T) < 8) {
    const auto leading = [](U x) {
      return static_cast<unsigned>(x ? __builtin_clzll(x) - 64 + static_cast<int>(width) : static_cast<int>(width));
    };
    expect_same("leading zeros", SVE_BY_PIECES(2, sve::native::leading_zeros<Element>(a & b), [leading](T a, T b) {
                  return static_cast<T>(leading(static_cast<U>(a & b)));
                }));
    expect_same("leading signs", SVE_BY_PIECES(2, sve::native::leading_signs<Element>(a ^ b), [leading](T a, T b) {
                  const U x = static_cast<U>(a ^ b), sign = static_cast<U>(x >> (width - 1) ? ~U{0} : U{0});
                  return static_cast<T>(leading(static_cast<U>(x ^ sign)) - 1);
                }));
  }
}
#endif

}  // namespace
