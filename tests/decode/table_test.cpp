// The instruction table as data: disjoint rows, agreement of the two searches.
#include "sve/decode/table.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using sve::decode::map;
using sve::decode::row;

struct expected_map {
  const char* name;
  std::uint32_t fixed_bits;
};

// In the order of is_sve's search.
constexpr expected_map expected[] = {{"decode_map__31_0", 0xffffffff},
                                     {"decode_map__31_9__4_0", 0xfffffe1f},
                                     {"decode_map__31_4", 0xfffffff0},
                                     {"decode_map__31_9__4_4", 0xfffffe10},
                                     {"decode_map__31_14__9_9__4_0", 0xffffc21f},
                                     {"decode_map__31_10__4_4", 0xfffffc10},
                                     {"decode_map__31_9", 0xfffffe00},
                                     {"decode_map__31_13__9_6", 0xffffe3c0},
                                     {"decode_map__31_21__15_10__4_0", 0xffe0fc1f},
                                     {"decode_map__31_10", 0xfffffc00},
                                     {"decode_map__31_13__9_8", 0xffffe300},
                                     {"decode_map__31_11", 0xfffff800},
                                     {"decode_map__31_14__9_9__4_4", 0xffffc210},
                                     {"decode_map__31_13__9_9", 0xffffe200},
                                     {"decode_map__31_20__15_9__4_4", 0xfff0fe10},
                                     {"decode_map__31_13__4_4", 0xffffe010},
                                     {"decode_map__31_24__21_10", 0xff3ffc00},
                                     {"decode_map__31_24__21_21__19_10", 0xff2ffc00},
                                     {"decode_map__31_19__15_10", 0xfff8fc00},
                                     {"decode_map__31_13", 0xffffe000},
                                     {"decode_map__31_14__9_9", 0xffffc200},
                                     {"decode_map__31_20__15_10", 0xfff0fc00},
                                     {"decode_map__31_14", 0xffffc000},
                                     {"decode_map__31_23__21_13", 0xffbfe000},
                                     {"decode_map__31_21__15_10__4_4", 0xffe0fc10},
                                     {"decode_map__31_24__21_21__18_10", 0xff27fc00},
                                     {"decode_map__31_17__15_13", 0xfffee000},
                                     {"decode_map__31_24__21_21__17_10", 0xff23fc00},
                                     {"decode_map__31_21__15_10", 0xffe0fc00},
                                     {"decode_map__31_23__21_21__15_10", 0xffa0fc00},
                                     {"decode_map__31_21__15_11", 0xffe0f800},
                                     {"decode_map__31_24__21_21__16_10", 0xff21fc00},
                                     {"decode_map__31_20__15_14__9_9__4_4", 0xfff0c210},
                                     {"decode_map__31_21__15_13__4_4", 0xffe0e010},
                                     {"decode_map__31_21__15_12", 0xffe0f000},
                                     {"decode_map__31_20__15_13", 0xfff0e000},
                                     {"decode_map__31_21__15_13", 0xffe0e000},
                                     {"decode_map__31_20__15_14", 0xfff0c000},
                                     {"decode_map__31_18", 0xfffc0000},
                                     {"decode_map__31_22__15_13__4_4", 0xffc0e010},
                                     {"decode_map__31_22__15_13", 0xffc0e000},
                                     {"decode_map__31_21__15_14", 0xffe0c000},
                                     {"decode_map__31_21__13_13__4_4", 0xffe02010},
                                     {"decode_map__31_21__15_15", 0xffe08000}};

template <class Visit>
void for_each_row(Visit visit) {
  for (const map* m : sve::decode::maps_in_is_sve_order())
    for (const row& r : m->rows) visit(*m, r);
}

TEST(Table, MapsHaveTheirBits) {
  const auto maps = sve::decode::maps_in_is_sve_order();
  ASSERT_EQ(maps.size(), std::size(expected));
  for (std::size_t i = 0; i < maps.size(); ++i) {
    EXPECT_STREQ(maps[i]->name, expected[i].name);
    EXPECT_EQ(maps[i]->fixed_bits, expected[i].fixed_bits) << maps[i]->name;
    EXPECT_FALSE(maps[i]->rows.empty()) << maps[i]->name;
  }
}

TEST(Table, BothOrdersHoldTheSameMaps) {
  const auto is_sve_order = sve::decode::maps_in_is_sve_order(), execute_order = sve::decode::maps_in_execute_order();
  ASSERT_EQ(is_sve_order.size(), execute_order.size());
  EXPECT_EQ(std::set<const map*>(is_sve_order.begin(), is_sve_order.end()),
            std::set<const map*>(execute_order.begin(), execute_order.end()));
  std::size_t different = 0;
  for (std::size_t i = 0; i < is_sve_order.size(); ++i) different += is_sve_order[i] != execute_order[i];
  EXPECT_EQ(different, 18u);
}

TEST(Table, NamesAndHandlersStandOnce) {
  std::set<std::string> names;
  for_each_row([&](const map&, const row& r) { EXPECT_TRUE(names.insert(r.name).second) << r.name; });
}

TEST(Table, KeysAscendAndFitTheirBits) {
  for (const map* m : sve::decode::maps_in_is_sve_order()) {
    int last = -1;
    for (const row& r : m->rows) {
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
  for_each_row([&](const map& m, const row& r) { all.push_back({m.fixed_bits, m.word(r.key), r.name}); });
  for (std::size_t i = 0; i < all.size(); ++i)
    for (std::size_t j = i + 1; j < all.size(); ++j)
      ASSERT_NE((all[i].word ^ all[j].word) & all[i].mask & all[j].mask, 0u) << all[i].name << " " << all[j].name;
}

TEST(Table, BothSearchesFindEveryRowWithAnyOperands) {
  std::mt19937 random(1);
  for_each_row([&](const map& m, const row& r) {
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
    const decode_handler found = sve::decode::find_in_is_sve_order(word);
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
  for_each_row([&](const map& m, const row& r) { negative += static_cast<std::int32_t>(m.word(r.key)) < 0; });
  EXPECT_GT(negative, 0u);
}

}  // namespace
