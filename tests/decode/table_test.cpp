// The instruction table as data: disjoint rows, agreement of the two searches.
#include "sve/decode/table.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/states.h"

namespace {

using sve::decode::Map;
using sve::decode::Row;
using test::for_each_row;

// The bit ranges of the maps' keys, in the order of is_sve's search.
constexpr const char* expected[] = {"31_0",
                                    "31_9__4_0",
                                    "31_4",
                                    "31_9__4_4",
                                    "31_14__9_9__4_0",
                                    "31_10__4_4",
                                    "31_9",
                                    "31_13__9_6",
                                    "31_21__15_10__4_0",
                                    "31_10",
                                    "31_13__9_8",
                                    "31_11",
                                    "31_14__9_9__4_4",
                                    "31_13__9_9",
                                    "31_20__15_9__4_4",
                                    "31_13__4_4",
                                    "31_24__21_10",
                                    "31_24__21_21__19_10",
                                    "31_19__15_10",
                                    "31_13",
                                    "31_14__9_9",
                                    "31_20__15_10",
                                    "31_14",
                                    "31_23__21_13",
                                    "31_21__15_10__4_4",
                                    "31_24__21_21__18_10",
                                    "31_17__15_13",
                                    "31_24__21_21__17_10",
                                    "31_21__15_10",
                                    "31_23__21_21__15_10",
                                    "31_21__15_11",
                                    "31_24__21_21__16_10",
                                    "31_20__15_14__9_9__4_4",
                                    "31_21__15_13__4_4",
                                    "31_21__15_12",
                                    "31_20__15_13",
                                    "31_21__15_13",
                                    "31_20__15_14",
                                    "31_18",
                                    "31_22__15_13__4_4",
                                    "31_22__15_13",
                                    "31_21__15_14",
                                    "31_21__13_13__4_4",
                                    "31_21__15_15"};

/// The bits of "31_21__15_10": ranges from the highest to the lowest bit.
std::uint32_t bits_of(const char* ranges) {
  std::uint32_t bits = 0;
  unsigned high, low;
  for (int length; std::sscanf(ranges, "%u_%u%n", &high, &low, &length) == 2; ranges += std::strspn(ranges, "_")) {
    bits |= (~0u >> (31 - high)) & (~0u << low);
    ranges += length;
  }
  return bits;
}

TEST(Table, MapsHaveTheirBits) {
  const auto maps = sve::decode::maps_in_is_sve_order();
  ASSERT_EQ(maps.size(), std::size(expected));
  for (std::size_t i = 0; i < maps.size(); ++i) {
    EXPECT_EQ(maps[i]->name, std::string("decode_map__") + expected[i]);
    EXPECT_EQ(maps[i]->fixed_bits, bits_of(expected[i])) << maps[i]->name;
    EXPECT_FALSE(maps[i]->rows.empty()) << maps[i]->name;
  }
}

TEST(Table, BothOrdersHoldTheSameMaps) {
  const auto is_sve_order = sve::decode::maps_in_is_sve_order(), execute_order = sve::decode::maps_in_execute_order();
  ASSERT_EQ(is_sve_order.size(), execute_order.size());
  EXPECT_EQ(std::set<const Map*>(is_sve_order.begin(), is_sve_order.end()),
            std::set<const Map*>(execute_order.begin(), execute_order.end()));
  std::size_t different = 0;
  for (std::size_t i = 0; i < is_sve_order.size(); ++i) different += is_sve_order[i] != execute_order[i];
  EXPECT_EQ(different, 18u);
}

TEST(Table, NamesAndHandlersStandOnce) {
  std::set<std::string> names;
  for_each_row([&](const Map&, const Row& r) { EXPECT_TRUE(names.insert(r.name).second) << r.name; });
}

TEST(Table, KeysAscendAndFitTheirBits) {
  for (const Map* m : sve::decode::maps_in_is_sve_order()) {
    int last = -1;
    for (const Row& r : m->rows) {
      EXPECT_GT(r.key, last) << m->name << " " << r.name;
      last = r.key;
      const std::uint32_t word = m->word(r.key);
      EXPECT_EQ(word & ~m->fixed_bits, 0u);
      EXPECT_EQ(m->key(word), r.key) << r.name;
      EXPECT_EQ(m->key(word | ~m->fixed_bits), r.key) << r.name << ": an operand bit is part of the key";
    }
  }
}

TEST(Table, RowsArePairwiseDisjoint) {
  struct pattern {
    std::uint32_t mask, word;
    const char* name;
  };
  std::vector<pattern> all;
  for_each_row([&](const Map& m, const Row& r) { all.push_back({m.fixed_bits, m.word(r.key), r.name}); });
  for (std::size_t i = 0; i < all.size(); ++i)
    for (std::size_t j = i + 1; j < all.size(); ++j)
      ASSERT_NE((all[i].word ^ all[j].word) & all[i].mask & all[j].mask, 0u) << all[i].name << " " << all[j].name;
}

TEST(Table, BothSearchesFindEveryRowWithAnyOperands) {
  std::mt19937 random(1);
  for_each_row([&](const Map& m, const Row& r) {
    for (int i = 0; i < 16; ++i) {
      const std::uint32_t word = m.word(r.key) | (static_cast<std::uint32_t>(random()) & ~m.fixed_bits);
      ASSERT_EQ(sve::decode::find_in_is_sve_order(word), r.handle) << r.name;
      ASSERT_EQ(sve::decode::find_in_execute_order(word), r.handle) << r.name;
      ASSERT_EQ(is_sve(word), r.handle) << r.name;
      ASSERT_EQ(is_sve(word), r.handle) << r.name << ": the second time";
    }
  });
}

TEST(Table, BothSearchesAgreeOnRandomWords) {
  std::mt19937 random(2);
  std::size_t hits = 0;
  for (int i = 0; i < 10'000'000; ++i) {
    // One in four words is drawn from the major opcodes that hold the vector instructions, so that hits are frequent.
    std::uint32_t word = static_cast<std::uint32_t>(random());
    if (i % 4 == 0) word = (word & ~0x1e000000u) | 0x04000000u;
    const DecodeHandler found = sve::decode::find_in_is_sve_order(word);
    ASSERT_EQ(found, sve::decode::find_in_execute_order(word)) << std::hex << word;
    ASSERT_EQ(found, is_sve(word)) << std::hex << word;
    hits += found != nullptr;
  }
  EXPECT_GT(hits, 100'000u);
}

TEST(Table, KnownWords) {
  EXPECT_STREQ(sve::decode::find_row(0x252c9000)->name, "VecPClearFFSR");
  EXPECT_STREQ(sve::decode::maps_in_is_sve_order()[0]->name, "decode_map__31_0");
  for (std::uint32_t low = 0; low < 16; ++low) EXPECT_STREQ(sve::decode::find_row(0x2518e400 | low)->name, "VecPFalse");
  EXPECT_EQ(is_sve(0xd503201f), nullptr);  // nop
  EXPECT_EQ(is_sve(0x8b000000), nullptr);  // add x0, x0, x0
  // Bit 31 set makes the key of the first map negative and no other; such a word must still be found.
  std::size_t negative = 0;
  for_each_row([&](const Map& m, const Row& r) { negative += static_cast<std::int32_t>(m.word(r.key)) < 0; });
  EXPECT_GT(negative, 0u);
}

}  // namespace
