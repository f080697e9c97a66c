// Moves of elements: selects, interleaves, reversals, splices, unpacks, inserts, extracts, broadcasts and the index
// generator. None sets flags.
#include "sve/veclib/define.h"
#include "sve/veclib/predicates.h"
#include "sve/veclib/toolkit.h"

using namespace sve;
using namespace sve::veclib;

namespace {

template <class T, class Vector>
T at(const Vector& v, std::size_t i) {
  return load<T>(v.bytes, i);
}

// The result whose element i is element(i).
template <class T, class Context, class Element>
auto generated(const Context* ctx, Element element) {
  return apart(ctx, [&](byte* r) {
    const std::size_t n = count<T>(ctx);
    for (std::size_t i = 0; i < n; ++i) store<T>(r, i, static_cast<T>(element(i)));
  });
}

// ---- Interleaves ----

// Elements of the halves that start at element `from`.
template <class T, class Source, class Context>
auto zip(const Source& a, const Source& b, const Context* ctx, bool high) {
  return apart(ctx, [&](byte* r) {
    const std::size_t n = count<T>(ctx), m = n / 2, from = high ? m : 0;
    for (std::size_t i = 0; i < m; ++i) {
      store<T>(r, 2 * i, at<T>(a, from + i));
      store<T>(r, 2 * i + 1, at<T>(b, from + i));
    }
    if (n % 2) store<T>(r, n - 1, high ? at<T>(a, from + m) : at<T>(a, m));
  });
}

// Output k is input 2k + odd of both operands one after the other.
template <class T, class Source, class Context>
auto unzip(const Source& a, const Source& b, const Context* ctx, std::size_t odd) {
  return apart(ctx, [&](byte* r) {
    const std::size_t n = count<T>(ctx);
    if (n % 2 == 0) {  // known in place, where these loops become the host's own
      for (std::size_t i = 0; i < n / 2; ++i) store<T>(r, i, at<T>(a, 2 * i + odd));
      for (std::size_t i = 0; i < n / 2; ++i) store<T>(r, n / 2 + i, at<T>(b, 2 * i + odd));
      return;
    }
    std::size_t k = 0;
    for (std::size_t i = odd; i < n; i += 2) store<T>(r, k++, at<T>(a, i));
    for (std::size_t i = (odd + n) % 2; k < n; i += 2) store<T>(r, k++, i < n ? at<T>(b, i) : T{0});
  });
}

template <class T, class Source, class Context>
auto transpose(const Source& a, const Source& b, const Context* ctx, std::size_t odd) {
  return apart(ctx, [&](byte* r) {
    const std::size_t n = count<T>(ctx);
    for (std::size_t i = 0; i + 1 < n; i += 2) {
      store<T>(r, i, at<T>(a, i + odd));
      store<T>(r, i + 1, at<T>(b, i + odd));
    }
    if (n % 2) store<T>(r, n - 1, odd ? T{0} : at<T>(a, n - 1));
  });
}

// In place pairs lie in one piece.
template <class T, class Source>
in_place::VectorV transpose(const Source& a, const Source& b, const in_place::CpuContext* ctx, std::size_t odd) {
  constexpr byte size = sizeof(T);
  const BytePiece place = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
  const BytePiece in_pair = (place & static_cast<byte>(~size)) + static_cast<byte>(odd * size);
  const BytePiece from = in_pair + (reinterpret_cast<BytePiece>((place & size) != 0) & byte{16});  // the odd ones, of b
  return element_wise(ctx, [&](byte* r) {
    for (std::size_t i = 0; i < vector_bytes; i += 16)
      store_piece(r + i, __builtin_shuffle(load_piece(a.bytes + i), load_piece(b.bytes + i), from));
  });
}

template <class T, class Source, class Context>
auto reversed(const Source& a, const Context* ctx) {
  const std::size_t n = count<T>(ctx);
  return generated<T>(ctx, [&](std::size_t i) { return at<T>(a, n - 1 - i); });
}

// The same on predicates: an element's whole group of bits moves, not only the one that governs it. The group of an
// element of T, of sizeof(T) bits, at index i.
template <class T>
std::uint64_t group(const PredV& p, std::size_t i) {
  const std::size_t first = i * sizeof(T);
  return p.words[first / 64] >> (first % 64) & ((1u << sizeof(T)) - 1);
}

template <class T, class Group>
PredV generated_predicate(const CpuContext* ctx, Group element) {
  PredV r{};
  const std::size_t n = count<T>(ctx);
  for (std::size_t i = 0; i < n; ++i) {
    const std::size_t first = i * sizeof(T);
    r.words[first / 64] |= static_cast<std::uint64_t>(element(i)) << (first % 64);
  }
  return r;
}

template <class T>
PredV zip(const PredV& a, const PredV& b, const CpuContext* ctx, bool high) {
  const std::size_t from = high ? count<T>(ctx) / 2 : 0;
  return generated_predicate<T>(ctx, [&](std::size_t i) { return group<T>(i % 2 ? b : a, from + i / 2); });
}

// The even groups of Width bits of a word, moved together at its low end.
template <unsigned Width>
std::uint64_t even_groups(std::uint64_t word) {
  word &= ~std::uint64_t{0} / ((std::uint64_t{1} << Width) + 1);  // Width ones, Width zeros, and so on
#pragma GCC unroll 8
  for (unsigned width = Width; width < 32; width *= 2)
    word = (word | word >> width) & ~std::uint64_t{0} / ((std::uint64_t{1} << 2 * width) + 1);
  return word;
}

// Group k is group 2k + odd of both operands one after the other.
template <class T>
PredV unzip(const PredV& a, const PredV& b, const CpuContext* ctx, std::size_t odd) {
  const auto same = [](std::uint64_t word) { return word; };
  const PredV first = combined(ctx, same, a), second = combined(ctx, same, b);
  const std::size_t length = length_bytes(ctx), whole = length / 64, rest = length % 64;
  std::uint64_t both[9] = {};
  for (std::size_t w = 0; w < 4; ++w) both[w] = first.words[w];
  for (std::size_t w = 0; w < 4; ++w) {
    both[whole + w] |= second.words[w] << rest;
    if (rest != 0) both[whole + w + 1] |= second.words[w] >> (64 - rest);
  }
  PredV r;
  for (std::size_t w = 0; w < 4; ++w)
    r.words[w] = even_groups<sizeof(T)>(both[2 * w] >> odd * sizeof(T)) |
                 even_groups<sizeof(T)>(both[2 * w + 1] >> odd * sizeof(T)) << 32;
  return r;
}

// The even or the odd groups of both, side by side: word by word, since no pair of groups straddles a word.
template <class T>
PredV transpose(const PredV& a, const PredV& b, const CpuContext* ctx, std::size_t odd) {
  constexpr unsigned width = sizeof(T);
  constexpr std::uint64_t even = element_starts(2 * width) * ((1u << width) - 1);
  return combined(
      ctx,
      [odd](std::uint64_t x, std::uint64_t y) {
        return odd ? (x >> width & even) | (y & ~even) : (x & even) | (y & even) << width;
      },
      a, b);
}

template <class T>
PredV reversed(const PredV& a, const CpuContext* ctx) {
  const std::size_t n = count<T>(ctx);
  return generated_predicate<T>(ctx, [&](std::size_t i) { return group<T>(a, n - 1 - i); });
}

// The flag of each byte of one half becomes the flag of a 16-bit element.
PredV unpacked(const PredV& a, const CpuContext* ctx, bool high) {
  const std::size_t from = high ? count<std::uint16_t>(ctx) : 0;
  return generated_predicate<std::uint16_t>(ctx, [&](std::size_t i) { return bit(a, from + i) ? 1u : 0u; });
}
in_place::VectorV unpacked(const in_place::PredV& a, const in_place::CpuContext* ctx, bool high) {
  const std::size_t from = high ? count<std::uint16_t>(ctx) : 0;
  return generated<std::uint16_t>(ctx, [&](std::size_t i) { return bit(a, from + i) ? 1u : 0u; });
}

// In place an element's group is its bytes, so that what moves vectors moves predicates: bit 0 of each byte is kept.
PredV as_predicate(const PredV& p) { return p; }
in_place::PredV as_predicate(const in_place::VectorV& moved) {
  for (std::size_t i = 0; i < register_pieces; ++i)
    store_piece(moved.bytes + 16 * i, load_piece(moved.bytes + 16 * i) & (BytePiece{} + byte{1}));
  return {moved.bytes};
}

// ---- Selects and rearrangements under a predicate ----

template <class T, class Predicate, class Vector, class Context>
auto selected(const Predicate& p, const Vector& a, const Vector& b, const Context* ctx) {
  return merging_unary<T>(b, p, a, ctx, [](T x) { return x; });
}

template <class T, class Predicate, class Vector, class Context>
auto zeroing_move(const Predicate& p, const Vector& a, const Context* ctx) {
  return zeroing<T>(
      p, ctx, [](T x) { return x; }, a);
}

template <class T, class Vector, class Context>
auto looked_up(const Vector& table, const Vector& indices, const Context* ctx) {
  const std::size_t n = count<T>(ctx);
  return generated<T>(ctx, [&](std::size_t i) {
    const T index = at<T>(indices, i);
    return index < n ? at<T>(table, index) : T{0};
  });
}

// From the first active element of a to its last, inactive ones between them included; then b from its start.
template <class T, class Predicate, class Vector, class Context>
auto spliced(const Predicate& p, const Vector& a, const Vector& b, const Context* ctx) {
  return apart(ctx, [&](byte* r) {
    const int first = lowest_of(ctx, both, p, FirstBits<T>{}), last = highest_of(ctx, both, p, FirstBits<T>{});
    const std::size_t taken = first < 0 ? 0 : static_cast<std::size_t>(last - first) + sizeof(T);
    if (taken != 0) std::memcpy(r, a.bytes + first, taken);
    std::memcpy(r + taken, b.bytes, length_bytes(ctx) - taken);
  });
}

template <class T, class Predicate, class Vector, class Context>
auto compressed(const Predicate& p, const Vector& a, const Context* ctx) {
  return apart(ctx, [&](byte* r) {
    const std::size_t n = count<T>(ctx);
    std::size_t k = 0;
    for (std::size_t e = 0; e < n; ++e) {
      store<T>(r, e, T{0});  // k never passes e
      if (active<T>(p, e)) store<T>(r, k++, at<T>(a, e));
    }
  });
}

template <class T, class Vector, class Context>
auto slid(const Vector& a, const Vector& b, std::uint64_t imm, const Context* ctx) {
  const std::size_t n = count<T>(ctx), start = n <= imm ? 0 : static_cast<std::size_t>(imm);
  return generated<T>(ctx,
                      [&](std::size_t i) { return start + i < n ? at<T>(a, start + i) : at<T>(b, start + i - n); });
}

// Elements of half the width from one half of the source, extended by the signedness of the wide type.
template <class T, class Vector, class Context>
auto widened(const Vector& a, const Context* ctx, bool high) {
  using Narrow = std::conditional_t<
      std::is_signed_v<T>,
      std::conditional_t<sizeof(T) == 2, std::int8_t, std::conditional_t<sizeof(T) == 4, std::int16_t, std::int32_t>>,
      std::conditional_t<sizeof(T) == 2, std::uint8_t,
                         std::conditional_t<sizeof(T) == 4, std::uint16_t, std::uint32_t>>>;
  const std::size_t from = high ? count<T>(ctx) : 0;
  return generated<T>(ctx, [&](std::size_t e) { return at<Narrow>(a, from + e); });
}

template <class T, class Vector, class Context>
auto inserted(const Vector& a, std::uint64_t scalar, const Context* ctx) {
  return apart(ctx, [&](byte* r) {
    const std::size_t length = length_bytes(ctx);
    if (length == 0) return;
    std::memcpy(r + sizeof(T), a.bytes, length - sizeof(T));
    store<T>(r, 0, static_cast<T>(scalar));
  });
}

// ---- Extracts: A is the element after the last active one, B the last active one ----

// Element 0 also when the last active element is the top one or none is active.
template <class T, class Predicate, class Vector, class Context>
std::uint64_t last_a(const Predicate& p, const Vector& a, const Context* ctx) {
  const std::size_t next = static_cast<std::size_t>(last_active<T>(p, ctx) + 1);
  return at<T>(a, next < count<T>(ctx) ? next : 0);
}

// The top element when none is active. At length 0 there is none either, and the answer means nothing.
template <class T, class Predicate, class Vector, class Context>
std::uint64_t last_b(const Predicate& p, const Vector& a, const Context* ctx) {
  const int last = last_active<T>(p, ctx);
  const std::size_t n = count<T>(ctx);
  return at<T>(a, last >= 0 ? static_cast<std::size_t>(last) : n == 0 ? 0 : n - 1);
}

template <class T, class Predicate, class Context>
bool any_active(const Predicate& p, const Context* ctx) {
  return last_active<T>(p, ctx) >= 0;
}

template <class T, class Context>
[[gnu::always_inline]] inline auto broadcast(std::uint64_t value, const Context* ctx) {
  return mapped<T>(ctx, [value] { return static_cast<T>(value); });
}

template <class T, class Vector, class Predicate, class Context>
auto merged_scalar(const Vector& old, const Predicate& p, std::uint64_t value, const Context* ctx) {
  return merging_unary<T>(old, p, old, ctx, [value](T) { return static_cast<T>(value); });
}

template <class T, class Predicate, class Context>
auto zeroed_scalar(const Predicate& p, std::uint64_t value, const Context* ctx) {
  return zeroing<T>(p, ctx, [value] { return static_cast<T>(value); });
}

template <class T, class Vector, class Context>
auto element_everywhere(const Vector& a, std::uint64_t index, const Context* ctx) {
  return broadcast<T>(index < count<T>(ctx) ? static_cast<std::uint64_t>(at<T>(a, index)) : 0, ctx);
}

// The sum wraps at 32 bits for elements of up to 32 bits, and at 64 for those of 64.
template <class T, class Context>
auto indexed(std::int64_t start, std::int64_t step, const Context* ctx) {
  using Wide = std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>;
  const Wide first = static_cast<Wide>(start), by = static_cast<Wide>(step);
  return generated<T>(ctx, [&](std::size_t e) { return first + static_cast<Wide>(e) * by; });
}

}  // namespace

