// The operand vocabulary. An entry names a field of the word and has two faces: `record(word)` is the operand of an
// instruction function; `load(value, state, word)` fetches it for a library routine, whose parameter it is as a `type`,
// and `store(state, word, result)` takes the routine's result. `about` describes it to readers at run time.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "sve/decode/description.h"
#include "sve/decode/shapes.h"
#include "sve/insn/functions.h"
#include "sve/lanes/predicate_bits.h"
#include "sve/veclib/in_place.h"

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
  static constexpr std::uint32_t cut(word_t word) { return static_cast<std::uint32_t>(Shape<Ranges...>::key(word)); }
};

// ---- Registers ----

/// What routines take and give by value: a vector, a predicate, a scalar of 64 bits. `place` is where a register lies,
/// `number` which one of its kind it is.
template <class Field>
struct vector_value {
  using type = VectorV;
  using register_type = in_place::VectorV;
  using field = Field;
  static unsigned number(word_t w) { return Field::cut(w); }
  static byte* place(cpu_state* state, word_t w) { return address_in(state->z, Field::cut(w)); }
  static void load(VectorV& v, const cpu_state* state, word_t w) {
    std::memcpy(v.bytes, state->z[Field::cut(w)], vector_bytes);
  }
  static void store(cpu_state* state, word_t w, const VectorV& v) {
    std::memcpy(state->z[Field::cut(w)], v.bytes, vector_bytes);
  }
};
template <class Field>
struct predicate_value {
  using type = PredV;
  using register_type = in_place::PredV;
  using field = Field;
  static unsigned number(word_t w) { return Field::cut(w); }
  static byte* place(cpu_state* state, word_t w) { return address_in(state->p, Field::cut(w)); }
  static void load(PredV& p, const cpu_state* state, word_t w) { to_bits(p, state->p[Field::cut(w)]); }
  static void to_bits(PredV& p, const byte* bytes) {
    pack_register(bytes, p.words);
    p.words[2] = p.words[3] = 0;
  }
  static void store(cpu_state* state, word_t w, const PredV& p) { unpack_register(p.words, state->p[Field::cut(w)]); }
};
/// The low element, of size code E, of a vector register; storing it clears the register's other bytes.
template <class Field, unsigned E>
struct element_value {
  using type = std::uint64_t;
  static void load(std::uint64_t& x, const cpu_state* state, word_t w) {
    x = 0;
    std::memcpy(&x, state->z[Field::cut(w)], std::size_t{1} << E);
  }
  static void store(cpu_state* state, word_t w, std::uint64_t x) {
    byte* z = state->z[Field::cut(w)];
    std::memset(z, 0, vector_bytes);
    std::memcpy(z, &x, std::size_t{1} << E);
  }
};
/// A general register through the operand record that reads and writes it.
template <class Field, class Record>
struct scalar_value {
  using type = std::uint64_t;
  static void load(std::uint64_t& x, const cpu_state* state, word_t w) {
    x = read(state, Record(Field::cut(w), element_d));
  }
  static void store(cpu_state* state, word_t w, std::uint64_t x) { write(state, Record(Field::cut(w), element_d), x); }
};

template <class Field>
constexpr Operand register_operand(OperandKind kind, OperandRole role, unsigned size) {
  Operand o{kind, role};
  o.size = static_cast<std::uint8_t>(size);
  o.low = Field::low;
  o.width = Field::width;
  return o;
}
constexpr Operand repeated(Operand o, Repetition where, unsigned size) {
  o.repeated = where;
  o.repeated_size = static_cast<std::uint8_t>(size);
  return o;
}
constexpr unsigned no_size = Operand::no_size;
using enum OperandRole;

