// The 44 decode maps, their construction, and the two searches.
#include "sve/decode/dispatch.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <map>

#include "sve/decode/handlers.h"
#include "sve/decode/map_shapes.h"
#include "sve/stats/stats.h"
#include "sve/veclib/initialize.h"

namespace {

using sve::decode::Row;

// The maps, filled once when the library is loaded and read-only from then on. The static initialisers of the library
// run by priority, so that the counts exist first, then the page size, then these maps, then the vector library's
// set-up.
using DecodeMap = std::map<int, DecodeHandler>;

DecodeMap build(const sve::decode::Map& table) {
  DecodeMap rows;
  for (const Row& r : table.rows) rows.emplace_hint(rows.end(), r.key, r.handle);
  return rows;
}

#define SVE_MAP(name, ...) \
  [[gnu::init_priority(1030)]] const DecodeMap decode_map__##name = build(sve::decode::map_##name);
#include "sve/decode/maps.inc"
#undef SVE_MAP

struct LibrarySetUp {
  LibrarySetUp() { SVEInitialize(); }
};
[[gnu::init_priority(1040), maybe_unused]] const LibrarySetUp set_up;

struct Searched {
  const DecodeMap* rows;
  int (*key)(std::uint32_t);
};

#define SVE_SEARCH(name) Searched{&decode_map__##name, sve::decode::shape_##name::key},
constexpr Searched is_sve_order[] = {
#include "sve/decode/is_sve_order.inc"
};
constexpr Searched execute_order[] = {
#include "sve/decode/execute_order.inc"
};
#undef SVE_SEARCH

template <std::size_t N>
DecodeHandler search(const Searched (&order)[N], std::uint32_t word) {
  for (const Searched& map : order) {
    const int key = map.key(word);
    const auto node = map.rows->lower_bound(key);
    if (node != map.rows->end() && node->first == key) return node->second;
  }
  return nullptr;
}

// Remembers the handlers of words seen lately, in front of the searches. The word is scattered one-to-one; its upper
// bits choose the entry, and an entry holds the lower ones beside the handler's address, so that one atomic word is the
// whole entry and threads need nothing else. A handler whose address does not fit is not remembered.
class WordCache {
 public:
  DecodeHandler find(std::uint32_t word) const {
    const std::uint32_t scattered = scatter(word);
    const std::uint64_t entry = entries_[scattered >> tag_bits].load(std::memory_order_relaxed);
    if (entry == 0 || (entry & tag_mask) != (scattered & tag_mask)) return nullptr;
    return reinterpret_cast<DecodeHandler>(entry >> tag_bits << alignment_bits);
  }
  void remember(std::uint32_t word, DecodeHandler handle) {
    const auto address = reinterpret_cast<std::uintptr_t>(handle);
    if (address % (1u << alignment_bits) != 0 || address >> (64 - tag_bits + alignment_bits) != 0) return;
    const std::uint32_t scattered = scatter(word);
    entries_[scattered >> tag_bits].store(address >> alignment_bits << tag_bits | (scattered & tag_mask),
                                          std::memory_order_relaxed);
  }

 private:
  static constexpr unsigned tag_bits = 20, alignment_bits = 4;
  static constexpr std::uint32_t tag_mask = (1u << tag_bits) - 1;
  static constexpr std::uint32_t scatter(std::uint32_t word) { return word * 0x9e3779b1u; }

  std::atomic<std::uint64_t> entries_[1u << (32 - tag_bits)] = {};
};
constinit WordCache seen;

template <std::size_t N>
DecodeHandler find(const Searched (&order)[N], std::uint32_t word) {
  if (const DecodeHandler handle = seen.find(word)) return handle;
  const DecodeHandler handle = search(order, word);
  if (handle) seen.remember(word, handle);
  return handle;
}

#define SVE_SEARCH(name) &sve::decode::map_##name,
constexpr const sve::decode::Map* tables_in_is_sve_order[] = {
#include "sve/decode/is_sve_order.inc"
};
constexpr const sve::decode::Map* tables_in_execute_order[] = {
#include "sve/decode/execute_order.inc"
};
#undef SVE_SEARCH

}  // namespace

DecodeHandler is_sve(unsigned int word) { return find(is_sve_order, word); }

aarch64_decode_rc execute_sve_instruction(cpu_state* state) {
  std::uint32_t word;
  std::memcpy(&word, state->pc, sizeof word);
  const DecodeHandler handle = find(execute_order, word);
  if (!handle) return AARCH64_DECODE_UNDECODED;
  return sve::decode::execute_with(handle, state, word);
}

namespace sve::decode {

aarch64_decode_rc execute_with(DecodeHandler handle, cpu_state* state, std::uint32_t word) {
  std::uint32_t* const pc = state->pc;
  const aarch64_decode_rc rc = handle(state, word);
  if (rc != AARCH64_DECODE_EXECUTED) return rc;
  update_sve_stats(pc, word);
  ++state->pc;
  return AARCH64_DECODE_EXECUTED;
}

std::span<const Map* const> maps_in_is_sve_order() { return tables_in_is_sve_order; }
std::span<const Map* const> maps_in_execute_order() { return tables_in_execute_order; }

DecodeHandler find_in_is_sve_order(std::uint32_t word) { return search(is_sve_order, word); }
DecodeHandler find_in_execute_order(std::uint32_t word) { return search(execute_order, word); }

const Row* find_row(std::uint32_t word) {
  for (const Map* m : maps_in_is_sve_order()) {
    const int key = m->key(word);
    const auto found = std::ranges::lower_bound(m->rows, key, {}, &Row::key);
    if (found != m->rows.end() && found->key == key) return &*found;
  }
  return nullptr;
}

}  // namespace sve::decode
