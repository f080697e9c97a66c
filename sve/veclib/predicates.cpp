// Predicate generation, logic, partition, tests, loop termination, and the first-fault register.
#include "sve/veclib/predicates.h"

#include <limits>

#include "sve/veclib/define.h"

using namespace sve;
using namespace sve::veclib;

namespace {

std::size_t element_bytes(int element_bits) { return static_cast<std::size_t>(element_bits) / 8; }

// The active elements of the mask, by their first bits.
PredV active_elements(const PredV& mask, int element_bits, const CpuContext* ctx) {
  const std::uint64_t starts = element_starts(element_bytes(element_bits));
  return combined(
      ctx, [starts](std::uint64_t word) { return word & starts; }, mask);
}

// Spreads each set first bit over its element's group.
PredV groups(const PredV& elements, int element_bits) {
  PredV r;
  const std::uint64_t group = (std::uint64_t{1} << element_bytes(element_bits)) - 1;
  for (int w = 0; w < 4; ++w) r.words[w] = scalar_word(elements.words[w]) * group;
  return r;
}

// N and C from the first and the last active element. `active` is not empty.
std::uint32_t n_and_c(const PredV& active, const PredV& result, int element_bits) {
  const std::size_t first = static_cast<std::size_t>(lowest_bit(active)),
                    last = static_cast<std::size_t>(highest_bit(active));
  const std::uint64_t group = (std::uint64_t{1} << element_bytes(element_bits)) - 1;
  return (bit(result, first) ? flag_n_bit : 0) |
         ((result.words[last / 64] >> (last % 64) & group) == 0 ? flag_c_bit : 0);
}

// Whether any active element has any bit of its group set in the result.
bool any_result(const PredV& active, const PredV& result, int element_bits) {
  const PredV covered = groups(active, element_bits);
  std::uint64_t any = 0;
  for (int w = 0; w < 4; ++w) any |= scalar_word(covered.words[w]) & scalar_word(result.words[w]);
  return any != 0;
}

// N, Z and C.
std::uint32_t n_z_and_c(const PredV& mask, const PredV& result, int element_bits, const CpuContext* ctx) {
  const PredV active = active_elements(mask, element_bits, ctx);
  return any_result(active, result, element_bits) ? n_and_c(active, result, element_bits) : flag_z_bit | flag_c_bit;
}

}  // namespace

void PredSetNZC(const PredV& mask, const PredV& result, int element_bits, CpuContext* ctx) {
  write_flags(ctx, flag_n_bit | flag_z_bit | flag_c_bit, n_z_and_c(mask, result, element_bits, ctx));
}

void PredSetNZCV(const PredV& mask, const PredV& result, int element_bits, CpuContext* ctx) {
  write_flags(ctx, flag_n_bit | flag_z_bit | flag_c_bit | flag_v_bit, n_z_and_c(mask, result, element_bits, ctx));
}

void PredSetNCV(const PredV& mask, const PredV& result, int element_bits, CpuContext* ctx) {
  write_flags(ctx, flag_n_bit | flag_c_bit | flag_v_bit, n_z_and_c(mask, result, element_bits, ctx) & ~flag_z_bit);
}

void PredSetNC(const PredV& mask, const PredV& result, int element_bits, CpuContext* ctx) {
  // Unlike its sisters it leaves the old flags where no element is active: deliberate, so that a caller can tell an
  // answer from none. No instruction's flags come from here.
  const PredV active = active_elements(mask, element_bits, ctx);
  if (lowest_bit(active) >= 0) write_flags(ctx, flag_n_bit | flag_c_bit, n_and_c(active, result, element_bits));
}

int FindFirstActive(const PredV& p, int element_bits, CpuContext* ctx) {
  const int at = lowest_bit(active_elements(p, element_bits, ctx));
  return at < 0 ? -1 : at / (element_bits / 8);
}

int FindLastActive(const PredV& p, int element_bits, CpuContext* ctx) {
  const int at = highest_bit(active_elements(p, element_bits, ctx));
  return at < 0 ? -1 : at / (element_bits / 8);
}

void sve::veclib::set_flags_of_some(const in_place::PredV& mask, const in_place::PredV& result, int element_bits,
                                    in_place::CpuContext* context) {
  CpuContext values{};
  values.vl_word = vector_granules;
  values.nzcv = context->nzcv;
  PredSetNZCV(packed(mask), packed(result), element_bits, &values);
  context->nzcv = values.nzcv;
}