/// Z register with the element size E.
template <class Field, unsigned E, OperandRole Role>
struct Z : vector_value<Field> {
  static constexpr Operand about = register_operand<Field>(OperandKind::z, Role, E);
  static aarch64_z_reg record(word_t w) { return {Field::cut(w), E}; }
};
/// Z register without an element size.
template <class Field, OperandRole Role>
struct Z_bare : Z<Field, aarch64_z_reg::none, Role> {
  static constexpr Operand about = register_operand<Field>(OperandKind::z, Role, no_size);
};
/// Z register in bits 4 to 0 that its record marks as destructive; written twice in the assembler's syntax or not.
template <unsigned E, OperandRole Role, Repetition Repeated>
struct Z_tied : vector_value<Bits<4, 0>> {
  static constexpr Operand about = repeated(register_operand<Bits<4, 0>>(OperandKind::z, Role, E), Repeated, E);
  static aarch64_z_reg record(word_t w) { return {Bits<4, 0>::cut(w), aarch64_z_reg::none, E, E}; }
};
/// A list of `Count` registers: what a load fills or a store empties, or the table of a lookup.
template <class Field, unsigned E, OperandRole Role, unsigned Count>
struct Z_list : Z<Field, E, Role> {
  static constexpr Operand about = [] {
    Operand o = register_operand<Field>(OperandKind::z, Role, E);
    o.registers = Count;
    return o;
  }();
};
/// Vector of offsets, extended from 32 bits or not and shifted.
template <unsigned E, Extension Extends, unsigned Shift>
struct Z_offset : Z<Bits<20, 16>, E, offset> {
  static constexpr Operand about = [] {
    Operand o = register_operand<Bits<20, 16>>(OperandKind::z, offset, E);
    o.extends = Extends;
    o.shift = Shift;
    return o;
  }();
};

/// Vector register that holds a scalar of size code E: receives it, does both, or gives it.
template <unsigned E>
struct Vd : element_value<Bits<4, 0>, E> {
  static constexpr Operand about = register_operand<Bits<4, 0>>(OperandKind::v, destination, E);
  static unsigned int record(word_t w) { return Bits<4, 0>::cut(w); }
};
template <unsigned E>
struct Vdn : Vd<E> {
  static constexpr Operand about = repeated(register_operand<Bits<4, 0>>(OperandKind::v, both, E), Repetition::next, E);
};
template <unsigned E>
struct Vn : element_value<Bits<9, 5>, E> {
  static constexpr Operand about = register_operand<Bits<9, 5>>(OperandKind::v, source, E);
  static aarch64_z_reg record(word_t w) { return {Bits<9, 5>::cut(w), E}; }
};

/// Predicate register with a size code or a qualifier.
template <class Field, unsigned Qualifier, OperandRole Role>
struct P : predicate_value<Field> {
  static constexpr Operand about = [] {
    Operand o = register_operand<Field>(OperandKind::p, Role, Qualifier <= element_d ? Qualifier : no_size);
    o.inactive = Qualifier == merging   ? Predication::merging
                 : Qualifier == zeroing ? Predication::zeroing
                                        : Predication::none;
    return o;
  }();
  static aarch64_p_reg record(word_t w) { return {Field::cut(w), Qualifier}; }
};
/// Destructive predicate register in bits 3 to 0.
template <unsigned E, Repetition Repeated>
struct Pdn : predicate_value<Bits<3, 0>> {
  static constexpr Operand about = repeated(register_operand<Bits<3, 0>>(OperandKind::p, both, E), Repeated, E);
  static aarch64_p_reg record(word_t w) { return {Bits<3, 0>::cut(w), aarch64_p_reg::none, E, E}; }
};

/// General register, 31 the zero register, read at width code E.
template <class Field, unsigned E, OperandRole Role>
struct R : scalar_value<Field, aarch64_i_reg> {
  static constexpr Operand about = [] {
    Operand o = register_operand<Field>(OperandKind::x, Role, E == element_d ? element_d : element_s);
    if (Role == offset) o.extends = Extension::lsl, o.shift = Operand::by_access;
    return o;
  }();
  static aarch64_i_reg record(word_t w) { return {Field::cut(w), E}; }
};
/// General register in bits 4 to 0 that is read and written, with another mention of width code `Repeats` or without.
template <unsigned E, Repetition Repeated = Repetition::none, unsigned Repeats = E>
struct Rdn : scalar_value<Bits<4, 0>, aarch64_i_reg> {
  static constexpr Operand about =
      repeated(register_operand<Bits<4, 0>>(OperandKind::x, both, E == element_d ? element_d : element_s), Repeated,
               Repeats == element_d ? element_d : element_s);
  static aarch64_i_reg record(word_t w) { return {Bits<4, 0>::cut(w), aarch64_i_reg::none, E, E}; }
};
/// General register, 31 the stack pointer.
template <class Field, OperandRole Role, unsigned E = element_d>
struct Rsp : scalar_value<Field, aarch64_i_rsp_reg> {
  static constexpr Operand about =
      register_operand<Field>(OperandKind::x_or_sp, Role, E == element_d ? element_d : element_s);
  static aarch64_i_rsp_reg record(word_t w) { return {Field::cut(w), E}; }
};

