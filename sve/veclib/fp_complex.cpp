// Complex operations, an even element the real and the odd one above it the imaginary part, and the indexed forms,
// whose second source is one element, or one pair, of each 128-bit segment.
#include "sve/veclib/fp_loops.h"

using namespace sve;
using namespace sve::veclib;

namespace {

template <class T, class Vector>
T at(const Vector& v, std::size_t i) {
  return load<T>(v.bytes, i);
}

template <class T>
constexpr std::size_t lanes_of_segment = 16 / sizeof(T);

constexpr OnLanes fma([](auto a, auto b, auto c, auto& s) SVE_RETURNS(FPMulAdd(a, b, c, s)));
constexpr OnLanes fms([](auto a, auto b, auto c, auto& s) SVE_RETURNS(FPMulAdd(a, FPNeg(b), c, s)));
constexpr OnLanes product([](auto a, auto b, auto& s) SVE_RETURNS(FPMul(a, b, s)));
constexpr OnLanes sum([](auto a, auto b, auto& s) SVE_RETURNS(FPAdd(a, b, s)));

// Elements that have a partner.
template <class T, class Context>
std::size_t paired_count(const Context* ctx) {
  return count<T>(ctx) / 2 * 2;
}

// Adds the other operand's pair, turned by 90 degrees (rotation 0) or 270 (rotation 1). The halves of a pair are
// predicated each by its own element.
template <class T, class Vector, class Predicate, class Context>
auto complex_add(const Vector& a, const Predicate& p, const Vector& b, std::uint64_t rotation, Context* ctx) {
  const std::size_t n = paired_count<T>(ctx);
  const T real_sign = rotation == 0 ? Format<T>::sign : T{0}, imaginary_sign = real_sign ^ Format<T>::sign;
  VectorV turned;
  for (std::size_t e = 0; e < n; e += 2) {
    store<T>(turned.bytes, e, at<T>(b, e + 1) ^ real_sign);
    store<T>(turned.bytes, e + 1, at<T>(b, e) ^ imaginary_sign);
  }
  return fp_merged<T>(n, a, p, ctx, ctx->fpcr, sum, a, turned);
}

// Which parts of a pair a rotation multiplies, and which products it negates, for the real and the imaginary element.
struct RotatedProduct {
  bool odd_first, odd_second, negated;
};
constexpr RotatedProduct rotations[4][2] = {
    {{false, false, false}, {false, true, false}},
    {{true, true, true}, {true, false, false}},
    {{false, false, true}, {false, true, true}},
    {{true, true, false}, {true, false, true}},
};

// Fused multiply-add of pairs: the parts of n's pair, and of the pair of m whose first element `m_pair` names, that the
// rotation selects.
template <class T, class Vector, class Predicate, class MPair, class Context>
auto complex_multiply_add(const Vector& acc, const Predicate& p, const Vector& n, const Vector& m, MPair m_pair,
                          std::uint64_t rotation, Context* ctx) {
  const std::size_t elements = paired_count<T>(ctx);
  VectorV first, second;
  for (std::size_t pair = 0; pair < elements; pair += 2)
    for (std::size_t part = 0; part < 2; ++part) {
      const RotatedProduct& chosen = rotations[rotation & 3][part];
      const T factor = at<T>(m, m_pair(pair) + chosen.odd_second);
      store<T>(first.bytes, pair + part, at<T>(n, pair + chosen.odd_first));
      store<T>(second.bytes, pair + part, chosen.negated ? FPNeg(factor) : factor);
    }
  return fp_merged<T>(elements, acc, p, ctx, ctx->fpcr, fma, acc, first, second);
}

template <class T, class Vector, class Predicate, class Context>
auto complex_mla(const Vector& acc, const Predicate& p, const Vector& n, const Vector& m, std::uint64_t rotation,
                 Context* ctx) {
  return complex_multiply_add<T>(
      acc, p, n, m, [](std::size_t pair) { return pair; }, rotation, ctx);
}

template <class T, class Vector, class Context>
auto complex_mla_indexed(const Vector& n, const Vector& m, const Vector& acc, std::uint64_t rotation,
                         std::uint64_t index, Context* ctx) {
  return complex_multiply_add<T>(
      acc, Unpredicated{}, n, m,
      [index](std::size_t pair) { return pair / lanes_of_segment<T> * lanes_of_segment<T> + 2 * index; }, rotation,
      ctx);
}

template <class T, class Vector, class Context, class Op, class... Sources>
auto indexed(Context* ctx, const Vector& m, std::uint64_t index, Op op, const Sources&... src) {
  return fp_mapped<T>(ctx, op, src..., segments_filled<T>(m, index, ctx));
}

}  // namespace

SVE_DEFINE_VVM_ROTATED(FCADDVVM, complex_add<T>(a, p, b, rotation, ctx), FP_TYPES)
SVE_DEFINE_VVVM_ROTATED(FCMLAVVVM, complex_mla<T>(a, p, b, c, rotation, ctx), FP_TYPES)
SVE_DEFINE_VVVI_ROTATED(FCMLAVVVIX, complex_mla_indexed<T>(a, b, c, rotation, imm, ctx), F16, F32)
SVE_DEFINE_VVVI(FMAVVVIX, indexed<T>(ctx, c, imm, fma, a, b), FP_TYPES)
SVE_DEFINE_VVVI(FMSVVVIX, indexed<T>(ctx, c, imm, fms, a, b), FP_TYPES)
SVE_DEFINE_VVI(MulVVIX, indexed<T>(ctx, b, imm, product, a), FP_TYPES)