namespace {

// Sets the flags from a byte-sized test of the result under the mask, and hands the result on.
template <class Predicate, class Context>
Predicate flagged(const Predicate& mask, const Predicate& result, Context* ctx) {
  PredSetNZCV(mask, result, 8, ctx);
  return result;
}
template <class Predicate, class Context>
Predicate flagged_of_all(const Predicate& result, Context* ctx) {
  set_flags_of_all(result, 8, ctx);
  return result;
}

template <class Predicate, class Context, class Op>
Predicate logic(const Predicate& governing, const Predicate& a, const Predicate& b, const Context* ctx, Op op) {
  return combined(
      ctx, [op](auto g, auto x, auto y) { return g & op(x, y); }, governing, a, b);
}

constexpr auto bic = [](auto x, auto y) { return x & ~y; };
constexpr auto xor_ = [](auto x, auto y) { return x ^ y; };
constexpr auto or_ = [](auto x, auto y) { return x | y; };
constexpr auto orn = [](auto x, auto y) { return x | ~y; };
constexpr auto nand = [](auto x, auto y) { return ~(x & y); };
constexpr auto nor = [](auto x, auto y) { return ~(x | y); };

// The bits before the first active bit of q, that bit included or not; all where there is none.
template <class Predicate, class Context>
LeadingBits before_break(const Predicate& governing, const Predicate& q, const Context* ctx, bool inclusive) {
  const int at = lowest_of(ctx, both, governing, q);
  return LeadingBits(at < 0 ? 256 : inclusive ? at + 1 : at);
}

// Active bits up to the break.
template <class Predicate, class Context>
Predicate until_break(const Predicate& governing, const Predicate& q, const Context* ctx, bool inclusive) {
  return combined(ctx, both, governing, before_break(governing, q, ctx, inclusive));
}

// Merging: bits where p is inactive keep `old`.
template <class Predicate, class Context>
Predicate merged_until_break(const Predicate& old, const Predicate& governing, const Predicate& q, const Context* ctx,
                             bool inclusive) {
  return combined(
      ctx, [](auto o, auto g, auto r) { return (o & ~g) | (r & g); }, old, governing,
      before_break(governing, q, ctx, inclusive));
}

template <class Predicate, class Context>
bool bit_at_last_active(const Predicate& governing, const Predicate& q, const Context* ctx) {
  if (known_to_be_all<byte>(governing)) return bit(q, length_bytes(ctx) - 1);
  const int last = highest_of(ctx, same, governing);
  return last >= 0 && bit(q, static_cast<std::size_t>(last));
}

template <class Predicate, class Context>
Predicate break_next(const Predicate& governing, const Predicate& n, const Predicate& dm, const Context* ctx) {
  return combined(ctx, both, dm, LeadingBits(bit_at_last_active(governing, n, ctx) ? 256 : 0));
}

template <class Predicate, class Context>
Predicate break_previous(const Predicate& governing, const Predicate& n, const Predicate& m, const Context* ctx,
                         bool inclusive) {
  return combined(ctx, both, governing,
                  bit_at_last_active(governing, n, ctx) ? before_break(governing, m, ctx, inclusive) : LeadingBits(0));
}

template <class Predicate, class Context>
Predicate flagged_break_previous(const Predicate& governing, const Predicate& n, const Predicate& m, Context* ctx,
                                 bool inclusive) {
  return flagged_under(
      governing, ctx, same,
      bit_at_last_active(governing, n, ctx) ? before_break(governing, m, ctx, inclusive) : LeadingBits(0));
}

// The source with the first active bit of the mask set in it. The mask may be the source, which that bit is in then.
template <class Predicate, class Context>
Predicate with_first_active(const Predicate& mask, const Predicate& source, const Context* ctx) {
  const int first = lowest_of(ctx, same, mask);
  Predicate r = combined(ctx, same, source);
  if (first >= 0) set_bit(r, static_cast<std::size_t>(first));
  return r;
}

template <class T>
NextElement next_element(const PredV& mask, const PredV& source, const CpuContext* ctx) {
  const int last = highest_of(ctx, both, source, FirstBits<T>{});
  const int next = lowest_of(
      ctx, [](auto m, auto starts, auto done) { return m & starts & ~done; }, mask, FirstBits<T>{},
      LeadingBits(last + 1));
  return {next, next >= 0 && lowest_of(ctx, both, mask, FirstBits<T>{}) == next,
          next >= 0 && highest_of(ctx, both, mask, FirstBits<T>{}) == next};
}
template <class T>
NextElement next_element(const in_place::PredV& mask, const in_place::PredV& source, const in_place::CpuContext*) {
  return sve::next_element<T>(mask.bytes, source.bytes);
}

// The first element active in the mask after the last active one of the source.
template <class T, class Predicate, class Context>
Predicate next_active(const Predicate& mask, const Predicate& source, Context* ctx) {
  const NextElement next = next_element<T>(mask, source, ctx);
  write_flags(ctx, flag_n_bit | flag_z_bit | flag_c_bit | flag_v_bit,
              (next.is_first ? flag_n_bit : 0) | (next.place < 0 ? flag_z_bit : 0) | (next.is_last ? 0 : flag_c_bit));
  Predicate r = combined(ctx, same, LeadingBits(0));
  if (next.place >= 0) set_bit(r, static_cast<std::size_t>(next.place));
  return r;
}

template <class T>
std::size_t selected(std::uint64_t pattern, const CpuContext* ctx) {
  // POW2 of no elements is 1, and there is no element to set.
  const std::size_t n = count<T>(ctx),
                    elements = static_cast<std::size_t>(VecTrueILength(pattern, static_cast<int>(n)));
  return elements < n ? elements : n;
}
template <class T>
std::size_t selected(std::uint64_t pattern, const in_place::CpuContext*) {
  return pattern_count<T>(pattern);
}

template <class T, class Context>
auto pattern_true(std::uint64_t pattern, const Context* ctx) {
  return leading<T>(selected<T>(pattern, ctx), ctx);
}

template <class T, class Context>
auto pattern_true_flagged(std::uint64_t pattern, Context* ctx) {
  const std::size_t n = selected<T>(pattern, ctx);
  set_flags_of_leading<T>(n, n, ctx);  // its own mask
  return leading<T>(n, ctx);
}

// How many i below n have first + i < limit, or <= limit, without wrap-around.
template <class Scalar>
std::size_t true_elements(Scalar first, Scalar limit, std::size_t n, bool or_equal) {
  if (or_equal) {
    if (limit == std::numeric_limits<Scalar>::max()) return n;  // never passed
    limit = static_cast<Scalar>(limit + 1);
  }
  if (first >= limit) return 0;
  const UnsignedOf<Scalar> distance = static_cast<UnsignedOf<Scalar>>(limit) - static_cast<UnsignedOf<Scalar>>(first);
  return distance < n ? distance : n;
}

template <class T, class Scalar, class Operand, class Context>
auto while_true(Operand first, Operand limit, Context* ctx, bool or_equal) {
  const std::size_t all = count<T>(ctx),
                    n = true_elements(static_cast<Scalar>(first), static_cast<Scalar>(limit), all, or_equal);
  set_flags_of_leading<T>(n, all, ctx);
  return leading<T>(n, ctx);
}

// Writes N and V alone: a terminating comparison gives N set and V clear, else N is clear and V the inverse of C.
template <class Context>
void terminate(bool condition, Context* ctx) {
  const bool carry = (ctx->nzcv & flag_c_bit) != 0;
  write_flags(ctx, flag_n_bit | flag_v_bit, condition ? flag_n_bit : carry ? 0 : flag_v_bit);
}

template <class T, class Predicate, class Context>
std::uint64_t count_both(const Predicate& p, const Predicate& q, const Context* ctx) {
  return population(
      ctx, [](auto x, auto y, auto starts) { return x & y & starts; }, p, q, FirstBits<T>{});
}

// The first-fault register takes a predicate.
void take(PredV& ffr, const PredV& p) { ffr = p; }
void take(in_place::PredV& ffr, const in_place::PredV& p) { std::memcpy(ffr.bytes, p.bytes, vector_bytes); }

}  // namespace

