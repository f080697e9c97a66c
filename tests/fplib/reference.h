// A slow and exact reference for the floating-point library, by another method than the library's own.
//
// The exact result is never computed to a number of bits. It is held as something that can be compared with any
// candidate, in integers wide enough to be exact; a binary search over the bit patterns of the format, which order as
// their magnitudes do, finds its two neighbours, and one more comparison tells on which side of their middle it lies.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <initializer_list>
#include <optional>

#include "sve/fplib/fplib.h"

namespace reference {

using sve::Format;
using sve::Uint128;

template <class T>
struct Result {
  T value;
  int flags;
  bool operator==(const Result&) const = default;
};

/// A magnitude: m * 2^e, and a little more (less than 2^e) if `more` is set.
struct Magnitude {
  Uint128 m;
  int e;
  bool more = false;
};

inline int bit_length(Uint128 m) {
  const auto high = static_cast<std::uint64_t>(m >> 64);
  return high ? 64 + std::bit_width(high) : std::bit_width(static_cast<std::uint64_t>(m));
}

/// Below, equal to or above zero as `x` is to `candidate`, which is exact.
inline int compare(Magnitude x, Magnitude candidate) {
  if (x.m == 0 || candidate.m == 0) return (x.m != 0 || x.more) - (candidate.m != 0);
  const int x_length = bit_length(x.m), c_length = bit_length(candidate.m);
  if (x_length + x.e != c_length + candidate.e) return x_length + x.e < c_length + candidate.e ? -1 : 1;
  const Uint128 p = x.m << (128 - x_length), q = candidate.m << (128 - c_length);
  if (p != q) return p < q ? -1 : 1;
  return x.more;
}

/// An integer of 4480 bits as fixed point: bit 0 weighs 2^-2208, below half the square of the least denormal.
class Fixed {
 public:
  Fixed(Uint128 m, int e) {
    const int at = e + 2208;
    for (int i = 0; i < 3; ++i) {
      const int shift = 64 * i - at % 64;
      const Uint128 part = shift <= -128 || shift >= 128 ? 0 : shift < 0 ? m << -shift : m >> shift;
      words_[static_cast<std::size_t>(at / 64 + i)] = static_cast<std::uint64_t>(part);
    }
  }
  bool operator<(const Fixed& other) const {
    return std::lexicographical_compare(words_.rbegin(), words_.rend(), other.words_.rbegin(), other.words_.rend());
  }
  Fixed& operator+=(const Fixed& other) {
    Uint128 carry = 0;
    for (std::size_t i = 0; i < words_.size(); ++i) {
      carry += static_cast<Uint128>(words_[i]) + other.words_[i];
      words_[i] = static_cast<std::uint64_t>(carry);
      carry >>= 64;
    }
    return *this;
  }
  Fixed& operator-=(const Fixed& other) {
    std::uint64_t borrow = 0;
    for (std::size_t i = 0; i < words_.size(); ++i) {
      const Uint128 difference = static_cast<Uint128>(words_[i]) - other.words_[i] - borrow;
      words_[i] = static_cast<std::uint64_t>(difference);
      borrow = static_cast<std::uint64_t>(difference >> 64) & 1;
    }
    return *this;
  }
  /// The top 128 bits or fewer, and whether there is more below them.
  Magnitude magnitude() const {
    int top = static_cast<int>(words_.size()) - 1;
    while (top > 1 && words_[static_cast<std::size_t>(top)] == 0) --top;
    const auto word = [&](int i) { return i < 0 ? 0 : words_[static_cast<std::size_t>(i)]; };
    Magnitude x = {(static_cast<Uint128>(word(top)) << 64) | word(top - 1), 64 * (top - 1) - 2208};
    const int room = 128 - bit_length(x.m);
    if (room > 0 && room < 64) {
      x.m = (x.m << room) | (word(top - 2) >> (64 - room));
      x.e -= room;
      x.more = word(top - 2) << room != 0;
    } else {
      x.more = word(top - 2) != 0;
    }
    for (int i = 0; i < top - 2; ++i) x.more |= word(i) != 0;
    return x;
  }

