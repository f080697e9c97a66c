// What the generators know of a row: its operands by role, and for a memory row how addresses are formed. All of it is
// the row's own description, in the terms of the generators; nothing here decides what a result must be.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "sve/decode/table.h"

namespace conformance {

using sve::decode::AccessKind;
using sve::decode::Operand;
using Role = sve::decode::OperandKind;

/// How a memory row names its addresses.
enum class AddressForm : std::uint8_t {
  none,
  base_immediate,
  base_index,  ///< index times the memory size
  vector_immediate,
  base_vector,        ///< offsets in bytes
  base_vector_scaled  ///< offsets times the memory size
};
enum class OffsetExtension : std::uint8_t { none, sign_32, zero_32 };

struct MemoryForm {
  AddressForm address = AddressForm::none;
  AccessKind access = AccessKind::none;
  OffsetExtension extension = OffsetExtension::none;
  bool sign_extends = false;
  bool predicate_register = false;  ///< fill and spill of a predicate
  std::uint8_t registers = 1;       ///< of a structure
  std::uint8_t memory_bytes = 0;    ///< m
  std::uint8_t element_bytes = 0;   ///< c

  bool is_memory() const { return address != AddressForm::none; }
  bool stores() const { return access == AccessKind::store || access == AccessKind::spill; }
  /// Elements of a register, or of the quadword that is replicated.
  unsigned elements() const { return row->memory_elements(); }
  int imm(std::uint32_t word) const;
  const sve::decode::Row* row = nullptr;
};

struct RowInfo {
  const sve::decode::Map* map;
  const sve::decode::Row* row;
  int index;  ///< place in the order of `is_sve`'s search
  std::span<const Operand> operands;
  unsigned element_bits;  ///< 0 without a size
  MemoryForm memory;

  bool floating_point() const { return row->function->floating_point; }
  bool unzips_predicates() const { return row->mnemonic().starts_with("uzp") && operands[0].kind == Role::p; }
  bool name_has(std::string_view part) const {
    return std::string_view(row->name).find(part) != std::string_view::npos;
  }
  std::uint32_t fixed() const { return map->word(row->key); }
  std::uint32_t operand_bits() const { return ~map->fixed_bits; }
  const Operand* find(Role kind, unsigned low) const;
};

/// An immediate in bits 12 to 5 that bit 13 shifts left by 8.
bool has_shifted_immediate(const RowInfo& row);
/// A 13-bit logical immediate in bits 17 to 5.
bool is_logical_immediate(const RowInfo& row);

/// All rows, in the order of `is_sve`'s search.
std::span<const RowInfo> all_rows();

}  // namespace conformance
