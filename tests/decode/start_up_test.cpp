// The order of the library's static initialisers, seen by initialisers that stand between them.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstring>

#include "sve/decode/dispatch.h"
#include "sve/fault/fault_capture.h"
#include "sve/stats/stats.h"

namespace {

constexpr std::uint32_t first_row = 0x04000020, last_row = 0x25208000;  // add (predicated); cntp

struct Stage {
  bool counts, page, some_map, all_maps, handler;
  friend bool operator==(const Stage&, const Stage&) = default;
};

// A map that is not constructed is bytes of zero.
Stage look() {
  unsigned char bytes[sizeof icounts];
  std::memcpy(bytes, &icounts, sizeof bytes);
  struct sigaction action = {};
  sigaction(SIGSEGV, nullptr, &action);
  const bool one = is_sve(first_row) != nullptr, other = is_sve(last_row) != nullptr;
  return {std::any_of(std::begin(bytes), std::end(bytes), [](unsigned char b) { return b != 0; }), page_size != 0,
          one || other, one && other, action.sa_sigaction == SVESigHandler};
}

// The priorities of the library are 1010, 1020, 1030 and 1040.
#define LOOK_AT(priority) [[gnu::init_priority(priority)]] const Stage at_##priority = look();
LOOK_AT(1005)
LOOK_AT(1015)
LOOK_AT(1025)
LOOK_AT(1035)
LOOK_AT(1045)

TEST(StartUp, CountsThenPageSizeThenMapsThenSetUp) {
  EXPECT_EQ(at_1005, (Stage{false, false, false, false, false}));
  EXPECT_EQ(at_1015, (Stage{true, false, false, false, false}));
  EXPECT_EQ(at_1025, (Stage{true, true, false, false, false}));
  EXPECT_EQ(at_1035, (Stage{true, true, true, true, false}));
  EXPECT_EQ(at_1045, (Stage{true, true, true, true, true}));
}

}  // namespace
