// The counts of executed instructions and their printed form.
#include "sve/stats/stats.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {
std::atomic<bool> no_memory{false};
}  // namespace

void* operator new(std::size_t size) {
  void* p = no_memory ? nullptr : std::malloc(size);
  if (!p) throw std::bad_alloc();
  return p;
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

class Stats : public testing::Test {
 protected:
  void SetUp() override {
    icounts.clear();
    sve_instr_count = 0;
    aarch64_instr_count = 0;
  }
  std::string dump() {
    testing::internal::CaptureStderr();
    dump_sve_stats();
    return testing::internal::GetCapturedStderr();
  }
  std::array<unsigned int, 8> code{};
};

TEST_F(Stats, EmptyTablePrintsNothing) { EXPECT_EQ(dump(), ""); }

TEST_F(Stats, OneAddressIsOneEntry) {
  for (int i = 0; i < 1000; ++i) update_sve_stats(&code[3], 0x04e0e3e0);
  EXPECT_EQ(sve_instr_count, 1000u);
  EXPECT_EQ(aarch64_instr_count, 0u);
  ASSERT_EQ(icounts.size(), 1u);
  EXPECT_EQ(icounts.at(&code[3]).first, 0x04e0e3e0u);
  EXPECT_EQ(icounts.at(&code[3]).second, 1000u);
}

TEST_F(Stats, FirstWordAtAnAddressStays) {
  update_sve_stats(&code[0], 0x04e0e3e0);
  update_sve_stats(&code[0], 0x2518e400);
  EXPECT_EQ(icounts.at(&code[0]).first, 0x04e0e3e0u);
  EXPECT_EQ(icounts.at(&code[0]).second, 2u);
}

TEST_F(Stats, DumpIsInAddressOrder) {
  update_sve_stats(&code[5], 0x5);
  update_sve_stats(&code[1], 0x04e0e3e0);
  update_sve_stats(&code[5], 0x5);
  char expected[128];
  std::snprintf(expected, sizeof expected, "%p: 0x04e0e3e0 1\n%p: 0x00000005 2\n", static_cast<void*>(&code[1]),
                static_cast<void*>(&code[5]));
  EXPECT_EQ(dump(), expected);
}

// Without memory for an entry the total is exact all the same.
TEST_F(Stats, NoMemoryForAnEntryIsToldByTheAllocatorsException) {
  update_sve_stats(&code[0], 1);
  no_memory = true;
  EXPECT_THROW(update_sve_stats(&code[1], 2), std::bad_alloc);
  update_sve_stats(&code[0], 1);  // needs none
  no_memory = false;
  EXPECT_EQ(sve_instr_count, 3u);
  EXPECT_EQ(icounts.size(), 1u);
  update_sve_stats(&code[1], 2);  // the lock is free again
  EXPECT_EQ(icounts.at(&code[1]).second, 1u);
}

TEST_F(Stats, APlatformMayGoOnWithoutTheTable) {
  // In a process of its own, since the table stands from then on.
  EXPECT_EXIT(
      {
        static int told = 0;
        sve::on_no_memory_for_counts = [] { ++told; };
        update_sve_stats(&code[0], 1);
        no_memory = true;
        for (int i = 0; i < 5; ++i) update_sve_stats(&code[1], 2);
        no_memory = false;
        update_sve_stats(&code[0], 1);
        update_sve_stats(&code[2], 3);
        std::_Exit(told == 1 && sve_instr_count == 8 && icounts.size() == 1 && icounts.at(&code[0]).second == 1 ? 0
                                                                                                                : 1);
      },
      testing::ExitedWithCode(0), "^$");
}

TEST_F(Stats, ThreadsLoseNoCount) {
  constexpr int threads = 4, rounds = 5000;
  std::vector<std::thread> pool;
  for (int t = 0; t < threads; ++t) {
    pool.emplace_back([this] {
      for (int i = 0; i < rounds; ++i) update_sve_stats(&code[i % code.size()], 1);
    });
  }
  for (auto& thread : pool) thread.join();
  EXPECT_EQ(sve_instr_count, static_cast<unsigned long>(threads * rounds));
  unsigned long sum = 0;
  for (const auto& [pc, entry] : icounts) sum += entry.second;
  EXPECT_EQ(sum, static_cast<unsigned long>(threads * rounds));
  EXPECT_EQ(icounts.size(), code.size());
}

}  // namespace
