// Memory for code of our own within a direct branch's reach of the code that branches there. It is executable at one
// address and writable at another, never both at one.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sve::runner {

/// The distance within which every byte of a region lies from the code that it serves: less than a direct branch's
/// 128 MB, since both have a size.
inline constexpr std::size_t branch_reach = std::size_t{124} << 20;

/// A piece of a region that is being filled.
struct CodeSpace {
  std::uint64_t address = 0;  ///< where it will be executed; 0 if there is none
  std::size_t room = 0;       ///< in words
};

/// Room near `address`, at least `words`. Held until `commit_code`; one at a time, under the caller's lock.
CodeSpace reserve_code(std::uintptr_t address, std::size_t words);

/// Fills the space last reserved with `count` words and makes them ready to be executed by all threads.
void commit_code(const CodeSpace& space, const std::uint32_t* words, std::size_t count);

/// Whether `pc` lies in code of ours.
bool is_own_code(std::uintptr_t pc);

/// In a forked child: what the parent adds to its regions from now on is not for us, and the other way round.
void leave_code_to_parent();

/// Makes instructions that were written at `from` to `to`, and are executed there, seen by this thread and the others.
void synchronize_code(std::uintptr_t from, std::uintptr_t to);

}  // namespace sve::runner
