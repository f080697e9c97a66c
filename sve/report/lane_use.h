// How full the vectors of an instruction were, and what it did to memory.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "sve/decode/table.h"

namespace sve {

/// The bins of a histogram of lane use: no element active, up to a tenth of them, up to two tenths and so on, more than
/// nine tenths but not all, all.
inline constexpr std::size_t lane_bins = 12;

/// The bin of `active` elements out of `elements`.
constexpr std::size_t lane_bin(unsigned active, unsigned elements) {
  if (active == 0) return 0;
  return active == elements ? lane_bins - 1 : 1 + (active * 10 - 1) / elements;
}

/// What is counted of one instruction of a program.
struct LaneUse {
  std::atomic<std::uint64_t> executions;  ///< that were looked at
  std::atomic<std::uint64_t> active;      ///< elements, added up; of instructions with a governing predicate
  std::atomic<std::uint64_t> bins[lane_bins];
  std::atomic<std::uint64_t> bytes;      ///< read or written
  std::atomic<std::uint64_t> crossing;   ///< executions that touched more than one page of 4096 bytes
  std::atomic<std::uint64_t> shortened;  ///< first-fault and non-fault loads that have cleared elements of FFR
};

/// Whether there is anything to count of a row's instructions.
bool has_lane_use(const decode::Row& r);

/// Executes `word` by its row's handler, and counts if it was executed.
aarch64_decode_rc execute_and_count(cpu_state* state, std::uint32_t word, const decode::Row& r, LaneUse* use);

}  // namespace sve
