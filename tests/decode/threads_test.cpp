// Many threads in the two entry points at once: the searches, the words that are remembered between them, the counts.
// Built with the thread sanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "sve/decode/dispatch.h"
#include "sve/decode/table.h"
#include "sve/stats/stats.h"

namespace {

constexpr int threads = 4;

template <class Body>
void in_threads(Body body) {
  std::vector<std::thread> running;
  for (int t = 0; t < threads; ++t) running.emplace_back(body, t);
  for (std::thread& t : running) t.join();
}

// Each thread meets every row's words, with operands of its own, so that entries of the memory are overwritten all the
// time.
TEST(Threads, FindTheSameHandlers) {
  std::atomic<int> wrong{0};
  in_threads([&](int t) {
    for (const sve::decode::Map* map : sve::decode::maps_in_is_sve_order())
      for (const sve::decode::Row& row : map->rows)
        for (std::uint32_t n = 0; n < 4; ++n) {
          const std::uint32_t word =
              map->word(row.key) | ((static_cast<std::uint32_t>(t) * 4 + n) * 0x9e3779b1u & ~map->fixed_bits);
          wrong += is_sve(word) != row.handle;
        }
  });
  EXPECT_EQ(wrong, 0);
}

TEST(Threads, ExecuteAndCountAll) {
  static std::uint32_t code[threads][3] = {};
  const unsigned long before = sve_instr_count;
  constexpr int rounds = 500;
  std::atomic<int> wrong{0};
  in_threads([&](int t) {
    cpu_state state{};
    std::memset(state.p[0], 1, sizeof state.p[0]);
    std::memset(state.z[1], 1, sizeof state.z[1]);
    std::uint32_t* const mine = code[t];
    mine[0] = 0x04000020;                                  // add z0.b, p0/m, z0.b, z1.b
    mine[1] = 0x04030020;                                  // subr z0.b, p0/m, z0.b, z1.b: a library row
    mine[2] = 0x25208000 | static_cast<std::uint32_t>(t);  // cntp xT, p0, p0.b
    for (int i = 0; i < rounds; ++i) {
      state.pc = mine;
      for (int k = 0; k < 3; ++k) wrong += execute_sve_instruction(&state) != AARCH64_DECODE_EXECUTED;
      wrong += state.x[t] != sve::vector_bytes;
    }
    wrong += state.z[0][5] != 0;
  });
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(sve_instr_count, before + threads * rounds * 3ul);
  for (auto& words : code)
    for (auto& word : words) EXPECT_EQ(icounts.at(&word).second, static_cast<unsigned long>(rounds));
}

}  // namespace