#define PREDICATE_LOGIC(Name, FlgName, op)          \
  SVE_DEFINE_PPPP(Name, logic(p, q, r, ctx, op), P) \
  SVE_DEFINE_PPPP(FlgName, flagged_under(p, ctx, op, q, r), P)

PREDICATE_LOGIC(AndPPZ, AndFlgPPZ, both)
PREDICATE_LOGIC(BicPPZ, BicFlgPPZ, bic)
PREDICATE_LOGIC(XorPPZ, XorFlgPPZ, xor_)
PREDICATE_LOGIC(OrPPZ, OrFlgPPZ, or_)
PREDICATE_LOGIC(OrNPPZ, OrNFlgPPZ, orn)
PREDICATE_LOGIC(NandPPZ, NandFlgPPZ, nand)
PREDICATE_LOGIC(NorPPZ, NorFlgPPZ, nor)

// p governs, q is Pn.
SVE_DEFINE_PPP(BreakAPZ, until_break(p, q, ctx, true), P)
SVE_DEFINE_PPP(BreakAFlgPZ, flagged_under(p, ctx, same, before_break(p, q, ctx, true)), P)
SVE_DEFINE_PPP(BreakBPZ, until_break(p, q, ctx, false), P)
SVE_DEFINE_PPP(BreakBFlgPZ, flagged_under(p, ctx, same, before_break(p, q, ctx, false)), P)
// Merging: p is the old destination, q governs, r is Pn.
SVE_DEFINE_PPPP(BreakAPM, merged_until_break(p, q, r, ctx, true), P)
SVE_DEFINE_PPPP(BreakBPM, merged_until_break(p, q, r, ctx, false), P)
// q is Pn, r the destination; the flags are taken with an all-true mask.
SVE_DEFINE_PPPP(BreakNextPZ, break_next(p, q, r, ctx), P)
SVE_DEFINE_PPPP(BreakNextFlgPZ, flagged_of_all(break_next(p, q, r, ctx), ctx), P)
SVE_DEFINE_PPPP(BreakPrevAPZ, break_previous(p, q, r, ctx, true), P)
SVE_DEFINE_PPPP(BreakPrevAFlgPZ, flagged_break_previous(p, q, r, ctx, true), P)
SVE_DEFINE_PPPP(BreakPrevBPZ, break_previous(p, q, r, ctx, false), P)
SVE_DEFINE_PPPP(BreakPrevBFlgPZ, flagged_break_previous(p, q, r, ctx, false), P)

