// The instruction table: rows in 44 maps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "sve/decode/description.h"
#include "sve/decode/dispatch.h"

namespace sve::decode {

enum class Kind : std::uint8_t { direct, direct_fp, library, prefetch };

/// One instruction form: the key of its fixed bits, its handler's name, what it is, and the handler.
struct Row {
  int key;
  Kind model;
  const char* name;                     ///< the handler's name, and the name of the library routine
  const InstructionFunction* function;  ///< of the instruction, whether the row calls it or not
  const OperandForm* form;
  DecodeHandler handle;

  constexpr bool is_direct() const { return model == Kind::direct || model == Kind::direct_fp; }
  constexpr std::string_view mnemonic() const { return function->mnemonic(); }
  constexpr std::span<const Operand> operands() const { return form->operands(); }
  /// Of the elements that it works on; 0 where it has none.
  constexpr unsigned element_bytes() const {
    return form->element_size == Operand::no_size ? 0 : 1u << form->element_size;
  }
  constexpr const Operand* find(OperandRole role) const {
    for (const Operand& o : operands())
      if (o.role == role) return &o;
    return nullptr;
  }
  /// How many elements a register has in memory, or the quadword that is replicated.
  unsigned memory_elements() const;
  /// Bytes that an immediate offset of 1 stands for.
  unsigned offset_unit() const;
};

/// The operands of a word of the row, in the order of the assembler's syntax; returns how many.
std::size_t operands_of(const Row& r, std::uint32_t word, OperandValue (&values)[max_operands]);

/// One map: its name, how its key is cut, and its rows in ascending order of key.
struct Map {
  const char* name;  ///< `decode_map__` and the bit ranges of the key
  std::uint32_t fixed_bits;
  int (*key)(std::uint32_t word);
  std::uint32_t (*word)(int key);
  std::span<const Row> rows;
};

/// The maps in the order of `is_sve`, and in that of `execute_sve_instruction`.
std::span<const Map* const> maps_in_is_sve_order();
std::span<const Map* const> maps_in_execute_order();

/// The handler that the search of `is_sve`, and that of `execute_sve_instruction`, finds in the maps, or null. Both
/// functions first look among the words that they met lately.
DecodeHandler find_in_is_sve_order(std::uint32_t word);
DecodeHandler find_in_execute_order(std::uint32_t word);

/// What `execute_sve_instruction` does with a word once it has its handler: runs it, and on success counts and moves
/// on.
aarch64_decode_rc execute_with(DecodeHandler handle, cpu_state* state, std::uint32_t word);

/// The row of a word, or null. Calls nothing outside of this library.
const Row* find_row(std::uint32_t word);

}  // namespace sve::decode
