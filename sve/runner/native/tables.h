// The prefixes of predicates as bytes: elements of each size active, then as many that are not, so that those with a
// given number of active ones are the vector that ends so many elements behind the middle.
#pragma once

#include <cstdint>

#include "sve/state/vector_length.h"

namespace sve::runner {

struct PrefixTable {
  std::uint8_t bytes[4][2 * vector_bytes];
};

constexpr PrefixTable make_prefix_table() {
  PrefixTable table{};
  for (unsigned size = 0; size < 4; ++size)
    for (std::size_t i = 0; i < vector_bytes; i += std::size_t{1} << size) table.bytes[size][i] = 1;
  return table;
}
alignas(16) inline constexpr PrefixTable prefixes = make_prefix_table();

}  // namespace sve::runner