 private:
  std::array<std::uint64_t, 70> words_{};
};

/// What a bit pattern without sign stands for, as long as its exponent field is taken for an ordinary one.
template <class T>
Magnitude magnitude_of_pattern(T pattern) {
  using F = Format<T>;
  const int field = static_cast<int>(pattern >> F::fraction_bits);
  const T fraction = pattern & F::fraction_mask;
  return {static_cast<T>(field ? fraction | F::hidden : fraction), (field ? field : 1) - F::bias - F::fraction_bits};
}

struct Controls {
  int rounding;
  bool fz, dn, ahp, fz16;
  explicit Controls(FPSCR fpscr)
      : rounding(static_cast<int>(fpscr >> 22 & 3)),
        fz(fpscr >> 24 & 1),
        dn(fpscr >> 25 & 1),
        ahp(fpscr >> 26 & 1),
        fz16(fpscr >> 19 & 1) {}
  template <class T>
  bool flushes() const {
    return sizeof(T) == 2 ? fz16 : fz;
  }
};

/// Rounds +-x, which is not zero. `flush` gives denormal results as zero; `alternative` is the half format without
/// infinities.
template <class T>
Result<T> round(bool negative, Magnitude x, int rounding, bool flush, bool alternative) {
  using F = Format<T>;
  const T sign = negative ? F::sign : 0;
  const bool tiny = compare(x, magnitude_of_pattern<T>(F::hidden)) < 0;
  if (flush && tiny) return {sign, sve::flag_ufc};

  // The greatest pattern at or below x. The first one past the largest finite value stands for the next power of two.
  const T past = alternative ? F::sign : F::infinity;
  T below = 0, above = past;
  while (above - below > 1) {
    const T middle = static_cast<T>(below + (above - below) / 2);
    (compare(x, magnitude_of_pattern(middle)) < 0 ? above : below) = middle;
  }
  const Magnitude low = magnitude_of_pattern(below);
  const Magnitude middle = {2 * low.m + 1, low.e - 1};
  const bool inexact = compare(x, low) != 0;
  const int side = compare(x, middle);
  const bool beyond = compare(x, magnitude_of_pattern(past)) >= 0;
  bool up = false;
  switch (rounding) {
    case FPRounding_TiesEven:
      up = side > 0 || (side == 0 && (below & 1));
      break;
    case FPRounding_PosInf:
      up = inexact && !negative;
      break;
    case FPRounding_NegInf:
      up = inexact && negative;
      break;
    default:
      break;
  }
  T rounded = static_cast<T>(below + up);
  if (rounding == FPRounding_Odd && inexact) rounded |= 1;
  if (beyond || rounded == past) {
    if (alternative) return {static_cast<T>(sign | F::magnitude_mask), sve::flag_ioc};
    return {static_cast<T>(sign | (up ? F::infinity : F::largest_normal)), sve::flag_ofc | sve::flag_ixc};
  }
  return {static_cast<T>(sign | rounded), (inexact ? sve::flag_ixc : 0) | (inexact && tiny ? sve::flag_ufc : 0)};
}

enum class Kind { zero, finite, infinite, quiet, signalling };

template <class T>
struct Operand {
  T bits;
  Kind kind;
  bool negative;
  Magnitude magnitude;
  bool nan() const { return kind == Kind::quiet || kind == Kind::signalling; }
  bool zero() const { return kind == Kind::zero; }
  bool infinite() const { return kind == Kind::infinite; }
};

/// One operation in progress: its controls and the flags so far.
template <class T>
struct Operation {
  using F = Format<T>;
  Controls controls;
  int flags = 0;

  explicit Operation(FPSCR fpscr) : controls(fpscr) {}

