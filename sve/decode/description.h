// What a row of the instruction table is, as constant data: its mnemonic and family, its operands in the order of the
// assembler's syntax, its memory access and the flags that it touches. Reading it takes no allocation and no call into
// a library, so that it may be done in a signal handler.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "sve/decode/functions.h"

namespace sve::decode {

// ---- Operands ----

enum class OperandKind : std::uint8_t {
  z,           ///< vector register, or the first of a list of consecutive ones
  p,           ///< predicate register
  x,           ///< general register, 31 the zero register
  x_or_sp,     ///< general register, 31 the stack pointer
  v,           ///< the low element of a vector register, as a scalar
  immediate,   ///< a number, already expanded
  pattern,     ///< predicate pattern, 0 to 31
  multiplier,  ///< of a pattern's count, 1 to 16
  prefetch     ///< prefetch operation, 0 to 15
};

enum class OperandRole : std::uint8_t {
  destination,  ///< written only, but for the inactive elements of a merging row, which it keeps
  both,         ///< read and written
  source,
  stored,     ///< the data of a store
  governing,  ///< the predicate that says which elements are active
  base,       ///< of an address
  offset      ///< of an address
};

/// What becomes of inactive elements, told by the governing predicate.
enum class Predication : std::uint8_t { none, merging, zeroing };

/// How an offset of an address is taken.
enum class Extension : std::uint8_t { none, lsl, sxtw, uxtw };

/// How an immediate is spelled.
enum class Spelling : std::uint8_t {
  decimal,
  index,           ///< element index, in brackets behind the register before it
  rotation,        ///< in degrees
  shifted,         ///< eight bits that bit 13 of the word shifts left by 8
  logical,         ///< a mask, at the smallest element size that repeats
  floating,        ///< the bits of a floating-point constant at the row's element size
  choice,          ///< likewise, one of 0.0, 0.5, 1.0 and 2.0
  vector_multiple  ///< an offset in units of what the instruction transfers at a full predicate
};

/// Where the other mention of a register that is both destination and source stands.
enum class Repetition : std::uint8_t { none, next, last };

struct Operand {
  static constexpr std::uint8_t no_size = 0xff;

  OperandKind kind;
  OperandRole role;
  std::uint8_t size = no_size;  ///< element-size code; for general registers 2 is W, 3 is X
  std::uint8_t low = 0;         ///< lowest bit of a register's field
  std::uint8_t width = 0;       ///< bits of a register's field; 0 where the operand is no register
  std::uint8_t registers = 0;   ///< of a list of consecutive ones, modulo 32; 0 where it is none
  Predication inactive = Predication::none;
  Repetition repeated = Repetition::none;
  std::uint8_t repeated_size = no_size;
  Extension extends = Extension::none;
  std::uint8_t shift = 0;  ///< left shift of an offset; `by_access` is the logarithm of the bytes accessed
  Spelling spelled = Spelling::decimal;
  std::int64_t (*value)(std::uint32_t word) = nullptr;  ///< of what is no register

  static constexpr std::uint8_t by_access = 0xff;

  constexpr bool is_register() const { return width != 0; }
  constexpr bool is_written() const { return role == OperandRole::destination || role == OperandRole::both; }
  constexpr std::uint32_t number(std::uint32_t word) const { return word >> low & ((1u << width) - 1); }
  /// `word` with register `n` in this operand's place.
  constexpr std::uint32_t with(std::uint32_t word, std::uint32_t n) const {
    const std::uint32_t mask = ((1u << width) - 1) << low;
    return (word & ~mask) | (n << low & mask);
  }
};

/// An operand of a given word.
struct OperandValue {
  OperandKind kind;
  OperandRole role;
  std::uint8_t size;   ///< as in `operand`
  std::int64_t value;  ///< register number, or the immediate's value
};

enum class AddressForm : std::uint8_t {
  none,
  base_immediate,    ///< general register and immediate
  base_index,        ///< general register and general register
  vector_immediate,  ///< vector of bases and immediate
  base_vector        ///< general register and vector of offsets
};

/// The operand list that rows share.
struct OperandForm {
  const Operand* first;
  std::uint8_t count;
  std::uint8_t element_size;  ///< code of the elements that the row works on, or `operand::no_size`
  AddressForm address;

  constexpr std::span<const Operand> operands() const { return {first, count}; }
};

inline constexpr std::size_t max_operands = 5;

// ---- Instruction functions ----

enum class AccessKind : std::uint8_t {
  none,
  load,
  first_fault,
  non_fault,
  replicate,           ///< one element to all
  replicate_quadword,  ///< 16 bytes to all
  store,
  fill,   ///< a whole register
  spill,  ///< a whole register
  prefetch
};

enum class Family : std::uint8_t {
#define SVE_FAMILY_NAME(name) name,
#include "sve/decode/families.inc"
#undef SVE_FAMILY_NAME
};
const char* name_of(Family f);

/// Flags, to be joined.
using Flags = std::uint8_t;
inline constexpr Flags flag_nzcv = 1, flag_fpsr = 2, flag_ffr = 4;

/// An instruction function, with body or without, and what its mnemonic says.
struct InstructionFunction {
  const char* name;
  std::uint8_t mnemonic_length;
  Family of;
  Flags reads, writes;
  bool floating_point;  ///< works on floating-point numbers
  bool body;            ///< not a stub
  AccessKind access = AccessKind::none;
  std::uint8_t memory_bytes = 0;  ///< of one element in memory
  std::uint8_t registers = 1;     ///< of a structure
  bool sign_extends = false;      ///< an element that is wider than in memory
  bool non_temporal = false;

  constexpr std::string_view mnemonic() const { return {name + 4, mnemonic_length}; }
  constexpr bool is_memory() const { return access != AccessKind::none && access != AccessKind::prefetch; }
  constexpr bool stores() const { return access == AccessKind::store || access == AccessKind::spill; }
  constexpr bool speculative() const { return access == AccessKind::first_fault || access == AccessKind::non_fault; }
};

/// All instruction functions, in the order of `FunctionId`.
struct FunctionTable {
  InstructionFunction of[function_count];
};
extern const FunctionTable functions;

}  // namespace sve::decode
