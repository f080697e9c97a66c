// Execution of one instruction word by the processor itself.
#pragma once

#include <cstdint>

#include "tests/conformance/machine.h"

namespace conformance {

struct native_result {
  bool faulted = false;   ///< SIGSEGV or SIGBUS: the state is that of the fault
  bool undefined = false;  ///< SIGILL
  std::uint64_t address = 0;  ///< of the fault
};

/// Whether this processor has the vector extension at our length; if not, `why` says what is missing.
bool native_available(const char** why);

/// Handlers, alternate stack and the buffer of code. Call once.
void native_set_up();

/// Puts the word into the code buffer and returns its place. The buffer is a ring: a place stays valid for the next
/// `native_places - 1` calls, so that a batch of words is written before the first one runs.
inline constexpr unsigned native_places = 4096;
unsigned native_place(std::uint32_t word);

/// A register that the word does not name; the trampoline holds its own address in it, so it keeps its value.
unsigned native_spare_register(std::uint32_t word);

/// Loads every register from `state`, executes the word at `place`, and stores every register back.
native_result native_run(unsigned place, std::uint32_t word, machine& state);

/// Runs `body`; a memory fault in it that no guarded read recovers makes this return true, with the address.
bool catches_fault(void (*body)(void*), void* argument, std::uint64_t* address);

}  // namespace conformance
