#include "tests/conformance/runs.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "sve/decode/unallocated.h"
#include "tests/conformance/delta.h"
#include "tests/conformance/model.h"
#include "tests/conformance/native.h"
#include "tests/conformance/states.h"
#include "tests/conformance/words.h"

namespace conformance {
namespace {

constexpr unsigned failures_shown = 5;
constexpr std::uint64_t flags = 0xf0000000, trap_enables = 0x9f00;

struct RunCase {
  std::uint32_t words[native_longest];
  unsigned length = 0, spare = 0;
  bool whole_bytes = false;  ///< a row that looks at more of a predicate byte than bit 0
  bool marshals = false;     ///< a row of the vector library, which keeps the low half of `nzcv` alone
  ModelStart start;
  const RowInfo* last = nullptr;

  std::span<const std::uint32_t> span() const { return {words, length}; }
};

/// These test a whole predicate byte, so that with stray bits their answer is not the processor's. Required.
bool looks_at_whole_bytes(const RowInfo& row) {
  constexpr std::string_view rows[] = {"nor", "brkn", "brkns", "brkpb", "brkpbs"};
  return std::ranges::count(rows, row.row->mnemonic()) != 0;
}

/// Rows whose answers are the processor's own, whatever stood in the registers before.
std::vector<const RowInfo*> eligible_rows(bool floating_point) {
  std::vector<const RowInfo*> rows;
  for (const RowInfo& row : all_rows())
    if (!row.memory.is_memory() && !row.unzips_predicates() && (!floating_point || row.floating_point()))
      rows.push_back(&row);
  return rows;
}

void make(std::uint64_t seed, unsigned number, RunCase& c) {
  static const std::vector<const RowInfo*> all = eligible_rows(false), floating = eligible_rows(true);
  RandomSource random(mix(mix(seed, hash_name("runs")), number));
  Machine& state = c.start.state;
  do {
    make_background(random, state);
    c.length = 2 + random.below(native_longest - 1);
    c.marshals = c.whole_bytes = false;
    const bool mostly_floating = random.chance(60);
    for (unsigned i = 0; i < c.length; ++i) {
      const std::span<const RowInfo* const> from = mostly_floating && random.chance(80) ? floating : all;
      c.last = random.pick(from);
      do c.words[i] = make_word(*c.last, random);
      while (sve::decode::is_unallocated(c.words[i]));
      c.whole_bytes |= c.last->row->model == sve::decode::Kind::direct && looks_at_whole_bytes(*c.last);
      c.marshals |= c.last->row->model == sve::decode::Kind::library;
      make_state(*c.last, c.words[i], number, false, random, state);
    }
    c.spare = native_spare_register(c.span());
  } while (c.spare == 0);
  c.start.nzcv_beside_flags = random.next() & ~flags;
  c.start.fpcr_beside_modes = static_cast<std::uint32_t>(random.next() & trap_enables);
  for (std::uint8_t& byte : c.start.stray_predicate_bits)
    byte = static_cast<std::uint8_t>(c.whole_bytes ? 0 : random.next() & 0xfe);
}

}  // namespace

unsigned compare_runs(unsigned count, std::uint64_t seed, long one) {
  const unsigned first = one < 0 ? 0 : static_cast<unsigned>(one), end = one < 0 ? count : first + 1;
  constexpr unsigned batch = native_places / 2;
  const auto c = std::make_unique<RunCase>();
  const auto expected = std::make_unique<Outcome>(), actual = std::make_unique<Outcome>();
  const auto named = std::make_unique<TestCase>();
  std::vector<unsigned> places;
  unsigned failures = 0;
  for (unsigned begin = first; begin < end; begin += batch) {
    const unsigned stop = std::min(end, begin + batch);
    places.clear();
    for (unsigned n = begin; n < stop; ++n) {
      make(seed, n, *c);
      places.push_back(native_place(c->span(), c->spare));
    }
    for (unsigned n = begin; n < stop; ++n) {
      make(seed, n, *c);
      expected->state = c->start.state;
      const NativeResult native = native_run(places[n - begin], c->spare, expected->state);
      ModelEnd end_of_model;
      const unsigned executed = run_sequence(c->start, c->span(), end_of_model);
      actual->state = end_of_model.state;
      named->row = c->last;
      std::string difference;
      const std::uint64_t beside = c->start.nzcv_beside_flags;
      if (native.undefined)
        difference = "the processor has no such instruction";
      else if (executed != c->length)
        difference = "the model executed " + std::to_string(executed) + " of them";
      else if ((end_of_model.nzcv & ~flags) != (c->marshals ? beside & 0xffffffff : beside))
        difference = "bits of nzcv beside the flags changed";
      else if (end_of_model.fpcr != (c->start.state.fpcr | c->start.fpcr_beside_modes))
        difference = "fpcr changed";
      else
        difference = first_difference(*named, *expected, *actual);
      if (difference.empty() || failures++ >= failures_shown) continue;
      std::printf("FAIL run %u\n", n);
      for (const std::uint32_t word : c->span()) std::printf("  asm 0x%08x\n", word);
      std::printf("  %s\n  repeat: scripts/conformance --seed %" PRIu64 " --run %u\n", difference.c_str(), seed, n);
    }
  }
  std::printf("%u runs of two to %u instructions, %u differ\n", end - first, native_longest, failures);
  return failures;
}

}  // namespace conformance