#define SCALAR_TYPES UNSIGNED_TYPES, B8, H16, F32, D64
#define PREDICATE_TYPES P8, P16, P32, P64

SVE_DEFINE_VV(Zip1VV, zip<T>(a, b, ctx, false), UNSIGNED_TYPES)
SVE_DEFINE_VV(Zip2VV, zip<T>(a, b, ctx, true), UNSIGNED_TYPES)
SVE_DEFINE_VV(Uzp1VV, unzip<T>(a, b, ctx, 0), UNSIGNED_TYPES)
SVE_DEFINE_VV(Uzp2VV, unzip<T>(a, b, ctx, 1), UNSIGNED_TYPES)
SVE_DEFINE_VV(Trn1VV, transpose<T>(a, b, ctx, 0), UNSIGNED_TYPES)
SVE_DEFINE_VV(Trn2VV, transpose<T>(a, b, ctx, 1), UNSIGNED_TYPES)
SVE_DEFINE_V(ReverseV, reversed<T>(a, ctx), UNSIGNED_TYPES)
SVE_DEFINE_PPP(Zip1PP, as_predicate(zip<T>(p, q, ctx, false)), PREDICATE_TYPES)
SVE_DEFINE_PPP(Zip2PP, as_predicate(zip<T>(p, q, ctx, true)), PREDICATE_TYPES)
SVE_DEFINE_PPP(Uzp1PP, as_predicate(unzip<T>(p, q, ctx, 0)), PREDICATE_TYPES)
SVE_DEFINE_PPP(Uzp2PP, as_predicate(unzip<T>(p, q, ctx, 1)), PREDICATE_TYPES)
SVE_DEFINE_PPP(Trn1PP, as_predicate(transpose<T>(p, q, ctx, 0)), PREDICATE_TYPES)
SVE_DEFINE_PPP(Trn2PP, as_predicate(transpose<T>(p, q, ctx, 1)), PREDICATE_TYPES)
SVE_DEFINE_PP(ReverseP, as_predicate(reversed<T>(p, ctx)), PREDICATE_TYPES)
SVE_DEFINE_PP(UnpackLoP, as_predicate(unpacked(p, ctx, false)), P)
SVE_DEFINE_PP(UnpackHiP, as_predicate(unpacked(p, ctx, true)), P)

