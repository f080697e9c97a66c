// Expansion of logical immediates, with the one encoding whose expansion does not return.
#include <gtest/gtest.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "sve/decode/operands.h"
#include "sve/decode/table.h"

namespace {

using sve::decode::expand_logical_immediate;

// Bit by bit: an element of 2 to 64 bits with a run of ones, rotated right, repeated over 64 bits.
std::uint64_t restated(unsigned n, unsigned immr, unsigned imms) {
  int len = 6;
  while (len >= 0 && !((n << 6 | (~imms & 63)) >> len & 1)) --len;
  const unsigned size = 1u << len, run = (imms & (size - 1)) + 1, rotation = immr & (size - 1);
  std::uint64_t mask = 0;
  for (unsigned bit = 0; bit < 64; ++bit) {
    const unsigned before_rotation = (bit % size + rotation) % size;
    if (before_rotation < run && run != 64) mask |= std::uint64_t{1} << bit;
  }
  return mask;
}

TEST(LogicalImmediate, EveryEncodingThatReturns) {
  for (unsigned n = 0; n < 2; ++n)
    for (unsigned immr = 0; immr < 64; ++immr)
      for (unsigned imms = 0; imms < 64; ++imms) {
        if (n == 0 && imms == 63) continue;
        ASSERT_EQ(expand_logical_immediate(n << 12 | immr << 6 | imms), restated(n, immr, imms))
            << n << " " << immr << " " << imms;
      }
  EXPECT_EQ(expand_logical_immediate(1 << 12 | 63), 0u);  // reserved, and empty
  EXPECT_EQ(expand_logical_immediate(0x3c), 0x5555555555555555u);
  EXPECT_EQ(expand_logical_immediate(0x27), 0x00ff00ff00ff00ffu);
}

// Runs `body` in a child until it has used `milliseconds` of processor time; whether it was still running then.
template <class Body>
bool still_runs_after(int milliseconds, Body body) {
  const pid_t child = fork();
  if (child == 0) {
    const itimerval limit = {{0, 0}, {0, milliseconds * 1000}};
    if (std::signal(SIGVTALRM, SIG_DFL) == SIG_ERR || setitimer(ITIMER_VIRTUAL, &limit, nullptr) != 0) _exit(2);
    body();
    _exit(0);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0);
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGVTALRM;
}

TEST(LogicalImmediate, OneReservedEncodingDoesNotReturn) {
  EXPECT_FALSE(still_runs_after(200, [] { expand_logical_immediate(1 << 12 | 63); }));
  for (const unsigned immr : {0u, 63u})
    EXPECT_TRUE(still_runs_after(200, [&] { expand_logical_immediate(immr << 6 | 63); }));
  // Nor does a handler that holds it: orr z0.d, z0.d, with N clear and imms all ones.
  const sve::decode::Row* row = sve::decode::find_row(0x05000000 | 63 << 5);
  ASSERT_NE(row, nullptr);
  EXPECT_STREQ(row->name, "VecU64OrVIX");
  EXPECT_TRUE(still_runs_after(200, [&] {
    cpu_state state{};
    row->handle(&state, 0x05000000 | 63 << 5);
  }));
}

}  // namespace
