// The addresses that a memory instruction touches, straight from its definition.
#pragma once

#include <cstdint>

#include "tests/conformance/machine.h"
#include "tests/conformance/row_info.h"

namespace conformance {

struct MemoryAccess {
  std::uint64_t address;
  std::uint16_t element;         ///< of the register
  std::uint16_t predicate_byte;  ///< byte of the vector at which the element's activity is decided
  std::uint8_t register_offset;  ///< within a structure's group
  bool active;

  bool readable(unsigned bytes) const;
  /// The byte at which an access that is not readable faults.
  std::uint64_t first_unreadable() const;
};

struct MemoryPlan {
  MemoryAccess accesses[4 * sve::vector_bytes];  ///< in the order of execution
  unsigned count = 0;
  std::uint64_t start = 0;  ///< of the contiguous forms
};

/// Operand numbers of a memory word.
struct MemoryOperands {
  unsigned data;       ///< Zt or Pt
  unsigned governing;  ///< 16 when there is none
  unsigned base;       ///< general register, 31 the stack pointer
  unsigned index;      ///< general register, 31 the zero register
  unsigned vector;     ///< of bases or offsets
};
MemoryOperands operands_of(const RowInfo& row, std::uint32_t word);

/// Bytes between successive values of the immediate.
unsigned immediate_unit(const MemoryForm& form);

MemoryPlan plan_accesses(const RowInfo& row, std::uint32_t word, const Machine& state);

}  // namespace conformance