  Operand<T> operand(T bits) {
    const T pattern = bits & F::magnitude_mask;
    Operand<T> x = {bits, Kind::finite, (bits & F::sign) != 0, magnitude_of_pattern(pattern)};
    if (pattern > F::infinity) x.kind = pattern & F::quiet ? Kind::quiet : Kind::signalling;
    if (pattern == F::infinity) x.kind = Kind::infinite;
    if (pattern == 0) x.kind = Kind::zero;
    if (pattern != 0 && pattern < F::hidden && controls.flushes<T>()) {
      x.kind = Kind::zero;
      x.magnitude.m = 0;
      if (sizeof(T) > 2) flags |= sve::flag_idc;
    }
    return x;
  }
  Result<T> result(T value, int more = 0) const { return {value, flags | more}; }
  Result<T> invalid() const { return result(F::default_nan, sve::flag_ioc); }
  Result<T> signed_value(bool negative, T magnitude, int more = 0) const {
    return result(static_cast<T>(negative ? magnitude | F::sign : magnitude), more);
  }
  Result<T> rounded(bool negative, Magnitude x) const {
    const Result<T> r = round<T>(negative, x, controls.rounding, controls.flushes<T>(), false);
    return {r.value, r.flags | flags};
  }
  /// The NaN that a set of operands gives, if one of them is a NaN.
  std::optional<Result<T>> nan(std::initializer_list<Operand<T>> operands) const {
    for (const Kind kind : {Kind::signalling, Kind::quiet})
      for (const Operand<T>& x : operands) {
        if (x.kind != kind) continue;
        const int more = kind == Kind::signalling ? sve::flag_ioc : 0;
        return result(controls.dn ? F::default_nan : static_cast<T>(x.bits | F::quiet), more);
      }
    return std::nullopt;
  }
  /// (x + y * z) * 2^scale for finite operands. A zero sum of terms with one sign keeps it.
  Result<T> sum(Operand<T> x, Operand<T> y, Operand<T> z, int scale = 0) const {
    const bool product_negative = y.negative != z.negative;
    Fixed a(x.magnitude.m, x.magnitude.e);
    const Fixed b(y.magnitude.m * z.magnitude.m, y.magnitude.e + z.magnitude.e);
    bool negative = x.negative;
    if (x.negative == product_negative) {
      a += b;
    } else if (a < b) {
      Fixed c = b;
      c -= a;
      a = c;
      negative = product_negative;
    } else {
      a -= b;
    }
    Magnitude m = a.magnitude();
    if (m.m == 0) {
      const bool same = x.negative == product_negative;
      return signed_value(same ? x.negative : controls.rounding == FPRounding_NegInf, 0);
    }
    m.e += scale;
    return rounded(negative, m);
  }
};

template <class T>
Result<T> add(T a, T b, FPSCR fpscr, bool subtract = false) {
  using F = Format<T>;
  Operation<T> op(fpscr);
  const auto x = op.operand(a);
  auto y = op.operand(b);
  if (const auto nan = op.nan({x, y})) return *nan;
  y.negative ^= subtract;
  if (x.infinite() && y.infinite() && x.negative != y.negative) return op.invalid();
  if (x.infinite()) return op.signed_value(x.negative, F::infinity);
  if (y.infinite()) return op.signed_value(y.negative, F::infinity);
  const Operand<T> one = {0, Kind::finite, false, {1, 0}};
  return op.sum(x, y, one);
}

template <class T>
Result<T> sub(T a, T b, FPSCR fpscr) {
  return add(a, b, fpscr, true);
}

template <class T>
Result<T> mul(T a, T b, FPSCR fpscr, bool extended = false) {
  using F = Format<T>;
  Operation<T> op(fpscr);
  const auto x = op.operand(a), y = op.operand(b);
  const bool negative = x.negative != y.negative;
  if (const auto nan = op.nan({x, y})) return *nan;
  if ((x.infinite() && y.zero()) || (x.zero() && y.infinite())) {
    constexpr T two = static_cast<T>(T{F::bias + 1} << F::fraction_bits);
    return extended ? op.signed_value(negative, two) : op.invalid();
  }
  if (x.infinite() || y.infinite()) return op.signed_value(negative, F::infinity);
  if (x.zero() || y.zero()) return op.signed_value(negative, 0);
  return op.rounded(negative, {x.magnitude.m * y.magnitude.m, x.magnitude.e + y.magnitude.e});
}

template <class T>
Result<T> mulx(T a, T b, FPSCR fpscr) {
  return mul(a, b, fpscr, true);
}

/// A quotient, made exact for comparisons by long division to 64 bits and the remainder.
inline Magnitude quotient(Magnitude a, Magnitude b) {
  const int lift = 127 - bit_length(a.m);
  const Uint128 dividend = a.m << lift;
  return {dividend / b.m, a.e - lift - b.e, dividend % b.m != 0};
}

template <class T>
Result<T> div(T a, T b, FPSCR fpscr) {
  using F = Format<T>;
  Operation<T> op(fpscr);
  const auto x = op.operand(a), y = op.operand(b);
  const bool negative = x.negative != y.negative;
  if (const auto nan = op.nan({x, y})) return *nan;
  if ((x.infinite() && y.infinite()) || (x.zero() && y.zero())) return op.invalid();
  if (x.infinite()) return op.signed_value(negative, F::infinity);
  if (y.zero()) return op.signed_value(negative, F::infinity, sve::flag_dzc);
  if (x.zero() || y.infinite()) return op.signed_value(negative, 0);
  return op.rounded(negative, quotient(x.magnitude, y.magnitude));
}

/// A square root bit by bit, to 61 bits or more, and whether there is a remainder.
inline Magnitude square_root(Magnitude a) {
  int lift = 126 - bit_length(a.m);
  if ((a.e - lift) % 2 != 0) --lift;
  const Uint128 square = a.m << lift;
  Uint128 root = 0;
  for (int bit = 63; bit >= 0; --bit) {
    const Uint128 tried = root | static_cast<Uint128>(1) << bit;
    if (tried * tried <= square) root = tried;
  }
  return {root, (a.e - lift) / 2, root * root != square};
}

template <class T>
Result<T> sqrt(T a, FPSCR fpscr) {
  Operation<T> op(fpscr);
  const auto x = op.operand(a);
  if (const auto nan = op.nan({x})) return *nan;
  if (x.zero()) return op.signed_value(x.negative, 0);
  if (x.negative) return op.invalid();
  if (x.infinite()) return op.result(a);
  return op.rounded(false, square_root(x.magnitude));
}

template <class T>
Result<T> muladd(T a, T b, T c, FPSCR fpscr, int scale = 0) {
  using F = Format<T>;
  Operation<T> op(fpscr);
  const auto x = op.operand(a), y = op.operand(b), z = op.operand(c);
  const bool negative = y.negative != z.negative;
  const bool invalid = (y.infinite() && z.zero()) || (y.zero() && z.infinite());
  if (x.kind == Kind::quiet && invalid) return op.invalid();
  if (const auto nan = op.nan({x, y, z})) return *nan;
  const bool product_infinite = y.infinite() || z.infinite();
  if (invalid || (x.infinite() && product_infinite && x.negative != negative)) return op.invalid();
  if (x.infinite()) return op.signed_value(x.negative, F::infinity);
  if (product_infinite) return op.signed_value(negative, F::infinity);
  return op.sum(x, y, z, scale);
}

/// The steps of Newton's method: limit - a * b, halved if `halve`.
template <class T>
Result<T> newton_step(T a, T b, FPSCR fpscr, bool halve) {
  using F = Format<T>;
  Operation<T> op(fpscr);
  const auto x = op.operand(static_cast<T>(a ^ F::sign)), y = op.operand(b);
  constexpr T two = static_cast<T>(T{F::bias + 1} << F::fraction_bits);
  constexpr T three = two | F::quiet;
  constexpr T one_and_a_half = static_cast<T>(three - F::hidden);
  if (const auto nan = op.nan({x, y})) return *nan;
  if ((x.infinite() && y.zero()) || (x.zero() && y.infinite())) return op.result(halve ? one_and_a_half : two);
  if (x.infinite() || y.infinite()) return op.signed_value(x.negative != y.negative, F::infinity);
  return op.sum(op.operand(halve ? three : two), x, y, halve ? -1 : 0);
}

template <class T>
Result<T> recps(T a, T b, FPSCR fpscr) {
  return newton_step(a, b, fpscr, false);
}
template <class T>
Result<T> rsqrts(T a, T b, FPSCR fpscr) {
  return newton_step(a, b, fpscr, true);
}

/// -1, 0 or 1 as a stands to b, or 2 if they are unordered.
template <class T>
int relation(Operand<T> x, Operand<T> y) {
  if (x.nan() || y.nan()) return 2;
  const auto rank = [](Operand<T> v) { return v.zero() ? 0 : v.negative ? -1 : 1; };
  if (rank(x) != rank(y)) return rank(x) < rank(y) ? -1 : 1;
  if (rank(x) == 0) return 0;
  return rank(x) * compare(x.magnitude, y.magnitude);
}

/// The relation, and the flags of a compare; `signals` makes quiet NaNs raise IOC too.
template <class T>
Result<int> compare_values(T a, T b, FPSCR fpscr, bool signals) {
  Operation<T> op(fpscr);
  const auto x = op.operand(a), y = op.operand(b);
  const bool raise = x.kind == Kind::signalling || y.kind == Kind::signalling || (signals && (x.nan() || y.nan()));
  return {relation(x, y), op.flags | (raise ? sve::flag_ioc : 0)};
}

template <class T>
Result<T> extreme(T a, T b, FPSCR fpscr, bool maximum, bool number) {
  using F = Format<T>;
  Operation<T> op(fpscr);
  auto x = op.operand(a), y = op.operand(b);
  if (number) {
    // A quiet NaN against a number is as if it were not there, so the other operand comes back.
    if (x.kind == Kind::quiet && !y.nan()) x = y;
    if (y.kind == Kind::quiet && !x.nan()) y = x;
  }
  if (const auto nan = op.nan({x, y})) return *nan;
  const auto value = [](Operand<T> v) { return v.zero() ? static_cast<T>(v.bits & F::sign) : v.bits; };
  const int order = relation(x, y);
  // Of two zeros the positive one is the greater.
  const bool first = order != 0 ? (order > 0) == maximum : x.negative != maximum;
  return op.result(value(first ? x : y));
}

/// The greatest integer at or below a magnitude below 2^64, what is left (0, below half, half, above), and the choice
/// of a rounding between that integer and the next.
struct Integer {
  Uint128 below;
  int rest;
  Uint128 rounded(bool negative, int rounding) const {
    switch (rounding) {
      case FPRounding_TiesEven:
        return below + (rest == 3 || (rest == 2 && (below & 1)));
      case FPRounding_PosInf:
        return below + (rest && !negative);
      case FPRounding_NegInf:
        return below + (rest && negative);
      case FPRounding_TiesAway:
        return below + (rest >= 2);
      default:
        return below;
    }
  }
};

inline Integer integer_part(Magnitude x) {
  Uint128 below = 0;
  for (int bit = 63; bit >= 0; --bit) {
    const Uint128 tried = below | static_cast<Uint128>(1) << bit;
    if (compare(x, {tried, 0}) >= 0) below = tried;
  }
  return {below, compare(x, {below, 0}) == 0 ? 0 : 2 + compare(x, {2 * below + 1, -1})};
}

template <class T>
Result<T> round_int(T a, int rounding, bool exact, FPSCR fpscr) {
  using F = Format<T>;
  Operation<T> op(fpscr);
  const auto x = op.operand(a);
  if (const auto nan = op.nan({x})) return *nan;
  if (x.zero()) return op.signed_value(x.negative, 0);
  if (x.infinite() || compare(x.magnitude, {F::hidden, 0}) >= 0) return op.result(a);
  const Integer integer = integer_part(x.magnitude);
  const Uint128 n = integer.rounded(x.negative, rounding);
  const int more = exact && integer.rest ? sve::flag_ixc : 0;
  if (n == 0) return op.signed_value(x.negative, 0, more);
  return op.signed_value(x.negative, round<T>(false, {n, 0}, FPRounding_Zero, false, false).value, more);
}

template <class From, class To>
Result<To> convert(From a, int rounding, FPSCR fpscr) {
  using F = Format<From>;
  using G = Format<To>;
  const Controls controls(fpscr);
  const bool to_alternative = sizeof(To) == 2 && controls.ahp, from_alternative = sizeof(From) == 2 && controls.ahp;
  Operation<From> op(fpscr);
  auto x = op.operand(a);
  if (from_alternative && (x.nan() || x.infinite())) x.kind = Kind::finite;
  const To sign = x.negative ? G::sign : 0;
  if (x.nan()) {
    if (to_alternative) return {sign, sve::flag_ioc};
    constexpr int shift = G::fraction_bits - F::fraction_bits;
    const std::uint64_t payload = a & F::fraction_mask;
    const std::uint64_t moved = shift > 0 ? payload << (shift & 63) : payload >> (-shift & 63);
    return {controls.dn ? G::default_nan : static_cast<To>(sign | G::default_nan | moved),
            x.kind == Kind::signalling ? sve::flag_ioc : 0};
  }
  if (x.infinite()) {
    if (to_alternative) return {static_cast<To>(sign | G::magnitude_mask), sve::flag_ioc};
    return {static_cast<To>(sign | G::infinity), 0};
  }
  if (x.zero()) return {sign, op.flags};
  const bool flush = sizeof(To) == 4 && sizeof(From) == 8 && controls.fz;
  const Result<To> r = round<To>(x.negative, x.magnitude, rounding, flush, to_alternative);
  return {r.value, r.flags | op.flags};
}

template <class From, class To>
Result<To> to_fixed(From a, int fbits, bool u, int rounding, FPSCR fpscr) {
  constexpr int width = 8 * sizeof(To);
  Operation<From> op(fpscr);
  auto x = op.operand(a);
  if (x.nan()) return {0, sve::flag_ioc};
  const Uint128 one = 1;
  const Uint128 most = u ? x.negative ? 0 : (one << width) - 1 : (one << (width - 1)) - !x.negative;
  const Result<To> saturated = {static_cast<To>(x.negative ? -most : most), sve::flag_ioc};
  if (x.infinite()) return saturated;
  x.magnitude.e += fbits;
  if (compare(x.magnitude, {1, 64}) >= 0) return saturated;
  const Integer integer = integer_part(x.magnitude);
  const Uint128 n = integer.rounded(x.negative, rounding);
  if (n > most) return saturated;
  return {static_cast<To>(x.negative ? -n : n), op.flags | (integer.rest ? sve::flag_ixc : 0)};
}

template <class T>
Result<T> from_fixed(std::uint64_t a, int fbits, bool u, int rounding, FPSCR fpscr) {
  if (a == 0) return {0, 0};
  const bool negative = !u && a >> 63;
  const bool flush = sizeof(T) > 2 && Controls(fpscr).fz;
  return round<T>(negative, {negative ? -a : a, -fbits}, rounding, flush, false);
}

template <class T>
Result<T> scale(T a, long by, FPSCR fpscr) {
  Operation<T> op(fpscr);
  auto x = op.operand(a);
  if (const auto nan = op.nan({x})) return *nan;
  if (x.infinite()) return op.result(a);
  if (x.zero()) return op.signed_value(x.negative, 0);
  x.magnitude.e += static_cast<int>(std::clamp(by, -5000l, 5000l));
  return op.rounded(x.negative, x.magnitude);
}

/// The 8-bit estimate 256 to 511 of the published functions, for the fraction of a value in [1/2, 1): computed from the
/// middle of the interval that the value's leading bits leave open.
inline int estimate(double middle) { return static_cast<int>(256.0 / middle + 0.5); }

template <class T>
Result<T> recip_estimate(T a, FPSCR fpscr) {
  using F = Format<T>;
  Operation<T> op(fpscr);
  const auto x = op.operand(a);
  if (const auto nan = op.nan({x})) return *nan;
  if (x.infinite()) return op.signed_value(x.negative, 0);
  if (x.zero()) return op.signed_value(x.negative, F::infinity, sve::flag_dzc);
  // a = f * 2^k with f in [1/2, 1).
  const int length = bit_length(x.magnitude.m), k = length + x.magnitude.e;
  if (k <= -F::bias - 1) {
    const bool up = op.controls.rounding == FPRounding_TiesEven ||
                    op.controls.rounding == (x.negative ? FPRounding_NegInf : FPRounding_PosInf);
    return op.signed_value(x.negative, up ? F::infinity : F::largest_normal, sve::flag_ofc | sve::flag_ixc);
  }
  if (k >= F::bias && op.controls.template flushes<T>()) return op.signed_value(x.negative, 0, sve::flag_ufc);
  const auto leading = static_cast<unsigned>(x.magnitude.m << (128 - length) >> 119);  // 9 bits
  const auto e = static_cast<unsigned>(estimate((leading + 0.5) / 512));
  // 1 / a is about e/256 * 2^-k; denormals lose low bits.
  const Result<T> r = round<T>(x.negative, {e, -8 - k}, FPRounding_Zero, false, false);
  return op.result(r.value);
}

template <class T>
Result<T> rsqrt_estimate(T a, FPSCR fpscr) {
  using F = Format<T>;
  Operation<T> op(fpscr);
  const auto x = op.operand(a);
  if (const auto nan = op.nan({x})) return *nan;
  if (x.zero()) return op.signed_value(x.negative, F::infinity, sve::flag_dzc);
  if (x.negative) return op.invalid();
  if (x.infinite()) return op.result(0);
  // a = f * 4^k with f in [1/4, 1).
  const int length = bit_length(x.magnitude.m);
  int k = length + x.magnitude.e;
  const bool low = k % 2 != 0;
  if (low) ++k;
  k /= 2;
  const auto leading = static_cast<unsigned>(x.magnitude.m << (128 - length) >> 120);  // 8 bits
  const double middle = (leading + 0.5) / (low ? 512 : 256);
  const auto e = static_cast<unsigned>(256.0 / __builtin_sqrt(middle) + 0.5);
  return op.result(round<T>(false, {e, -8 - k}, FPRounding_Zero, false, false).value);
}

}  // namespace reference