SVE_DEFINE_P(False, combined(ctx, same, LeadingBits(0)), P)
SVE_DEFINE_PPP(SetFirstActiveP, flagged(p, with_first_active(p, q, ctx), ctx), P)
SVE_DEFINE_PPP(GenNextP, next_active<T>(p, q, ctx), P8, P16, P32, P64)
SVE_DEFINE_PATTERN_P(TrueI, pattern_true<T>(pattern, ctx), P8, P16, P32, P64)
SVE_DEFINE_PATTERN_P(TrueFlgI, pattern_true_flagged<T>(pattern, ctx), P8, P16, P32, P64)

SVE_DEFINE(void, (SVE_IN_P(p), SVE_IN_P(q), SVE_CTX), TestPZ, PredSetNZCV(p, q, 8, ctx), P)

SVE_DEFINE_WHILE(While4LTSS, (while_true<T, std::uint32_t>(first, limit, ctx, false)), UNSIGNED_TYPES)
SVE_DEFINE_WHILE(While8LTSS, (while_true<T, std::uint64_t>(first, limit, ctx, false)), UNSIGNED_TYPES)
SVE_DEFINE_WHILE(While4LESS, (while_true<T, std::uint32_t>(first, limit, ctx, true)), UNSIGNED_TYPES)
SVE_DEFINE_WHILE(While8LESS, (while_true<T, std::uint64_t>(first, limit, ctx, true)), UNSIGNED_TYPES)
SVE_DEFINE_WHILE_SIGNED(While4LTSS, (while_true<T, std::int32_t>(first, limit, ctx, false)), SIGNED_TYPES)
SVE_DEFINE_WHILE_SIGNED(While8LTSS, (while_true<T, std::int64_t>(first, limit, ctx, false)), SIGNED_TYPES)
SVE_DEFINE_WHILE_SIGNED(While4LESS, (while_true<T, std::int32_t>(first, limit, ctx, true)), SIGNED_TYPES)
SVE_DEFINE_WHILE_SIGNED(While8LESS, (while_true<T, std::int64_t>(first, limit, ctx, true)), SIGNED_TYPES)

// Both operands at the width of the element.
#define SVE_DEFINE_TERMINATE(...) SVE_DEFINE(void, (SVE_IN_U(x), SVE_IN_U(y), SVE_CTX), __VA_ARGS__)
SVE_DEFINE_TERMINATE(CTermEQ, terminate(static_cast<T>(x) == static_cast<T>(y), ctx), U32, U64)
SVE_DEFINE_TERMINATE(CTermNE, terminate(static_cast<T>(x) != static_cast<T>(y), ctx), U32, U64)

SVE_DEFINE_COUNT_P(SCountP, count_both<T>(p, q, ctx), UNSIGNED_TYPES)

// The first-fault register of the context. Its status being clear means that all of it is set.
SVE_DEFINE_PP(ActualP, combined(ctx, both, p, ctx->ffr), P)
SVE_DEFINE_PP(ActualFlgP, flagged_under(p, ctx, same, ctx->ffr), P)
SVE_DEFINE_P(ReadFFSRP, combined(ctx, same, ctx->ffr), P)
SVE_DEFINE(void, (SVE_CTX), ClearFFSR, take(ctx->ffr, combined(ctx, same, LeadingBits(256))), P)
SVE_DEFINE(void, (SVE_IN_P(p), SVE_CTX), WriteFFSRP, take(ctx->ffr, combined(ctx, same, p)), P)
