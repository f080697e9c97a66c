// The words that rows take and the architecture has not: that the list says so of them, of all operands and of no
// others. What a processor answers is compared by the sweep of random words in tests/runner.
#include "sve/decode/unallocated.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <random>

#include "sve/decode/words.h"
#include "tests/states.h"

namespace {

using sve::decode::find_row;
using sve::decode::is_unallocated;
using sve::decode::Spelling;
using test::for_each_row;

/// Whether an address is a base register and an index register.
bool has_index(const sve::decode::Row& row) { return row.form->address == sve::decode::AddressForm::base_index; }

TEST(Unallocated, EveryFormIsThatOfRows) {
  for (const auto& form : sve::decode::unallocated_forms()) {
    EXPECT_EQ(form.value & ~form.mask, 0u);
    bool reached = false;
    for_each_row(
        [&](auto& map, auto& row) { reached |= ((map.word(row.key) ^ form.value) & map.fixed_bits & form.mask) == 0; });
    EXPECT_TRUE(reached) << std::hex << form.value << ": " << form.reason;
  }
}

// N and imms: the run of ones is as long as the element.
TEST(Unallocated, LogicalImmediatesOfAllOnes) {
  for (std::uint32_t base : {0x05000000u, 0x05400000u, 0x05800000u, 0x05c00000u})
    for (std::uint32_t n = 0; n < 2; ++n)
      for (std::uint32_t imms = 0; imms < 64; ++imms)
        for (std::uint32_t immr : {0u, 21u, 63u}) {
          const std::uint32_t word = base | n << 17 | immr << 11 | imms << 5 | 9;
          ASSERT_NE(find_row(word), nullptr);
          const std::uint32_t selector = n << 6 | (~imms & 63);
          const std::uint32_t width = selector == 0 ? 0 : 1u << (std::bit_width(selector) - 1);
          const bool reserved = width < 2 || (imms & (width - 1)) == width - 1;
          EXPECT_EQ(is_unallocated(word), reserved) << std::hex << word;
        }
}

TEST(Unallocated, ShiftedImmediatesOfBytes) {
  for (std::uint32_t size = 0; size < 4; ++size)
    for (std::uint32_t shifted : {0u, 1u << 13}) {
      const bool expected = size == 0 && shifted;
      for (std::uint32_t word : {0x2520c000u, 0x2521c000u, 0x2523c000u, 0x2524c000u, 0x2525c000u, 0x2526c000u,
                                 0x2527c000u, 0x2538c000u, 0x05100000u, 0x05104000u}) {
        word |= size << 22 | shifted | 0x1ff;
        ASSERT_NE(find_row(word), nullptr) << std::hex << word;
        EXPECT_EQ(is_unallocated(word), expected) << std::hex << word;
      }
    }
}

TEST(Unallocated, TheZeroRegisterAsIndex) {
  int reserved = 0, allowed = 0;
  for_each_row([&](auto& map, auto& row) {
    if (!has_index(row)) return;
    const bool first_fault = row.function->access == sve::decode::AccessKind::first_fault;
    const std::uint32_t word = map.word(row.key) & ~(31u << 16);
    EXPECT_EQ(is_unallocated(word | 31u << 16), !first_fault) << row.name;
    EXPECT_FALSE(is_unallocated(word | 30u << 16)) << row.name;
    ++(first_fault ? allowed : reserved);
  });
  EXPECT_EQ(allowed, 16);
  EXPECT_EQ(reserved, 16 + 10 + 8 + 24 + 4 + 4);
}

// Rows of other kinds hold no such word.
TEST(Unallocated, NoOtherRow) {
  std::mt19937 random(1);
  int rows = 0;
  for_each_row([&](auto& map, auto& row) {
    const bool has_such_immediate = std::ranges::any_of(row.operands(), [&](auto& o) {
      return o.spelled == Spelling::logical || (o.spelled == Spelling::shifted && row.element_bytes() == 1);
    });
    if (has_index(row) || has_such_immediate) return;
    ++rows;
    for (int i = 0; i < 2000; ++i) {
      const std::uint32_t word = map.word(row.key) | (random() & ~map.fixed_bits);
      ASSERT_FALSE(is_unallocated(word)) << row.name << std::hex << " " << word;
    }
  });
  EXPECT_GT(rows, 1300);
}

// The keys alone know what the table knows.
TEST(Words, AreModelledThatARowTakesAndTheArchitectureHas) {
  std::mt19937 random(2);
  const auto agrees = [](std::uint32_t word) {
    return sve::decode::is_modelled(word) == (find_row(word) && !is_unallocated(word));
  };
  for_each_row([&](auto& map, auto& row) {
    for (int i = 0; i < 20; ++i) {
      const std::uint32_t word = map.word(row.key) | (static_cast<std::uint32_t>(random()) & ~map.fixed_bits);
      EXPECT_TRUE(agrees(word)) << std::hex << word;
    }
  });
  for (int i = 0; i < 1000000; ++i) {
    const auto word = static_cast<std::uint32_t>(random());
    EXPECT_TRUE(agrees(word) && agrees((word & ~(15u << 25)) | 2u << 25)) << std::hex << word;
  }
}

}  // namespace