SVE_DEFINE_PVV(SelVV, selected<T>(p, a, b, ctx), UNSIGNED_TYPES)
SVE_DEFINE_PPPP(SelPP,
                combined(
                    ctx, [](auto g, auto x, auto y) { return (x & g) | (y & ~g); }, p, q, r),
                P)
SVE_DEFINE_VV(TblVV, looked_up<T>(a, b, ctx), UNSIGNED_TYPES)
SVE_DEFINE_PVV(SpliceVV, spliced<T>(p, a, b, ctx), UNSIGNED_TYPES)
SVE_DEFINE_PV(CompressVV, compressed<T>(p, a, ctx), U32, U64)
SVE_DEFINE_VVI(SlideVI, slid<T>(a, b, imm, ctx), U8)

SVE_DEFINE_V(UnpackLoV, widened<T>(a, ctx, false), U16, U32, U64, S16, S32, S64)
SVE_DEFINE_V(UnpackHiV, widened<T>(a, ctx, true), U16, U32, U64, S16, S32, S64)
SVE_DEFINE_V(SpecialMoveV,
             mapped<T>(
                 ctx, [](T x) { return x; }, a),
             U32)

SVE_DEFINE_VI(InsertS, inserted<T>(a, imm, ctx), SCALAR_TYPES)
SVE_DEFINE_PV_SCALAR(LastAV, last_a<T>(p, a, ctx), SCALAR_TYPES)
SVE_DEFINE_PV_SCALAR(LastBV, last_b<T>(p, a, ctx), SCALAR_TYPES)
// With no active element the fallback, at the element's width.
SVE_DEFINE_PSV_SCALAR(CondXASV, any_active<T>(p, ctx) ? last_a<T>(p, a, ctx) : static_cast<T>(scalar), SCALAR_TYPES)
SVE_DEFINE_PSV_SCALAR(CondXBSV, any_active<T>(p, ctx) ? last_b<T>(p, a, ctx) : static_cast<T>(scalar), SCALAR_TYPES)
// With no active element the old vector whole, otherwise the element of b everywhere.
SVE_DEFINE_PVV(VCondXAVV, any_active<T>(p, ctx) ? broadcast<T>(last_a<T>(p, b, ctx), ctx) : a, UNSIGNED_TYPES)
SVE_DEFINE_PVV(VCondXBVV, any_active<T>(p, ctx) ? broadcast<T>(last_b<T>(p, b, ctx), ctx) : a, UNSIGNED_TYPES)

