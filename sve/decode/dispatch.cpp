// The 44 decode maps, their construction, and the two searches.
#include "sve/decode/dispatch.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <map>

#include "sve/decode/handlers.h"
#include "sve/decode/map_shapes.h"
#include "sve/stats/stats.h"
#include "sve/veclib/initialize.h"

namespace {

using sve::decode::row;

// The maps, filled once when the library is loaded and read-only from then on. The static initialisers of the library run
// by priority, so that the counts exist first, then the page size, then these maps, then the vector library's set-up.
using decode_map = std::map<int, decode_handler>;

decode_map build(const sve::decode::map& table) {
  decode_map rows;
  for (const row& r : table.rows) rows.emplace_hint(rows.end(), r.key, r.handle);
  return rows;
}

#define SVE_MAP(name, ...) \
  [[gnu::init_priority(1003)]] const decode_map decode_map__##name = build(sve::decode::map_##name);
#include "sve/decode/maps.inc"
#undef SVE_MAP

struct library_set_up {
  library_set_up() { SVEInitialize(); }
};
[[gnu::init_priority(1004), maybe_unused]] const library_set_up set_up;

struct searched {
  const decode_map* rows;
  int (*key)(std::uint32_t);
};

#define SVE_SEARCH(name) searched{&decode_map__##name, sve::decode::shape_##name::key},
constexpr searched is_sve_order[] = {
#include "sve/decode/is_sve_order.inc"
};
constexpr searched execute_order[] = {
#include "sve/decode/execute_order.inc"
};
#undef SVE_SEARCH

template <std::size_t N>
decode_handler search(const searched (&order)[N], std::uint32_t word) {
  for (const searched& map : order) {
    const int key = map.key(word);
    const auto node = map.rows->lower_bound(key);
    if (node != map.rows->end() && node->first == key) return node->second;
  }
  return nullptr;
}

#define SVE_SEARCH(name) &sve::decode::map_##name,
constexpr const sve::decode::map* tables_in_is_sve_order[] = {
#include "sve/decode/is_sve_order.inc"
};
constexpr const sve::decode::map* tables_in_execute_order[] = {
#include "sve/decode/execute_order.inc"
};
#undef SVE_SEARCH

}  // namespace

decode_handler is_sve(unsigned int word) { return search(is_sve_order, word); }

aarch64_decode_rc execute_sve_instruction(cpu_state* state) {
  std::uint32_t* const pc = state->pc;
  std::uint32_t word;
  std::memcpy(&word, pc, sizeof word);
  const decode_handler handle = search(execute_order, word);
  if (!handle) return AARCH64_DECODE_UNDECODED;
  const aarch64_decode_rc rc = handle(state, word);
  if (rc != AARCH64_DECODE_EXECUTED) return rc;
  update_sve_stats(pc, word);
  ++state->pc;
  return AARCH64_DECODE_EXECUTED;
}

namespace sve::decode {

std::span<const map* const> maps_in_is_sve_order() { return tables_in_is_sve_order; }
std::span<const map* const> maps_in_execute_order() { return tables_in_execute_order; }

decode_handler find_in_execute_order(std::uint32_t word) { return search(execute_order, word); }

const row* find_row(std::uint32_t word) {
  for (const map* m : maps_in_is_sve_order()) {
    const int key = m->key(word);
    for (const row& r : m->rows)
      if (r.key == key) return &r;
  }
  return nullptr;
}

}  // namespace sve::decode
