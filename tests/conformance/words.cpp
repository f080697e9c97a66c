// The word generator and the reserved operand combinations.
#include "tests/conformance/words.h"

#include <algorithm>
#include <cstring>

namespace conformance {
namespace {

bool ends_with(const row_info& row, std::string_view tail) { return std::string_view(row.row->name).ends_with(tail); }

bool is_logical_immediate(const row_info& row) { return std::strcmp(row.map->name, "decode_map__31_18") == 0; }

reserved_rule rules[] = {
    {"reserved-8-bit-shift",
     "an 8-bit element has no immediate that is shifted left by 8: the processor has no such instruction",
     [](const row_info& row, std::uint32_t word) {
       const bool shifted = word >> 13 & 1;
       const bool has_shift =
           ends_with(row, "DupI") || ends_with(row, "DupIM") || ends_with(row, "DupIZ") ||
           (ends_with(row, "VIX") && (row.name_has("Add") || row.name_has("Sub")));
       return row.element_bits == 8 && has_shift && shifted;
     },
     0},
    {"reserved-logical-immediate",
     "a logical immediate of all ones, or of no width, is none; the expansion of one without width does not return",
     [](const row_info& row, std::uint32_t word) {
       if (!is_logical_immediate(row)) return false;
       const std::uint32_t n = word >> 17 & 1, imms = word >> 5 & 63;
       const std::uint32_t selector = n << 6 | (~imms & 63);
       if (selector < 2) return true;
       unsigned levels = 1;
       while (selector >> 1 >= levels) levels <<= 1;
       return (imms & (levels - 1)) == levels - 1;
     },
     0},
};

void overlap(const row_info& row, role a, role b, unsigned percent, random_source& random, std::uint32_t& word) {
  const operand* found[8];
  unsigned count = 0;
  for (const operand& o : row.operands) {
    const bool seen = std::any_of(found, found + count, [&](const operand* f) { return f->low == o.low; });
    if ((o.kind == a || o.kind == b) && !seen && count < 8) found[count++] = &o;
  }
  if (count < 2 || !random.chance(percent)) return;
  const unsigned from = random.below(count), to = (from + 1 + random.below(count - 1)) % count;
  // The narrower field gives the number, so that both can hold it.
  const bool swap = found[from]->width > found[to]->width;
  const operand& source = *found[swap ? to : from];
  const operand& target = *found[swap ? from : to];
  word = target.with(word, source.number(word));
  if (count > 2 && random.chance(20))  // all of them
    for (unsigned i = 0; i < count; ++i)
      if (found[i]->width >= source.width) word = found[i]->with(word, source.number(word));
}

void extremes(const row_info& row, random_source& random, std::uint32_t& word) {
  for (const operand& o : row.operands) {
    const bool general = o.kind == role::x || o.kind == role::x_or_sp;
    if (general && random.chance(8)) word = o.with(word, 31);
    if (o.kind == role::z && random.chance(6)) word = o.with(word, 29 + random.below(3));
  }
  // All bits that are no register, set or clear: the ends of every immediate.
  if (random.chance(10)) {
    std::uint32_t registers = 0;
    for (const operand& o : row.operands)
      if (o.kind != role::immediate) registers |= o.with(0, 31);
    const std::uint32_t immediate = row.operand_bits() & ~registers;
    word = random.chance(50) ? word | immediate : word & ~immediate;
  }
}

}  // namespace

std::span<reserved_rule> reserved_rules() { return rules; }

std::uint32_t make_word(const row_info& row, random_source& random) {
  for (;;) {
    std::uint32_t word = row.fixed() | (static_cast<std::uint32_t>(random.next()) & row.operand_bits());
    extremes(row, random, word);
    overlap(row, role::z, role::z, 45, random, word);
    overlap(row, role::p, role::p, 45, random, word);
    overlap(row, role::x, role::x_or_sp, 30, random, word);
    const auto reserved = std::ranges::find_if(rules, [&](const reserved_rule& r) { return r.matches(row, word); });
    if (reserved == std::end(rules)) return word;
    ++reserved->fired;
  }
}

}  // namespace conformance
