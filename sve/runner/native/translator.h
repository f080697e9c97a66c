// Runs as native code: a vector is several of the processor's own.
//
// The low sixteen bytes of each Z register are the processor's V register, the other six pieces and the predicates lie
// in the thread's cpu_state. The code works on the program's own registers, and borrows a few that the run does not
// name. What can be told of it at each of its instructions, a log says: which registers are borrowed and where their
// values are, and which instruction of the program is being executed.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sve/runner/arm64/code_buffer.h"
#include "sve/runner/native/instruction.h"
#include "sve/runner/sites/site.h"

namespace sve::runner {

inline constexpr std::size_t most_entry_words = 8192;
using EntryBuffer = arm64::CodeBuffer<most_entry_words>;

/// What becomes true at a word of an entry's code, counted from the entry's begin.
struct CodeEvent {
  enum Kind : std::uint8_t {
    light_begin,    ///< of native code: nothing is done yet. `reg` is 1 if the run begins here
    borrowed_low,   ///< X register `reg` is pushed, as the `value`th
    borrowed_x,     ///< X register `reg` lies in slot `value`
    borrowed_v,     ///< V register `reg` lies in the vector slot `value`
    lent_z,         ///< V register `reg` is a piece of its Z register, whose low one lies in the state
    returned_z,     ///< all of those are whole again
    instruction,    ///< the instruction `value` of the run begins
    leaving,        ///< what is left is to count the run, if `reg` is 1, to take the pushed registers, and to branch
    counted,        ///< the count is written
    popped,         ///< the pushed registers are taken
    waited,         ///< a trap, for what has waited for the run's end: only the pushed registers are to be taken
    without_block,  ///< a trap of a thread that is not known yet: likewise, and nothing is done
    heavy_begin,    ///< of code that calls handlers, from instruction `value` on
    heavy_tail      ///< of what follows the restoring of the program's registers there
  };
  std::uint16_t at;
  std::uint8_t what;
  std::uint8_t reg;
  std::uint16_t value;
};

class EventLog {
 public:
  void restart() { size_ = 0, good_ = true; }
  void add(std::size_t at, CodeEvent::Kind what, unsigned reg = 0, std::size_t value = 0) {
    if (size_ == most) {
      good_ = false;
      return;
    }
    events_[size_++] = {static_cast<std::uint16_t>(at), what, static_cast<std::uint8_t>(reg),
                        static_cast<std::uint16_t>(value)};
  }
  bool is_good() const { return good_; }
  std::size_t size() const { return size_; }
  void truncate(std::size_t size) { size_ = size; }
  const CodeEvent* data() const { return events_; }

 private:
  static constexpr std::size_t most = 2048;
  CodeEvent events_[most] = {};
  std::size_t size_ = 0;
  bool good_ = true;
};

/// Puts what calls the handlers of the instructions from `first` to `end`. `is_last` if the run ends there.
using HeavyEmitter = void (*)(EntryBuffer& code, EventLog& log, const Site& s, std::size_t first, std::size_t end,
                              bool is_last);

/// Puts the code of the whole run; if `scalars_only`, all instructions of SVE are handlers' calls. Where that cannot
/// be, the buffer or the log is bad.
void put_native(EntryBuffer& code, EventLog& log, const Site& s, HeavyEmitter put_handlers, bool scalars_only);

/// Loads the thread's block into a register, by way of another one; 0 if there is none.
void put_thread_block(EntryBuffer& code, unsigned to, unsigned by);

}  // namespace sve::runner
