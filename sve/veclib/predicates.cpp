// Predicate generation, logic, partition, tests, loop termination, and the first-fault register.
#include "sve/veclib/predicates.h"

#include <limits>

#include "sve/lanes/patterns.h"
#include "sve/veclib/define.h"

using namespace sve;
using namespace sve::veclib;

namespace {

constexpr std::uint32_t flag_n_bit = 0x80000000u, flag_z_bit = 0x40000000u, flag_c_bit = 0x20000000u,
                        flag_v_bit = 0x10000000u;

// Replaces the flags `which` by those that `value` has.
void write_flags(CpuContext* ctx, std::uint32_t which, std::uint32_t value) {
  ctx->nzcv = (ctx->nzcv & ~which) | value;
}

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

}  // namespace

namespace {

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
  // Unlike its sisters it leaves the old flags where no element is active; deliberate.
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

namespace {

using word = std::uint64_t;

// Sets the flags from a byte-sized test of the result under the mask, and hands the result on.
PredV flagged(const PredV& mask, const PredV& result, CpuContext* ctx) {
  PredSetNZCV(mask, result, 8, ctx);
  return result;
}

template <class Op>
PredV logic(const PredV& governing, const PredV& a, const PredV& b, const CpuContext* ctx, Op op) {
  return combined(
      ctx, [op](word g, word x, word y) { return g & op(x, y); }, governing, a, b);
}

constexpr auto and_ = [](word x, word y) { return x & y; };
constexpr auto bic = [](word x, word y) { return x & ~y; };
constexpr auto xor_ = [](word x, word y) { return x ^ y; };
constexpr auto or_ = [](word x, word y) { return x | y; };
constexpr auto orn = [](word x, word y) { return x | ~y; };
constexpr auto nand = [](word x, word y) { return ~(x & y); };
constexpr auto nor = [](word x, word y) { return ~(x | y); };

// All bits below position `end`.
PredV below(int end) {
  PredV r;
  for (std::size_t w = 0; w < 4; ++w) r.words[w] = end <= 0 ? 0 : bits_below(static_cast<std::size_t>(end), w);
  return r;
}

// Active bits up to the first active bit of q, that bit included or not.
PredV until_break(const PredV& governing, const PredV& q, const CpuContext* ctx, bool inclusive) {
  const int at = lowest_bit(logic(governing, q, q, ctx, and_));
  const int end = at < 0 ? 256 : inclusive ? at + 1 : at;
  return logic(governing, below(end), below(end), ctx, and_);
}

// Merging: bits where p is inactive keep `old`.
PredV merged(const PredV& old, const PredV& governing, const PredV& result, const CpuContext* ctx) {
  return combined(
      ctx, [](word o, word g, word r) { return (o & ~g) | (r & g); }, old, governing, result);
}

bool bit_at_last_active(const PredV& governing, const PredV& q, const CpuContext* ctx) {
  const int last = highest_bit(logic(governing, governing, governing, ctx, and_));
  return last >= 0 && bit(q, static_cast<std::size_t>(last));
}

PredV all_true(const CpuContext* ctx) { return below(static_cast<int>(length_bytes(ctx))); }

PredV break_next(const PredV& governing, const PredV& n, const PredV& dm, const CpuContext* ctx) {
  return bit_at_last_active(governing, n, ctx) ? logic(all_true(ctx), dm, dm, ctx, and_) : PredV{};
}

PredV break_previous(const PredV& governing, const PredV& n, const PredV& m, const CpuContext* ctx, bool inclusive) {
  return bit_at_last_active(governing, n, ctx) ? until_break(governing, m, ctx, inclusive) : PredV{};
}

// The source with the first active bit of the mask set in it.
PredV with_first_active(const PredV& mask, const PredV& source, const CpuContext* ctx) {
  PredV r = logic(all_true(ctx), source, source, ctx, and_);
  const int first = lowest_bit(logic(mask, mask, mask, ctx, and_));
  if (first >= 0) r.words[first / 64] |= word{1} << (first % 64);
  return r;
}

// The first element active in the mask after the last active one of the source.
template <class T>
PredV next_active(const PredV& mask, const PredV& source, CpuContext* ctx) {
  const int last = highest_bit(elements_of<T>(source, ctx));
  const PredV candidates = elements_of<T>(mask, ctx);
  PredV r{};
  const int next = lowest_bit(combined(
      ctx, [](word c, word done) { return c & ~done; }, candidates, below(last < 0 ? 0 : last + 1)));
  if (next >= 0) r.words[next / 64] = word{1} << (next % 64);
  PredSetNZCV(mask, r, 8 * sizeof(T), ctx);
  return r;
}

template <class T>
PredV pattern_true(std::uint64_t pattern, const CpuContext* ctx) {
  // POW2 of no elements is 1, and there is no element to set.
  const std::size_t n = count<T>(ctx),
                    selected = static_cast<std::size_t>(VecTrueILength(pattern, static_cast<int>(n)));
  return leading<T>(selected < n ? selected : n);
}

template <class T>
PredV pattern_true_flagged(std::uint64_t pattern, CpuContext* ctx) {
  const PredV r = pattern_true<T>(pattern, ctx);
  PredSetNZCV(r, r, 8 * sizeof(T), ctx);  // its own mask
  return r;
}

// How many i below n have first + i < limit, or <= limit, without wrap-around.
template <class Scalar>
std::size_t true_elements(Scalar first, Scalar limit, std::size_t n, bool or_equal) {
  if (or_equal) {
    if (limit == std::numeric_limits<Scalar>::max()) return n;  // never passed
    limit = static_cast<Scalar>(limit + 1);
  }
  if (first >= limit) return 0;
  const unsigned_of<Scalar> distance =
      static_cast<unsigned_of<Scalar>>(limit) - static_cast<unsigned_of<Scalar>>(first);
  return distance < n ? distance : n;
}

template <class T, class Scalar, class Operand>
PredV while_true(Operand first, Operand limit, CpuContext* ctx, bool or_equal) {
  const PredV r =
      leading<T>(true_elements(static_cast<Scalar>(first), static_cast<Scalar>(limit), count<T>(ctx), or_equal));
  PredSetNZCV(all_true(ctx), r, 8 * sizeof(T), ctx);
  return r;
}

// Writes N and V alone: a terminating comparison gives N set and V clear, else N is clear and V the inverse of C.
void terminate(bool condition, CpuContext* ctx) {
  const bool carry = (ctx->nzcv & flag_c_bit) != 0;
  write_flags(ctx, flag_n_bit | flag_v_bit, condition ? flag_n_bit : carry ? 0 : flag_v_bit);
}

template <class T>
std::uint64_t count_both(const PredV& p, const PredV& q, const CpuContext* ctx) {
  return active_count<T>(logic(p, q, q, ctx, and_), ctx);
}

}  // namespace

#define PREDICATE_LOGIC(Name, FlgName, op)          \
  SVE_DEFINE_PPPP(Name, logic(p, q, r, ctx, op), P) \
  SVE_DEFINE_PPPP(FlgName, flagged(p, logic(p, q, r, ctx, op), ctx), P)

PREDICATE_LOGIC(AndPPZ, AndFlgPPZ, and_)
PREDICATE_LOGIC(BicPPZ, BicFlgPPZ, bic)
PREDICATE_LOGIC(XorPPZ, XorFlgPPZ, xor_)
PREDICATE_LOGIC(OrPPZ, OrFlgPPZ, or_)
PREDICATE_LOGIC(OrNPPZ, OrNFlgPPZ, orn)
PREDICATE_LOGIC(NandPPZ, NandFlgPPZ, nand)
PREDICATE_LOGIC(NorPPZ, NorFlgPPZ, nor)

// p governs, q is Pn.
SVE_DEFINE_PPP(BreakAPZ, until_break(p, q, ctx, true), P)
SVE_DEFINE_PPP(BreakAFlgPZ, flagged(p, until_break(p, q, ctx, true), ctx), P)
SVE_DEFINE_PPP(BreakBPZ, until_break(p, q, ctx, false), P)
SVE_DEFINE_PPP(BreakBFlgPZ, flagged(p, until_break(p, q, ctx, false), ctx), P)
// Merging: p is the old destination, q governs, r is Pn.
SVE_DEFINE_PPPP(BreakAPM, merged(p, q, until_break(q, r, ctx, true), ctx), P)
SVE_DEFINE_PPPP(BreakBPM, merged(p, q, until_break(q, r, ctx, false), ctx), P)
// q is Pn, r the destination; the flags are taken with an all-true mask.
SVE_DEFINE_PPPP(BreakNextPZ, break_next(p, q, r, ctx), P)
SVE_DEFINE_PPPP(BreakNextFlgPZ, flagged(all_true(ctx), break_next(p, q, r, ctx), ctx), P)
SVE_DEFINE_PPPP(BreakPrevAPZ, break_previous(p, q, r, ctx, true), P)
SVE_DEFINE_PPPP(BreakPrevAFlgPZ, flagged(p, break_previous(p, q, r, ctx, true), ctx), P)
SVE_DEFINE_PPPP(BreakPrevBPZ, break_previous(p, q, r, ctx, false), P)
SVE_DEFINE_PPPP(BreakPrevBFlgPZ, flagged(p, break_previous(p, q, r, ctx, false), ctx), P)

SVE_DEFINE_P(False, PredV{}, P)
SVE_DEFINE_PPP(SetFirstActiveP, flagged(p, with_first_active(p, q, ctx), ctx), P)
SVE_DEFINE_PPP(GenNextP, next_active<T>(p, q, ctx), P8, P16, P32, P64)
SVE_DEFINE_PATTERN_P(TrueI, pattern_true<T>(pattern, ctx), P8, P16, P32, P64)
SVE_DEFINE_PATTERN_P(TrueFlgI, pattern_true_flagged<T>(pattern, ctx), P8, P16, P32, P64)

void VecPTestPZ(const PredV& p, const PredV& q, CpuContext* ctx) { PredSetNZCV(p, q, 8, ctx); }

SVE_DEFINE_WHILE(While4LTSS, (while_true<T, std::uint32_t>(first, limit, ctx, false)), U8, U16, U32, U64)
SVE_DEFINE_WHILE(While8LTSS, (while_true<T, std::uint64_t>(first, limit, ctx, false)), U8, U16, U32, U64)
SVE_DEFINE_WHILE(While4LESS, (while_true<T, std::uint32_t>(first, limit, ctx, true)), U8, U16, U32, U64)
SVE_DEFINE_WHILE(While8LESS, (while_true<T, std::uint64_t>(first, limit, ctx, true)), U8, U16, U32, U64)
SVE_DEFINE_WHILE_SIGNED(While4LTSS, (while_true<T, std::int32_t>(first, limit, ctx, false)), S8, S16, S32, S64)
SVE_DEFINE_WHILE_SIGNED(While8LTSS, (while_true<T, std::int64_t>(first, limit, ctx, false)), S8, S16, S32, S64)
SVE_DEFINE_WHILE_SIGNED(While4LESS, (while_true<T, std::int32_t>(first, limit, ctx, true)), S8, S16, S32, S64)
SVE_DEFINE_WHILE_SIGNED(While8LESS, (while_true<T, std::int64_t>(first, limit, ctx, true)), S8, S16, S32, S64)

void VecU32CTermEQ(std::uint64_t a, std::uint64_t b, CpuContext* ctx) {
  terminate(static_cast<std::uint32_t>(a) == static_cast<std::uint32_t>(b), ctx);
}
void VecU32CTermNE(std::uint64_t a, std::uint64_t b, CpuContext* ctx) {
  terminate(static_cast<std::uint32_t>(a) != static_cast<std::uint32_t>(b), ctx);
}
void VecU64CTermEQ(std::uint64_t a, std::uint64_t b, CpuContext* ctx) { terminate(a == b, ctx); }
void VecU64CTermNE(std::uint64_t a, std::uint64_t b, CpuContext* ctx) { terminate(a != b, ctx); }

SVE_DEFINE_COUNT_P(SCountP, count_both<T>(p, q, ctx), U8, U16, U32, U64)

// The first-fault register of the context. Its status being clear means that all of it is set.
SVE_DEFINE_PP(ActualP, logic(p, ctx->ffr, ctx->ffr, ctx, and_), P)
SVE_DEFINE_PP(ActualFlgP, flagged(p, logic(p, ctx->ffr, ctx->ffr, ctx, and_), ctx), P)
SVE_DEFINE_P(ReadFFSRP, logic(ctx->ffr, ctx->ffr, ctx->ffr, ctx, and_), P)
void VecPClearFFSR(CpuContext* ctx) { ctx->ffr = all_true(ctx); }
void VecPWriteFFSRP(const PredV& p, CpuContext* ctx) { ctx->ffr = logic(all_true(ctx), p, p, ctx, and_); }
