// Whole registers in pieces: predicates' bits and queries, compares and table lookups, each against a plain loop.
#include <gtest/gtest.h>

#include <random>

#include "sve/lanes/compares.h"
#include "sve/lanes/lookup.h"
#include "sve/lanes/patterns.h"

namespace {

using sve::byte;
using sve::lanes;
using sve::load;
using sve::register_bits;
using sve::vector_bytes;

struct vector_register {
  alignas(16) byte bytes[vector_bytes];
};

// Dense, sparse, all or none; of a byte the lowest bit alone counts.
vector_register random_predicate(std::mt19937_64& random) {
  vector_register r;
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
    const vector_register p = random_predicate(this->random), q = random_predicate(this->random);
    const register_bits bits(p.bytes);
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
    vector_register made = p;
    sve::make_canonical(made.bytes);
    for (std::size_t i = 0; i < vector_bytes; ++i) ASSERT_EQ(made.bytes[i], p.bytes[i] & 1);
    EXPECT_TRUE(sve::is_canonical(made.bytes));
  }
}

TYPED_TEST(Registers, LeadingElements) {
  using T = TypeParam;
  for (std::size_t n = 0; n <= lanes<T>; ++n) {
    vector_register p;
    sve::set_leading<T>(p.bytes, n);
    for (std::size_t i = 0; i < vector_bytes; ++i)
      ASSERT_EQ(p.bytes[i], i % sizeof(T) == 0 && i < n * sizeof(T)) << n << " at " << i;
  }
  for (unsigned end = 0; end <= 256; ++end)
    for (std::size_t i = 0; i < vector_bytes; ++i) {
      byte piece[16];
      sve::store_piece(piece, sve::piece_below(end, i / 16));
      ASSERT_EQ(piece[i % 16], i < end ? 0xff : 0) << end << " at " << i;
    }
}

TYPED_TEST(Registers, Compares) {
  using T = TypeParam;
  for (int c = 0; c < this->cases; ++c) {
    const vector_register p = random_predicate(this->random);
    vector_register a, b, r;
    for (byte& x : a.bytes) x = static_cast<byte>(this->random());
    for (std::size_t i = 0; i < lanes<T>; ++i)  // equal ones too
      sve::store<T>(b.bytes, i, this->random() % 2 ? load<T>(a.bytes, i) : static_cast<T>(this->random()));
    const auto outcome = sve::compare_register<T>(
        r.bytes, p.bytes, [](auto x, auto y) { return x >= y; }, a.bytes, b.bytes);
    bool any = false;
    for (std::size_t i = 0; i < vector_bytes; ++i) {
      const std::size_t e = i / sizeof(T);
      const bool expected = i % sizeof(T) == 0 && p.bytes[i] & 1 && load<T>(a.bytes, e) >= load<T>(b.bytes, e);
      ASSERT_EQ(r.bytes[i], expected) << i;
      any = any || expected;
    }
    EXPECT_EQ(outcome.any(), any);
    EXPECT_EQ(outcome.every_active(), sve::all_active<T>(p.bytes));
  }
}

TYPED_TEST(Registers, LookupsIntoEachOfTheirOperands) {
  using T = std::make_unsigned_t<TypeParam>;
  for (int c = 0; c < this->cases; ++c) {
    vector_register table, indices, expected;
    for (byte& x : table.bytes) x = static_cast<byte>(this->random());
    for (std::size_t i = 0; i < lanes<T>; ++i) {
      const T at = static_cast<T>(this->random() % 4 == 0 ? this->random() : this->random() % (lanes<T> + 2));
      sve::store<T>(indices.bytes, i, at);
      sve::store<T>(expected.bytes, i, at < lanes<T> ? load<T>(table.bytes, at) : T{0});
    }
    vector_register result, over_table = table, over_indices = indices;
    sve::look_up<T>(result.bytes, table.bytes, indices.bytes);
    sve::look_up<T>(over_table.bytes, over_table.bytes, indices.bytes);
    sve::look_up<T>(over_indices.bytes, table.bytes, over_indices.bytes);
    for (const vector_register* r : {&result, &over_table, &over_indices})
      ASSERT_EQ(std::memcmp(r->bytes, expected.bytes, vector_bytes), 0);
  }
}

}  // namespace
