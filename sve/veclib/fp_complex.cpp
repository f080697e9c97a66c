// Complex operations, an even element the real and the odd one above it the imaginary part, and the indexed forms,
// whose second source is one element, or one pair, of each 128-bit segment.
#include "sve/veclib/fp_loops.h"

using namespace sve;
using namespace sve::veclib;

namespace {

template <class T>
T at(const VectorV& v, std::size_t i) {
  return load<T>(v.bytes, i);
}

template <class T>
constexpr std::size_t lanes_of_segment = 16 / sizeof(T);

// Adds the other operand's pair, turned by 90 degrees (rotation 0) or 270 (rotation 1). The halves of a pair are
// predicated each by its own element.
template <class T>
VectorV complex_add(const VectorV& a, const PredV& p, const VectorV& b, std::uint64_t rotation, CpuContext* ctx) {
  VectorV r;
  working_status status(ctx);
  const std::size_t n = count<T>(ctx) / 2 * 2;
  for (std::size_t e = 0; e < n; ++e) {
    const bool real = e % 2 == 0;
    const T other = at<T>(b, real ? e + 1 : e - 1);
    const T addend = real == (rotation == 0) ? FPNeg(other) : other;
    store<T>(r.bytes, e, active<T>(p, e) ? FPAdd(at<T>(a, e), addend, status()) : at<T>(a, e));
  }
  return r;
}

// Which parts of a pair a rotation multiplies, and which products it negates, for the real and the imaginary element.
struct rotated_product {
  bool odd_first, odd_second, negated;
};
constexpr rotated_product rotations[4][2] = {
    {{false, false, false}, {false, true, false}},
    {{true, true, true}, {true, false, false}},
    {{false, false, true}, {false, true, true}},
    {{true, true, false}, {true, false, true}},
};

// Fused multiply-add of one element of a pair: the parts of n, and of m's pair, that the rotation selects.
template <class T>
T complex_multiply_add(T accumulator, const VectorV& n, std::size_t n_pair, const VectorV& m, std::size_t m_pair,
                       std::uint64_t rotation, bool imaginary, FPSCR& status) {
  const rotated_product& product = rotations[rotation & 3][imaginary];
  const T first = at<T>(n, n_pair + product.odd_first), second = at<T>(m, m_pair + product.odd_second);
  return FPMulAdd(accumulator, first, product.negated ? FPNeg(second) : second, status);
}

template <class T>
VectorV complex_mla(const VectorV& acc, const PredV& p, const VectorV& n, const VectorV& m, std::uint64_t rotation,
                    CpuContext* ctx) {
  VectorV r;
  working_status status(ctx);
  const std::size_t elements = count<T>(ctx) / 2 * 2;
  for (std::size_t e = 0; e < elements; ++e) {
    const std::size_t pair = e / 2 * 2;
    store<T>(r.bytes, e,
             active<T>(p, e) ? complex_multiply_add(at<T>(acc, e), n, pair, m, pair, rotation, e % 2, status())
                             : at<T>(acc, e));
  }
  return r;
}

template <class T>
VectorV complex_mla_indexed(const VectorV& n, const VectorV& m, const VectorV& acc, std::uint64_t rotation,
                            std::uint64_t index, CpuContext* ctx) {
  VectorV r;
  working_status status(ctx);
  const std::size_t elements = count<T>(ctx) / 2 * 2;
  for (std::size_t e = 0; e < elements; ++e) {
    const std::size_t pair = e / 2 * 2, segment = e / lanes_of_segment<T> * lanes_of_segment<T>;
    store<T>(r.bytes, e,
             complex_multiply_add(at<T>(acc, e), n, pair, m, segment + 2 * index, rotation, e % 2, status()));
  }
  return r;
}

// The second source with each segment's element `index` in all of the segment's places.
template <class T>
VectorV segments_filled(const VectorV& m, std::uint64_t index, const CpuContext* ctx) {
  VectorV r;
  const std::size_t n = count<T>(ctx);
  for (std::size_t i = 0; i < n; ++i)
    store<T>(r.bytes, i, at<T>(m, i / lanes_of_segment<T> * lanes_of_segment<T> + index));
  return r;
}

template <class T, class Op, class... Sources>
VectorV indexed(CpuContext* ctx, const VectorV& m, std::uint64_t index, Op op, const Sources&... src) {
  return fp_mapped<T>(ctx, op, src..., segments_filled<T>(m, index, ctx));
}

constexpr auto fma = [](auto a, auto b, auto c, FPSCR& s) { return FPMulAdd(a, b, c, s); };
constexpr auto fms = [](auto a, auto b, auto c, FPSCR& s) { return FPMulAdd(a, FPNeg(b), c, s); };
constexpr auto product = [](auto a, auto b, FPSCR& s) { return FPMul(a, b, s); };

}  // namespace

#define FP_TYPES F16, F32, D64

SVE_DEFINE_VVM_ROTATED(FCADDVVM, complex_add<T>(a, p, b, rotation, ctx), FP_TYPES)
SVE_DEFINE_VVVM_ROTATED(FCMLAVVVM, complex_mla<T>(a, p, b, c, rotation, ctx), FP_TYPES)
SVE_DEFINE_VVVI_ROTATED(FCMLAVVVIX, complex_mla_indexed<T>(a, b, c, rotation, imm, ctx), F16, F32)
SVE_DEFINE_VVVI(FMAVVVIX, indexed<T>(ctx, c, imm, fma, a, b), FP_TYPES)
SVE_DEFINE_VVVI(FMSVVVIX, indexed<T>(ctx, c, imm, fms, a, b), FP_TYPES)
SVE_DEFINE_VVI(MulVVIX, indexed<T>(ctx, b, imm, product, a), FP_TYPES)
