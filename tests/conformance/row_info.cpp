// The rows' descriptions in the terms of the generators.
#include "tests/conformance/row_info.h"

#include <algorithm>

namespace conformance {
namespace {

using sve::decode::Extension;
using sve::decode::OperandRole;
using sve::decode::Spelling;

MemoryForm memory_of(const sve::decode::Row& row) {
  MemoryForm m;
  const sve::decode::InstructionFunction& f = *row.function;
  if (!f.is_memory()) return m;
  m.row = &row;
  m.access = f.access;
  m.sign_extends = f.sign_extends;
  m.predicate_register = row.operands()[0].kind == Role::p;
  m.registers = f.registers;
  m.memory_bytes = f.memory_bytes;
  m.element_bytes = static_cast<std::uint8_t>(row.element_bytes() ? row.element_bytes() : 1);
  m.address = static_cast<AddressForm>(row.form->address);
  const Operand* offset = row.find(OperandRole::offset);
  if (row.form->address == sve::decode::AddressForm::vector_immediate) {
    m.extension = m.element_bytes == 4 ? OffsetExtension::zero_32 : OffsetExtension::none;
  } else if (row.form->address == sve::decode::AddressForm::base_vector) {
    if (offset->shift != 0) m.address = AddressForm::base_vector_scaled;
    m.extension = offset->extends == Extension::sxtw   ? OffsetExtension::sign_32
                  : offset->extends == Extension::uxtw ? OffsetExtension::zero_32
                                                       : OffsetExtension::none;
  }
  return m;
}

std::vector<RowInfo> collect() {
  std::vector<RowInfo> rows;
  for (const sve::decode::Map* map : sve::decode::maps_in_is_sve_order())
    for (const sve::decode::Row& row : map->rows)
      rows.push_back(
          {map, &row, static_cast<int>(rows.size()), row.operands(), row.element_bytes() * 8, memory_of(row)});
  return rows;
}

bool has_immediate(const RowInfo& row, Spelling spelled) {
  return std::ranges::any_of(row.row->operands(), [=](const Operand& o) { return o.spelled == spelled; });
}

}  // namespace

int MemoryForm::imm(std::uint32_t word) const {
  const Operand* offset = row->find(OperandRole::offset);
  return offset && !offset->is_register() ? static_cast<int>(offset->value(word)) : 0;
}

const Operand* RowInfo::find(Role kind, unsigned low) const {
  for (const Operand& o : operands)
    if (o.kind == kind && o.low == low) return &o;
  return nullptr;
}

bool has_shifted_immediate(const RowInfo& row) { return has_immediate(row, Spelling::shifted); }
bool is_logical_immediate(const RowInfo& row) { return has_immediate(row, Spelling::logical); }

std::span<const RowInfo> all_rows() {
  static const std::vector<RowInfo> rows = collect();
  return rows;
}

}  // namespace conformance
