// The rows' descriptions in the terms of the generators.
#include "tests/conformance/row_info.h"

#include <algorithm>

namespace conformance {
namespace {

using sve::decode::extension;
using sve::decode::operand_kind;
using sve::decode::operand_role;
using sve::decode::spelling;

role role_of(operand_kind kind) {
  switch (kind) {
    case operand_kind::z:
    case operand_kind::v:
      return role::z;
    case operand_kind::p:
      return role::p;
    case operand_kind::x:
      return role::x;
    case operand_kind::x_or_sp:
      return role::x_or_sp;
    default:
      return role::immediate;
  }
}

memory_form memory_of(const sve::decode::row& row) {
  memory_form m;
  const sve::decode::instruction_function& f = *row.function;
  if (!f.is_memory()) return m;
  m.row = &row;
  m.access = f.access;
  m.sign_extends = f.sign_extends;
  m.predicate_register = row.operands()[0].kind == operand_kind::p;
  m.registers = f.registers;
  m.memory_bytes = f.memory_bytes;
  m.element_bytes = static_cast<std::uint8_t>(row.element_bytes() ? row.element_bytes() : 1);
  m.address = static_cast<address_form>(row.form->address);
  const sve::decode::operand* offset = row.find(operand_role::offset);
  if (row.form->address == sve::decode::address_form::vector_immediate) {
    m.extension = m.element_bytes == 4 ? offset_extension::zero_32 : offset_extension::none;
  } else if (row.form->address == sve::decode::address_form::base_vector) {
    if (offset->shift != 0) m.address = address_form::base_vector_scaled;
    m.extension = offset->extends == extension::sxtw   ? offset_extension::sign_32
                  : offset->extends == extension::uxtw ? offset_extension::zero_32
                                                       : offset_extension::none;
  }
  return m;
}

std::vector<row_info> collect() {
  std::vector<row_info> rows;
  for (const sve::decode::map* map : sve::decode::maps_in_is_sve_order())
    for (const sve::decode::row& row : map->rows) {
      std::vector<operand> operands;
      for (const sve::decode::operand& o : row.operands())
        operands.push_back({role_of(o.kind), o.low, o.width, o.is_written()});
      rows.push_back({map, &row, static_cast<int>(rows.size()), operands, row.element_bytes() * 8, memory_of(row)});
    }
  return rows;
}

bool has_immediate(const row_info& row, spelling spelled) {
  return std::ranges::any_of(row.row->operands(), [=](const sve::decode::operand& o) { return o.spelled == spelled; });
}

}  // namespace

int memory_form::imm(std::uint32_t word) const {
  const sve::decode::operand* offset = row->find(operand_role::offset);
  return offset && !offset->is_register() ? static_cast<int>(offset->value(word)) : 0;
}

const operand* row_info::find(role kind, unsigned low) const {
  for (const operand& o : operands)
    if (o.kind == kind && o.low == low && o.width != 0) return &o;
  return nullptr;
}

bool has_shifted_immediate(const row_info& row) { return has_immediate(row, spelling::shifted); }
bool is_logical_immediate(const row_info& row) { return has_immediate(row, spelling::logical); }

std::span<const row_info> all_rows() {
  static const std::vector<row_info> rows = collect();
  return rows;
}

}  // namespace conformance
