// What the generators know of a row: its operands by role, and for a memory row how addresses are formed. All of it is
// the row's own description, in the terms of the generators; nothing here decides what a result must be.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "sve/decode/table.h"

namespace conformance {

using sve::decode::access_kind;
using sve::decode::operand;
using role = sve::decode::operand_kind;

/// How a memory row names its addresses.
enum class address_form : std::uint8_t {
  none,
  base_immediate,
  base_index,  ///< index times the memory size
  vector_immediate,
  base_vector,        ///< offsets in bytes
  base_vector_scaled  ///< offsets times the memory size
};
enum class offset_extension : std::uint8_t { none, sign_32, zero_32 };

struct memory_form {
  address_form address = address_form::none;
  access_kind access = access_kind::none;
  offset_extension extension = offset_extension::none;
  bool sign_extends = false;
  bool predicate_register = false;  ///< fill and spill of a predicate
  std::uint8_t registers = 1;       ///< of a structure
  std::uint8_t memory_bytes = 0;    ///< m
  std::uint8_t element_bytes = 0;   ///< c

  bool is_memory() const { return address != address_form::none; }
  bool stores() const { return access == access_kind::store || access == access_kind::spill; }
  /// Elements of a register, or of the quadword that is replicated.
  unsigned elements() const { return row->memory_elements(); }
  int imm(std::uint32_t word) const;
  const sve::decode::row* row = nullptr;
};

struct row_info {
  const sve::decode::map* map;
  const sve::decode::row* row;
  int index;  ///< place in the order of `is_sve`'s search
  std::span<const operand> operands;
  unsigned element_bits;  ///< 0 without a size
  memory_form memory;

  bool floating_point() const { return row->function->floating_point; }
  bool unzips_predicates() const { return row->mnemonic().starts_with("uzp") && operands[0].kind == role::p; }
  bool name_has(std::string_view part) const {
    return std::string_view(row->name).find(part) != std::string_view::npos;
  }
  std::uint32_t fixed() const { return map->word(row->key); }
  std::uint32_t operand_bits() const { return ~map->fixed_bits; }
  const operand* find(role kind, unsigned low) const;
};

/// An immediate in bits 12 to 5 that bit 13 shifts left by 8.
bool has_shifted_immediate(const row_info& row);
/// A 13-bit logical immediate in bits 17 to 5.
bool is_logical_immediate(const row_info& row);

/// All rows, in the order of `is_sve`'s search.
std::span<const row_info> all_rows();

}  // namespace conformance