// ---- Immediates: `cut` gives the value, `record` and `load` pass it on ----

constexpr Operand immediate_operand(std::int64_t (*value)(word_t), Spelling spelled = Spelling::decimal,
                                    OperandRole role = source, OperandKind kind = OperandKind::immediate) {
  Operand o{kind, role};
  o.spelled = spelled;
  o.value = value;
  return o;
}

template <class Immediate, class Record, Spelling Spelled = Spelling::decimal>
struct immediate {
  static Record record(word_t w) { return static_cast<Record>(Immediate::cut(w)); }
  using type = std::uint64_t;
  static void load(type& value, const cpu_state*, word_t w) {
    value = static_cast<type>(static_cast<std::int64_t>(Immediate::cut(w)));
  }
  static constexpr Operand about =
      immediate_operand([](word_t w) { return static_cast<std::int64_t>(Immediate::cut(w)); }, Spelled);
};
/// The same in another spelling, role or kind.
template <class Immediate, Spelling Spelled, OperandRole Role = source, OperandKind Kind = OperandKind::immediate>
struct spelled : Immediate {
  static constexpr Operand about = immediate_operand(Immediate::about.value, Spelled, Role, Kind);
};
template <class Immediate>
using offset_of = spelled<Immediate, Spelling::decimal, offset>;
template <class Immediate>
using vl_offset_of = spelled<Immediate, Spelling::vector_multiple, offset>;
template <class Immediate>
using index = spelled<Immediate, Spelling::index>;

