// The operand vocabulary: each entry names a field of the word and what it becomes. `record(word)` gives the operand of
// an instruction function. For a library routine `type` is the operand's value and `load(value, state, word)` fetches
// it, and a result entry stores what the routine returned.
#pragma once

#include <cstdint>
#include <cstring>

#include "sve/decode/shapes.h"
#include "sve/insn/functions.h"
#include "sve/state/predicate_bits.h"
#include "sve/veclib/types.h"

namespace sve::decode {

using word_t = std::uint32_t;

// Short names for the table: element sizes and predicate qualifiers.
inline constexpr unsigned b = element_b, h = element_h, s = element_s, d = element_d, q = element_q;
inline constexpr unsigned merging = aarch64_p_reg::merging, zeroing = aarch64_p_reg::zeroing,
                          bare = aarch64_p_reg::bare;

constexpr unsigned element_bits(unsigned code) { return 8u << code; }

/// `width` bits of `value`, sign-extended.
constexpr std::int32_t sign_extend(std::uint32_t value, unsigned width) {
  return static_cast<std::int32_t>(value << (32 - width)) >> (32 - width);
}

/// A field that is several ranges of the word joined, the first-named highest.
template <class... Ranges>
struct joined {
  static constexpr unsigned width = (Ranges::width + ...);
  static constexpr std::uint32_t cut(word_t word) { return static_cast<std::uint32_t>(shape<Ranges...>::key(word)); }
};

// ---- Registers as operands of instruction functions ----

/// Z register with the element size E. The field is five bits from `Low`, or fewer in the indexed forms.
template <unsigned Low, unsigned E>
struct Z {
  static aarch64_z_reg record(word_t w) { return {bits<Low + 4, Low>::cut(w), E}; }
};
/// Destructive Z register in bits 4 to 0.
template <unsigned E>
struct Zdn {
  static aarch64_z_reg record(word_t w) { return {bits<4, 0>::cut(w), aarch64_z_reg::none, E, E}; }
};
/// Number of a vector register that receives a scalar.
struct Vd {
  static unsigned int record(word_t w) { return bits<4, 0>::cut(w); }
};
/// Predicate register in `Width` bits from `Low`, with a size code or a qualifier.
template <unsigned Low, unsigned Width, unsigned Qualifier>
struct P {
  static aarch64_p_reg record(word_t w) { return {bits<Low + Width - 1, Low>::cut(w), Qualifier}; }
};
template <unsigned E>
struct Pdn {
  static aarch64_p_reg record(word_t w) { return {bits<3, 0>::cut(w), aarch64_p_reg::none, E, E}; }
};
/// General register, 31 the zero register, read at width code E.
template <unsigned Low, unsigned E>
struct R {
  static aarch64_i_reg record(word_t w) { return {bits<Low + 4, Low>::cut(w), E}; }
};
/// General register that is read and written, in bits 4 to 0.
template <unsigned E>
struct Rdn {
  static aarch64_i_reg record(word_t w) { return {bits<4, 0>::cut(w), aarch64_i_reg::none, E, E}; }
};
/// General register, 31 the stack pointer.
template <unsigned Low, unsigned E = element_d>
struct Rsp {
  static aarch64_i_rsp_reg record(word_t w) { return {bits<Low + 4, Low>::cut(w), E}; }
};

// ---- Operands and results of library routines ----

/// Vector operand.
template <class Field>
struct vector_in {
  using type = VectorV;
  static void load(VectorV& v, const cpu_state* state, word_t w) {
    std::memcpy(v.bytes, state->z[Field::cut(w)], vector_bytes);
  }
};
/// Predicate operand.
template <class Field>
struct predicate_in {
  using type = PredV;
  static void load(PredV& p, const cpu_state* state, word_t w) { to_bits(p, state->p[Field::cut(w)]); }
  static void to_bits(PredV& p, const byte* bytes) {
    pack_register(bytes, p.words);
    p.words[2] = p.words[3] = 0;
  }
};
/// General register operand, 31 the zero register.
template <class Field>
struct register_in {
  using type = std::uint64_t;
  static void load(std::uint64_t& x, const cpu_state* state, word_t w) {
    x = read(state, aarch64_i_reg(Field::cut(w), element_d));
  }
};
template <class Field>
struct signed_register_in {
  using type = std::int64_t;
  static void load(std::int64_t& x, const cpu_state* state, word_t w) {
    x = static_cast<std::int64_t>(read(state, aarch64_i_reg(Field::cut(w), element_d)));
  }
};
/// Base register operand, 31 the stack pointer.
template <class Field>
struct base_in {
  using type = std::uint64_t;
  static void load(std::uint64_t& x, const cpu_state* state, word_t w) {
    x = read(state, aarch64_i_rsp_reg(Field::cut(w), element_d));
  }
};
/// The low element, of size code E, of a vector register, as a scalar.
template <class Field, unsigned E>
struct element_in {
  using type = std::uint64_t;
  static void load(std::uint64_t& x, const cpu_state* state, word_t w) {
    x = 0;
    std::memcpy(&x, state->z[Field::cut(w)], std::size_t{1} << E);
  }
};

struct to_z {
  static void store(cpu_state* state, word_t w, const VectorV& v) {
    std::memcpy(state->z[bits<4, 0>::cut(w)], v.bytes, vector_bytes);
  }
};
struct to_p {
  static void store(cpu_state* state, word_t w, const PredV& p) {
    unpack_register(p.words, state->p[bits<3, 0>::cut(w)]);
  }
};
/// A scalar into a general register; dropped for 31.
struct to_x {
  static void store(cpu_state* state, word_t w, std::uint64_t x) {
    write(state, aarch64_i_reg(bits<4, 0>::cut(w), element_d), x);
  }
};
/// A scalar into the low bytes of a vector register, whose other bytes are cleared.
struct to_v {
  static void store(cpu_state* state, word_t w, std::uint64_t x) {
    byte* z = state->z[bits<4, 0>::cut(w)];
    std::memset(z, 0, vector_bytes);
    std::memcpy(z, &x, sizeof x);
  }
};
struct nothing {};

// ---- Immediates, for both models: `cut` gives the value, `record` and `load` pass it on ----

template <class Immediate, class Record>
struct immediate {
  static Record record(word_t w) { return static_cast<Record>(Immediate::cut(w)); }
  using type = std::conditional_t<std::is_signed_v<Record>, std::int64_t, std::uint64_t>;
  static void load(type& value, const cpu_state*, word_t w) { value = static_cast<type>(Immediate::cut(w)); }
};

/// Unsigned and signed field.
template <unsigned High, unsigned Low = High>
struct U : immediate<U<High, Low>, unsigned int> {
  static constexpr std::uint32_t cut(word_t w) { return bits<High, Low>::cut(w); }
};
template <unsigned High, unsigned Low>
struct S : immediate<S<High, Low>, int> {
  static constexpr std::int32_t cut(word_t w) { return sign_extend(bits<High, Low>::cut(w), High - Low + 1); }
};
/// A field of several ranges, unsigned and signed.
template <class... Ranges>
struct Ujoined : immediate<Ujoined<Ranges...>, unsigned int> {
  static constexpr std::uint32_t cut(word_t w) { return joined<Ranges...>::cut(w); }
};
template <class... Ranges>
struct Sjoined : immediate<Sjoined<Ranges...>, int> {
  static constexpr std::int32_t cut(word_t w) {
    return sign_extend(joined<Ranges...>::cut(w), joined<Ranges...>::width);
  }
};
/// The multiplier of a counted instruction, one more than its field.
struct Multiplier : immediate<Multiplier, unsigned int> {
  static constexpr std::uint32_t cut(word_t w) { return bits<19, 16>::cut(w) + 1; }
};
/// Eight unsigned bits, shifted left by 8 if bit 13 is set. At 8 bits the architecture reserves the shift; nothing
/// rejects it, and the value is then 0.
template <unsigned E>
struct Shifted8 : immediate<Shifted8<E>, unsigned int> {
  static constexpr std::uint32_t cut(word_t w) {
    const std::uint32_t imm = bits<12, 5>::cut(w);
    return bits<13>::cut(w) == 0 ? imm : E == element_b ? 0 : imm << 8;
  }
};
/// Eight signed bits, shifted left by 8 if bit 13 is set.
struct SignedShifted8 : immediate<SignedShifted8, int> {
  static constexpr std::int32_t cut(word_t w) {
    const std::int32_t imm = sign_extend(bits<12, 5>::cut(w), 8);
    return bits<13>::cut(w) ? imm * 256 : imm;
  }
};

/// The fields of a shift amount, predicated and unpredicated; which bits hold it depends on the element size.
template <unsigned E, bool Predicated>
constexpr std::uint32_t shift_field(word_t w) {
  constexpr unsigned low = Predicated ? 5 : 16;
  if constexpr (E == element_d)
    return joined<bits<22>, bits<low + 4, low>>::cut(w);
  else
    return bits<low + 2 + E, low>::cut(w);
}
template <unsigned E, bool Predicated>
struct LeftShift : immediate<LeftShift<E, Predicated>, unsigned int> {
  static constexpr std::uint32_t cut(word_t w) { return shift_field<E, Predicated>(w); }
};
template <unsigned E, bool Predicated>
struct RightShift : immediate<RightShift<E, Predicated>, unsigned int> {
  static constexpr std::uint32_t cut(word_t w) { return element_bits(E) - shift_field<E, Predicated>(w); }
};

/// The index of `dup` (indexed): bits 23 to 22 above the bits of 20 to 16 that lie over the size marker.
template <unsigned E>
struct DupIndex : immediate<DupIndex<E>, unsigned int> {
  static constexpr std::uint32_t cut(word_t w) {
    if constexpr (E == element_q)
      return bits<23, 22>::cut(w);
    else
      return joined<bits<23, 22>, bits<20, 17 + E>>::cut(w);
  }
};

/// The expansion of a 13-bit logical immediate (N, immr, imms). Reserved encodings are not rejected: with N set and
/// imms all ones the element is empty and the mask is 0, and with N clear and imms all ones the width never reaches 64
/// and the expansion does not return.
std::uint64_t expand_logical_immediate(std::uint32_t field);

struct LogicalImmediate {
  static aarch64_sve_logical64_imm record(word_t w) { return {expand_logical_immediate(bits<17, 5>::cut(w))}; }
  using type = std::uint64_t;
  static void load(type& value, const cpu_state*, word_t w) { value = expand_logical_immediate(bits<17, 5>::cut(w)); }
};

/// An 8-bit floating-point constant at all three widths.
aarch64_sve_fp_dup_imm expand_fp_immediate(std::uint32_t imm8);

struct FpImmediate {
  static aarch64_sve_fp_dup_imm record(word_t w) { return expand_fp_immediate(bits<12, 5>::cut(w)); }
};
template <unsigned E>
struct FpImmediateBits {
  using type = std::uint64_t;
  static void load(type& value, const cpu_state*, word_t w) {
    const aarch64_sve_fp_dup_imm imm = expand_fp_immediate(bits<12, 5>::cut(w));
    value = E == element_h ? imm.half : E == element_s ? imm.single : imm.double_;
  }
};
/// The single bit of the floating-point arithmetic immediates.
struct FpArithmeticImmediate {
  static aarch64_sve_fp_arith_imm record(word_t w) { return {static_cast<std::uint8_t>(bits<5>::cut(w))}; }
  using type = std::uint64_t;
  static void load(type& value, const cpu_state*, word_t w) { value = bits<5>::cut(w); }
};

}  // namespace sve::decode
