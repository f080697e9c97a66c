#include "sve/decode/words.h"

#include <algorithm>
#include <iterator>

#include "sve/decode/rows.h"
#include "sve/decode/unallocated.h"

// The row files once more, of which only the keys stay.
#undef DIRECT
#undef DIRECT_FP
#undef LIBRARY
#undef PREFETCH
#undef SVE_ROWS
#define DIRECT(key, ...) key
#define DIRECT_FP(key, ...) key
#define LIBRARY(key, ...) key
#define PREFETCH(key, ...) key
#define SVE_ROWS(name, ...)                  \
  namespace {                                \
  constexpr int keys_##name[] = __VA_ARGS__; \
  }
#include "sve/decode/table_31_13.cpp"        // NOLINT(bugprone-suspicious-include)
#include "sve/decode/table_31_20.cpp"        // NOLINT(bugprone-suspicious-include)
#include "sve/decode/table_31_21.cpp"        // NOLINT(bugprone-suspicious-include)
#include "sve/decode/table_31_21_15_13.cpp"  // NOLINT(bugprone-suspicious-include)
#include "sve/decode/table_other.cpp"        // NOLINT(bugprone-suspicious-include)

namespace sve::decode {

bool is_modelled(std::uint32_t word) {
  if ((word >> 25 & 15) != 2) return false;  // of no row
  const auto has = [word](const auto& keys, int (*key)(std::uint32_t)) {
    return std::binary_search(std::begin(keys), std::end(keys), key(word));
  };
#define SVE_MAP(name, ...) \
  if (has(keys_##name, shape_##name::key)) return !is_unallocated(word);
#include "sve/decode/maps.inc"
#undef SVE_MAP
  return false;
}

}  // namespace sve::decode