/// Unsigned and signed field.
template <unsigned High, unsigned Low = High>
struct U : immediate<U<High, Low>, unsigned int> {
  static constexpr std::uint32_t cut(word_t w) { return Bits<High, Low>::cut(w); }
};
template <unsigned High, unsigned Low>
struct S : immediate<S<High, Low>, int> {
  static constexpr std::int32_t cut(word_t w) { return sign_extend(Bits<High, Low>::cut(w), High - Low + 1); }
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
/// A predicate pattern.
using Pattern = spelled<U<9, 5>, Spelling::decimal, source, OperandKind::pattern>;
/// The multiplier of a counted instruction, one more than its field; routines add the one themselves.
struct Multiplier {
  static unsigned int record(word_t w) { return Bits<19, 16>::cut(w) + 1; }
  using type = std::uint64_t;
  static void load(type& value, const cpu_state*, word_t w) { value = Bits<19, 16>::cut(w); }
  static constexpr Operand about = immediate_operand([](word_t w) { return std::int64_t{record(w)}; },
                                                     Spelling::decimal, source, OperandKind::multiplier);
};
/// A prefetch operation.
using PrefetchOperation = spelled<U<3, 0>, Spelling::decimal, source, OperandKind::prefetch>;
/// A rotation of complex numbers in two bits, in units of 90 degrees, and in one, where it is 90 or 270 degrees.
template <unsigned High, unsigned Low = High>
struct Rotation : U<High, Low> {
  static constexpr Operand about = immediate_operand(
      [](word_t w) {
        const std::uint32_t field = Bits<High, Low>::cut(w);
        return std::int64_t{90} * (High == Low ? 1 + 2 * field : field);
      },
      Spelling::rotation);
};
/// Eight unsigned bits, shifted left by 8 if bit 13 is set. At 8 bits the architecture reserves the shift; nothing
/// rejects it, and the value is then 0.
template <unsigned E>
struct Shifted8 : immediate<Shifted8<E>, unsigned int, Spelling::shifted> {
  static constexpr std::uint32_t cut(word_t w) {
    const std::uint32_t imm = Bits<12, 5>::cut(w);
    return Bits<13>::cut(w) == 0 ? imm : E == element_b ? 0 : imm << 8;
  }
};
/// Eight signed bits, shifted left by 8 if bit 13 is set.
struct SignedShifted8 : immediate<SignedShifted8, int, Spelling::shifted> {
  static constexpr std::int32_t cut(word_t w) {
    const std::int32_t imm = sign_extend(Bits<12, 5>::cut(w), 8);
    return Bits<13>::cut(w) ? imm * 256 : imm;
  }
};

/// The fields of a shift amount, predicated and unpredicated; which bits hold it depends on the element size.
template <unsigned E, bool Predicated>
constexpr std::uint32_t shift_field(word_t w) {
  constexpr unsigned low = Predicated ? 5 : 16;
  if constexpr (E == element_d)
    return joined<Bits<22>, Bits<low + 4, low>>::cut(w);
  else
    return Bits<low + 2 + E, low>::cut(w);
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
struct DupIndex : immediate<DupIndex<E>, unsigned int, Spelling::index> {
  static constexpr std::uint32_t cut(word_t w) {
    if constexpr (E == element_q)
      return Bits<23, 22>::cut(w);
    else
      return joined<Bits<23, 22>, Bits<20, 17 + E>>::cut(w);
  }
};

/// The expansion of a 13-bit logical immediate (N, immr, imms). Reserved encodings are not rejected: with N set and
/// imms all ones the element is empty and the mask is 0, and with N clear and imms all ones the width never reaches 64
/// and the expansion does not return.
std::uint64_t expand_logical_immediate(std::uint32_t field);

struct LogicalImmediate {
  static std::uint64_t cut(word_t w) { return expand_logical_immediate(Bits<17, 5>::cut(w)); }
  static aarch64_sve_logical64_imm record(word_t w) { return {cut(w)}; }
  using type = std::uint64_t;
  static void load(type& value, const cpu_state*, word_t w) { value = cut(w); }
  /// What describes a word does return: 0 where the expansion would not.
  static constexpr bool is_reserved(word_t w) { return Bits<17>::cut(w) == 0 && Bits<10, 5>::cut(w) == 63; }
  static constexpr Operand about = immediate_operand(
      [](word_t w) { return is_reserved(w) ? 0 : static_cast<std::int64_t>(cut(w)); }, Spelling::logical);
};

/// An 8-bit floating-point constant at all three widths.
aarch64_sve_fp_dup_imm expand_fp_immediate(std::uint32_t imm8);

template <unsigned E>
struct FpImmediate {
  static aarch64_sve_fp_dup_imm record(word_t w) { return expand_fp_immediate(Bits<12, 5>::cut(w)); }
  using type = std::uint64_t;
  static type cut(word_t w) {
    const aarch64_sve_fp_dup_imm imm = record(w);
    return E == element_h ? imm.half : E == element_s ? imm.single : imm.double_;
  }
  static void load(type& value, const cpu_state*, word_t w) { value = cut(w); }
  static constexpr Operand about =
      immediate_operand([](word_t w) { return static_cast<std::int64_t>(cut(w)); }, Spelling::floating);
};
/// The single bit of the floating-point arithmetic immediates, which chooses between two constants. These are given as
/// their 8-bit encodings, of which zero has none.
inline constexpr std::uint32_t fp_zero = 0x100, fp_half = 0x60, fp_one = 0x70, fp_two = 0x00;
template <unsigned E, std::uint32_t Clear, std::uint32_t Set>
struct FpChoice {
  static aarch64_sve_fp_arith_imm record(word_t w) { return {static_cast<std::uint8_t>(Bits<5>::cut(w))}; }
  using type = std::uint64_t;
  static void load(type& value, const cpu_state*, word_t w) { value = Bits<5>::cut(w); }
  static constexpr Operand about = immediate_operand(
      [](word_t w) {
        const std::uint32_t chosen = Bits<5>::cut(w) ? Set : Clear;
        return chosen == fp_zero ? 0 : static_cast<std::int64_t>(FpImmediate<E>::cut(Bits<12, 5>::place(chosen)));
      },
      Spelling::choice);
};
/// An element index as the instruction functions of some indexed forms take it.
template <class Immediate>
struct IndexByte : index<Immediate> {
  static aarch64_sve_fp_arith_imm record(word_t w) { return {static_cast<std::uint8_t>(Immediate::cut(w))}; }
};

}  // namespace sve::decode
