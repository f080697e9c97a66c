// The code of a site.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sve/runner/sites/site.h"

namespace sve::runner {

inline constexpr std::size_t most_entry_words = 4096;

/// A site's code: first its site's address, as two words, then what the site branches to.
struct entry_code {
  const std::uint32_t* words;
  std::size_t size;
  std::size_t begin;  ///< of the code, in words
  std::size_t tail;   ///< of what follows the restoring of the program's registers, in words
};

/// Makes the code that will lie at `address`; false if that cannot be. The words stay until the next call. To be called
/// under a lock.
bool make_entry(const site& s, std::uint64_t address, entry_code& code);

/// A branch between two addresses, or 0 if they lie too far apart.
std::uint32_t branch_to(std::uint64_t from, std::uint64_t to);

}  // namespace sve::runner
