// Collects the rows with their operands, and reads element type and memory form from their names.
#include "tests/conformance/row_info.h"

#include <cstdio>
#include <cstdlib>
#include <map>

#include "sve/state/vector_length.h"
#include "tests/conformance/row_operands.h"

namespace conformance {
namespace {

/// Takes `prefix` off the front of `text` if it stands there.
bool take(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

unsigned take_number(std::string_view& text) {
  unsigned n = 0;
  while (!text.empty() && text[0] >= '0' && text[0] <= '9') {
    n = n * 10 + static_cast<unsigned>(text[0] - '0');
    text.remove_prefix(1);
  }
  return n;
}

/// Vec, type, [C | E2..E4], Load or Store, [Dup | FF | NF | NT], memory bytes, [Q], form.
memory_form parse_memory(std::string_view rest, char type, unsigned element_bits) {
  memory_form m;
  m.element_bytes = static_cast<std::uint8_t>(element_bits / 8);
  m.sign_extends = type == 'S';
  if (rest == "FillSI" || rest == "SpillSI") {
    m.address = address_form::base_immediate;
    m.access = rest == "FillSI" ? access_kind::fill : access_kind::spill;
    m.predicate_register = type == 'P';
    m.memory_bytes = m.element_bytes = 1;
    return m;
  }
  take(rest, "C");
  if (rest.size() > 2 && rest[0] == 'E' && rest[1] >= '2' && rest[1] <= '4') {
    m.registers = static_cast<std::uint8_t>(rest[1] - '0');
    rest.remove_prefix(2);
  }
  if (take(rest, "Load"))
    m.access = take(rest, "Dup") ? access_kind::replicate
               : take(rest, "FF") ? access_kind::first_fault
               : take(rest, "NF") ? access_kind::non_fault
                                  : access_kind::load;
  else if (take(rest, "Store"))
    m.access = access_kind::store;
  else
    return {};
  take(rest, "NT");
  m.memory_bytes = static_cast<std::uint8_t>(take_number(rest));
  if (take(rest, "Q")) m.access = access_kind::replicate_quadword;
  const bool wide = element_bits == 64;
  const offset_extension unsigned_32 = wide ? offset_extension::none : offset_extension::zero_32;
  struct form {
    std::string_view letters;
    address_form address;
    offset_extension extension;
  };
  const form forms[] = {
      {"SIZ", address_form::base_immediate, offset_extension::none},
      {"LSSZ", address_form::base_index, offset_extension::none},
      {"SSZ", address_form::base_index, offset_extension::none},
      {"VIZ", address_form::vector_immediate, unsigned_32},
      {"VSZ", address_form::base_vector, unsigned_32},
      {"XVSZ", address_form::base_vector, offset_extension::sign_32},
      {"YVSZ", address_form::base_vector, offset_extension::zero_32},
      {"SVZ", address_form::base_vector_scaled, unsigned_32},
      {"XSVZ", address_form::base_vector_scaled, offset_extension::sign_32},
      {"YSVZ", address_form::base_vector_scaled, offset_extension::zero_32},
  };
  for (const form& f : forms)
    if (rest == f.letters) {
      m.address = f.address;
      m.extension = f.extension;
      return m;
    }
  return {};
}

std::vector<row_info> collect() {
  std::map<std::string_view, std::span<const operand>> operands;
  for (const auto& table : described_tables())
    for (const described_row& r : table) operands[r.name] = r.operands;
  std::vector<row_info> rows;
  for (const sve::decode::map* map : sve::decode::maps_in_is_sve_order())
    for (const sve::decode::row& row : map->rows) {
      std::string_view rest = row.name;
      take(rest, "Vec");
      const char type = rest[0];
      rest.remove_prefix(1);
      const unsigned bits = take_number(rest);
      const auto found = operands.find(row.name);
      if (found == operands.end()) {
        std::fprintf(stderr, "row %s has no operand list\n", row.name);
        std::abort();
      }
      rows.push_back({map, &row, static_cast<int>(rows.size()), found->second, type, bits,
                      parse_memory(rest, type, bits)});
    }
  return rows;
}

}  // namespace

unsigned memory_form::elements() const {
  if (access == access_kind::replicate_quadword) return 16u / memory_bytes;
  if (predicate_register) return sve::predicate_bytes;
  return static_cast<unsigned>(sve::vector_bytes) / element_bytes;
}

int memory_form::imm(std::uint32_t word) const {
  const auto field = [word](unsigned low, unsigned width) { return word >> low & ((1u << width) - 1); };
  const auto as_signed = [](std::uint32_t v, unsigned width) {
    return static_cast<int>(v << (32 - width)) >> (32 - width);
  };
  if (access == access_kind::fill || access == access_kind::spill)
    return as_signed(field(16, 6) << 3 | field(10, 3), 9);
  if (access == access_kind::replicate) return static_cast<int>(field(16, 6));
  if (address == address_form::vector_immediate) return static_cast<int>(field(16, 5));
  return as_signed(field(16, 4), 4);
}

bool row_info::floating_point() const {
  return row->model == sve::decode::kind::direct_fp || element_type == 'F' || element_type == 'D' ||
         element_type == 'H' || name_has("FromD") || name_has("FromF") || name_has("FromH");
}

const operand* row_info::find(role kind, unsigned low) const {
  for (const operand& o : operands)
    if (o.kind == kind && o.low == low) return &o;
  return nullptr;
}

bool has_shifted_immediate(const row_info& row) {
  const std::string_view name = row.row->name;
  return name.ends_with("DupI") || (name.ends_with("DupIM") && row.element_type == 'S') || name.ends_with("DupIZ") ||
         (name.ends_with("VIX") && (row.name_has("Add") || row.name_has("Sub")));
}

bool is_logical_immediate(const row_info& row) { return std::string_view(row.map->name) == "decode_map__31_18"; }

std::span<const row_info> all_rows() {
  static const std::vector<row_info> rows = collect();
  return rows;
}

}  // namespace conformance
