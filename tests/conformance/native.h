// Execution of one instruction word, or of a few in one go, by the processor itself.
#pragma once

#include <cstdint>
#include <span>

#include "tests/conformance/machine.h"

namespace conformance {

struct NativeResult {
  bool faulted = false;       ///< SIGSEGV or SIGBUS: the state is that of the fault
  bool undefined = false;     ///< SIGILL
  std::uint64_t address = 0;  ///< of the fault
};

/// Whether this processor has the vector extension at our length; if not, `why` says what is missing.
bool native_available(const char** why);

/// Handlers, alternate stack and the buffer of code. Call once.
void native_set_up();

/// Puts the words into the code buffer and returns their place. The trampoline behind them holds its own address in
/// register `spare`. The buffer is a ring: a place stays valid for the next
/// `native_places - 1` calls, so that a batch of words is written before the first one runs.
inline constexpr unsigned native_places = 4096;
inline constexpr unsigned native_longest = 8;  ///< words
unsigned native_place(std::span<const std::uint32_t> words, unsigned spare);

/// A register that no word names, so that it keeps its value; 0 where there is none.
unsigned native_spare_register(std::span<const std::uint32_t> words);

/// Loads every register from `state`, executes the words at `place`, and stores every register back. A word that faults
/// or is none ends it.
NativeResult native_run(unsigned place, unsigned spare, Machine& state);

/// Runs `body`; a memory fault in it that no guarded read recovers makes this return true, with the address.
bool catches_fault(void (*body)(void*), void* argument, std::uint64_t* address);

}  // namespace conformance
