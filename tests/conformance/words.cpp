// The word generator and the reserved operand combinations.
#include "tests/conformance/words.h"

#include <algorithm>

namespace conformance {
namespace {

ReservedRule rules[] = {
    {"logical-immediate-without-width",
     "with N clear and imms all ones the element of a logical immediate has no width: no such instruction exists, and "
     "its "
     "expansion in the model does not return",
     [](const RowInfo& row, std::uint32_t word) {
       return is_logical_immediate(row) && (word >> 17 & 1) == 0 && (word >> 5 & 63) == 63;
     },
     0},
};

void overlap(const RowInfo& row, Role a, Role b, unsigned percent, RandomSource& random, std::uint32_t& word) {
  const Operand* found[8];
  unsigned count = 0;
  for (const Operand& o : row.operands) {
    const bool seen = std::any_of(found, found + count, [&](const Operand* f) { return f->low == o.low; });
    if ((o.kind == a || o.kind == b) && !seen && count < 8) found[count++] = &o;
  }
  if (count < 2 || !random.chance(percent)) return;
  const unsigned from = random.below(count), to = (from + 1 + random.below(count - 1)) % count;
  // The narrower field gives the number, so that both can hold it.
  const bool swap = found[from]->width > found[to]->width;
  const Operand& source = *found[swap ? to : from];
  const Operand& target = *found[swap ? from : to];
  word = target.with(word, source.number(word));
  if (count > 2 && random.chance(20))  // all of them
    for (unsigned i = 0; i < count; ++i)
      if (found[i]->width >= source.width) word = found[i]->with(word, source.number(word));
}

void extremes(const RowInfo& row, RandomSource& random, std::uint32_t& word) {
  for (const Operand& o : row.operands) {
    const bool general = o.kind == Role::x || o.kind == Role::x_or_sp;
    if (general && random.chance(8)) word = o.with(word, 31);
    if ((o.kind == Role::z || o.kind == Role::v) && random.chance(6)) word = o.with(word, 29 + random.below(3));
  }
  // All bits that are no register, set or clear: the ends of every immediate.
  if (random.chance(10)) {
    std::uint32_t registers = 0;
    for (const Operand& o : row.operands) registers |= o.with(0, 31);
    const std::uint32_t immediate = row.operand_bits() & ~registers;
    word = random.chance(50) ? word | immediate : word & ~immediate;
  }
}

}  // namespace

std::span<ReservedRule> reserved_rules() { return rules; }

std::uint32_t make_word(const RowInfo& row, RandomSource& random) {
  for (;;) {
    std::uint32_t word = row.fixed() | (static_cast<std::uint32_t>(random.next()) & row.operand_bits());
    extremes(row, random, word);
    overlap(row, Role::z, Role::v, 45, random, word);
    overlap(row, Role::p, Role::p, 45, random, word);
    overlap(row, Role::x, Role::x_or_sp, 30, random, word);
    // An 8-bit element has no shifted immediate; a few words have one all the same.
    if (has_shifted_immediate(row) && row.element_bits == 8 && random.chance(80)) word &= ~(1u << 13);
    if (is_logical_immediate(row) && random.chance(8)) word |= 63u << 5;  // reserved, with N and without
    const auto reserved = std::ranges::find_if(rules, [&](const ReservedRule& r) { return r.matches(row, word); });
    if (reserved == std::end(rules)) return word;
    ++reserved->fired;
  }
}

}  // namespace conformance