SVE_DEFINE_VVM(MovePrefix1VM, merging_unary<T>(a, p, b, ctx, [](T x) { return x; }), UNSIGNED_TYPES)
SVE_DEFINE_PV(MovePrefix1VZ, zeroing_move<T>(p, a, ctx), UNSIGNED_TYPES)

SVE_DEFINE_I(DupS, broadcast<T>(imm, ctx), UNSIGNED_TYPES)
SVE_DEFINE_I(DupI, broadcast<T>(imm, ctx), FP_TYPES)
SVE_DEFINE_I_SIGNED(DupI, broadcast<T>(static_cast<std::uint64_t>(imm), ctx), SIGNED_TYPES)
SVE_DEFINE_I(DupMaskI, broadcast<T>(imm, ctx), S64)
SVE_DEFINE_VIM(DupSM, merged_scalar<T>(a, p, imm, ctx), SCALAR_TYPES)
SVE_DEFINE_VIM(DupIM, merged_scalar<T>(a, p, imm, ctx), FP_TYPES)
SVE_DEFINE_VIM_SIGNED(DupIM, merged_scalar<T>(a, p, static_cast<std::uint64_t>(imm), ctx), SIGNED_TYPES)
SVE_DEFINE_PI_SIGNED(DupIZ, zeroed_scalar<T>(p, static_cast<std::uint64_t>(imm), ctx), SIGNED_TYPES)
SVE_DEFINE_VI(ExtDupVI, element_everywhere<T>(a, imm, ctx), UNSIGNED_TYPES)
SVE_DEFINE_II_SIGNED(IndexII, indexed<T>(start, step, ctx), SIGNED_TYPES)
SVE_DEFINE_II_SIGNED(IndexIS, indexed<T>(start, step, ctx), SIGNED_TYPES)
SVE_DEFINE_II_SIGNED(IndexSI, indexed<T>(start, step, ctx), SIGNED_TYPES)
SVE_DEFINE_II_SIGNED(IndexSS, indexed<T>(start, step, ctx), SIGNED_TYPES)

// The count of 128-bit units reads the length word whole.
SVE_IN_BOTH(VectorV VecU128ExtDupVI(const VectorV& a, std::uint64_t imm, CpuContext* ctx) {
  const std::size_t units = length_word(ctx) >> 1;
  byte unit[16] = {};
  if (imm < units) std::memcpy(unit, a.bytes + imm * sizeof unit, sizeof unit);
  return element_wise(ctx, [&](byte* r) {
    for (std::size_t i = 0; i < units; ++i) std::memcpy(r + i * sizeof unit, unit, sizeof unit);
  });
})
