// What is counted of single executions.
#include "sve/report/lane_use.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <numeric>

namespace {

using namespace sve;

constexpr unsigned words_in_vector = vector_bytes / 4;

TEST(LaneBins, SplitAtTenths) {
  EXPECT_EQ(lane_bin(0, 14), 0u);
  EXPECT_EQ(lane_bin(1, 14), 1u);
  EXPECT_EQ(lane_bin(1, 10), 1u);
  EXPECT_EQ(lane_bin(2, 10), 2u);
  EXPECT_EQ(lane_bin(7, 14), 5u);
  EXPECT_EQ(lane_bin(9, 10), 9u);
  EXPECT_EQ(lane_bin(13, 14), 10u);
  EXPECT_EQ(lane_bin(14, 14), lane_bins - 1);
  EXPECT_EQ(lane_bin(1, 1), lane_bins - 1);
}

class LaneUse : public ::testing::Test {
 protected:
  void SetUp() override {
    page = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    // Three pages, of which the last one is not there.
    memory =
        static_cast<std::uint8_t*>(mmap(nullptr, 3 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(memory, MAP_FAILED);
    ASSERT_EQ(mprotect(memory + 2 * page, page, PROT_NONE), 0);
    state = std::make_unique<cpu_state>();
    use = std::make_unique<sve::LaneUse>();
  }
  void TearDown() override { munmap(memory, 3 * page); }

  std::uint64_t at(std::uint64_t offset) const { return reinterpret_cast<std::uint64_t>(memory) + offset; }

  // The first `active` elements of P0.
  void set_predicate(unsigned active, unsigned size) {
    std::memset(state->p[0], 0, sizeof state->p[0]);
    for (unsigned i = 0; i < active; ++i) state->p[0][i * size] = 1;
  }

  void execute(std::uint32_t word) {
    const decode::Row* const row = decode::find_row(word);
    ASSERT_NE(row, nullptr);
    ASSERT_TRUE(has_lane_use(*row));
    std::uint32_t code = word;
    state->pc = &code;
    ASSERT_EQ(execute_and_count(state.get(), word, *row, use.get()), AARCH64_DECODE_EXECUTED);
  }

  void expect(unsigned executions, unsigned active, unsigned bytes, unsigned crossing, unsigned shortened = 0) const {
    EXPECT_EQ(use->executions, executions);
    EXPECT_EQ(use->active, active);
    EXPECT_EQ(use->bytes, bytes);
    EXPECT_EQ(use->crossing, crossing);
    EXPECT_EQ(use->shortened, shortened);
  }

  std::uint64_t page = 0;
  std::uint8_t* memory = nullptr;
  std::unique_ptr<cpu_state> state;
  std::unique_ptr<sve::LaneUse> use;
};

constexpr std::uint32_t ld1w_x1 = 0xa540a020;      // ld1w {z0.s}, p0/z, [x1]
constexpr std::uint32_t ld1w_x1_x2 = 0xa5424020;   // ld1w {z0.s}, p0/z, [x1, x2, lsl #2]
constexpr std::uint32_t st2d_x1 = 0xe5b0e020;      // st2d {z0.d, z1.d}, p0, [x1]
constexpr std::uint32_t ldr_z_x1 = 0x85804020;     // ldr z0, [x1]
constexpr std::uint32_t ld1rw_x1 = 0x8540c020;     // ld1rw {z0.s}, p0/z, [x1]
constexpr std::uint32_t ld1rqw_x1 = 0xa5002020;    // ld1rqw {z0.s}, p0/z, [x1]
constexpr std::uint32_t ld1w_gather = 0x85224021;  // ld1w {z1.s}, p0/z, [x1, z2.s, uxtw #2]
constexpr std::uint32_t ld1d_gather = 0xc5e2c021;  // ld1d {z1.d}, p0/z, [x1, z2.d, lsl #3]
constexpr std::uint32_t ld1d_vector = 0xc5a1c041;  // ld1d {z1.d}, p0/z, [z2.d, #8]
constexpr std::uint32_t ldff1b_x1 = 0xa4026020;    // ldff1b {z0.b}, p0/z, [x1, x2]
constexpr std::uint32_t add_z = 0x04800020;        // add z0.s, p0/m, z0.s, z1.s
constexpr std::uint32_t cmpeq_own = 0x2481a000;    // cmpeq p0.s, p0/z, z0.s, z1.s

TEST_F(LaneUse, Arithmetic) {
  set_predicate(3, 4);
  execute(add_z);
  execute(add_z);
  expect(2, 6, 0, 0);
  EXPECT_EQ(use->bins[lane_bin(3, words_in_vector)], 2u);
}

TEST_F(LaneUse, PredicateIsThatBeforeTheInstruction) {
  state->z[1][0] = 1;  // the first elements differ
  set_predicate(words_in_vector, 4);
  execute(cmpeq_own);
  expect(1, words_in_vector, 0, 0);
  execute(cmpeq_own);
  expect(2, 2 * words_in_vector - 1, 0, 0);
  EXPECT_EQ(use->bins[lane_bins - 1], 1u);
  EXPECT_EQ(use->bins[lane_bins - 2], 1u);
}

TEST_F(LaneUse, ContiguousLoadOverAPageEnd) {
  state->x[1] = at(page - 8);
  set_predicate(2, 4);
  execute(ld1w_x1);
  expect(1, 2, 8, 0);
  set_predicate(3, 4);
  execute(ld1w_x1);
  expect(2, 5, 20, 1);
  state->x[1] = at(page - 16), state->x[2] = 4;
  execute(ld1w_x1_x2);
  expect(3, 8, 32, 1);
}

TEST_F(LaneUse, NothingIsActive) {
  state->x[1] = at(2 * page);
  set_predicate(0, 4);
  execute(ld1w_x1);
  expect(1, 0, 0, 0);
  EXPECT_EQ(use->bins[0], 1u);
}

TEST_F(LaneUse, Structures) {
  state->x[1] = at(page - 16);
  set_predicate(1, 8);
  execute(st2d_x1);
  expect(1, 1, 16, 0);
  set_predicate(2, 8);
  execute(st2d_x1);
  expect(2, 3, 48, 1);
}

TEST_F(LaneUse, WholeRegisterIsNotGoverned) {
  state->x[1] = at(0);
  execute(ldr_z_x1);
  expect(1, 0, vector_bytes, 0);
  EXPECT_EQ(std::accumulate(std::begin(use->bins), std::end(use->bins), 0ul), 0u);
}

TEST_F(LaneUse, ReplicatedElementsAreReadOnce) {
  state->x[1] = at(page - 4);
  set_predicate(5, 4);
  execute(ld1rw_x1);
  expect(1, 5, 4, 0);
  // A quadword has four, and its predicate the first four.
  state->x[1] = at(page - 16);
  execute(ld1rqw_x1);
  expect(2, 9, 20, 0);
}

TEST_F(LaneUse, Gathers) {
  state->x[1] = at(0);
  const std::uint32_t offsets[] = {0, 100, 1};
  std::memcpy(state->z[2], offsets, sizeof offsets);
  set_predicate(3, 4);
  execute(ld1w_gather);
  expect(1, 3, 12, 0);
  const std::uint32_t far = static_cast<std::uint32_t>(page / 4);
  std::memcpy(state->z[2] + 4, &far, sizeof far);
  execute(ld1w_gather);
  expect(2, 6, 24, 1);
  const std::uint64_t wide[] = {page / 8 + 1, page / 8 + 2};
  std::memcpy(state->z[2], wide, sizeof wide);
  set_predicate(2, 8);
  execute(ld1d_gather);
  expect(3, 8, 40, 1);
  const std::uint64_t bases[] = {at(0), at(page - 8)};
  std::memcpy(state->z[2], bases, sizeof bases);
  execute(ld1d_vector);
  expect(4, 10, 56, 2);
}

TEST_F(LaneUse, ShortenedLoads) {
  state->x[1] = at(2 * page - vector_bytes);
  std::fill(std::begin(state->ffr), std::end(state->ffr), 1);
  set_predicate(5, 1);
  execute(ldff1b_x1);
  expect(1, 5, 5, 0);
  state->x[1] = at(2 * page - 5);
  set_predicate(vector_bytes, 1);
  execute(ldff1b_x1);
  EXPECT_EQ(use->shortened, 1u);
  EXPECT_EQ(use->crossing, 1u);
  // Nothing more is lost.
  execute(ldff1b_x1);
  EXPECT_EQ(use->shortened, 1u);
}

}  // namespace
