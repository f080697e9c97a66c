// The code of a site.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sve/runner/native/translator.h"
#include "sve/runner/sites/site.h"

namespace sve::runner {

/// A site's code: first its site's address, as two words, then what the site branches to.
struct EntryCode {
  const std::uint32_t* words;
  std::size_t size;
  std::size_t begin;  ///< of the code, in words
  const CodeEvent* events;
  std::size_t event_count;
};

/// Makes the code that will lie at `address`; false if that cannot be. The words stay until the next call. To be called
/// under a lock.
bool make_entry(const Site& s, std::uint64_t address, Translation how, EntryCode& code);

/// Where a thread is in an entry's code, and what it takes to leave it there.
struct EntryPosition {
  bool is_light = false;    ///< in native code, otherwise in what calls handlers
  bool is_begin = false;    ///< of a part: nothing of it is done, the registers are the program's
  bool is_pushed = false;   ///< `low` are on the program's stack
  bool is_leaving = false;  ///< everything is done, and all registers are the program's but those pushed
  bool is_counted = false;  ///< of a run's end: the count is written
  bool is_last = false;     ///< where it is leaving, the run is over
  bool waited = false, without_block = false;  ///< at one of the traps
  std::uint8_t low[4] = {};
  std::uint32_t x = 0, v = 0, z = 0;  ///< registers whose values lie elsewhere
  std::uint8_t x_slot[32] = {}, v_slot[32] = {};
  std::size_t instruction = 0;  ///< of the run, which begins or goes on; those before it are done
};
EntryPosition locate(const Site& s, std::uintptr_t pc);

/// A branch between two addresses, or 0 if they lie too far apart.
std::uint32_t branch_to(std::uint64_t from, std::uint64_t to);

}  // namespace sve::runner
