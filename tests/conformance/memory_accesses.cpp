// Address formation of the memory rows.
#include "tests/conformance/memory_accesses.h"

#include "sve/state/vector_length.h"
#include "tests/conformance/window.h"

namespace conformance {

bool memory_access::readable(unsigned bytes) const {
  return window::readable(address) && window::readable(address + bytes - 1);
}

std::uint64_t memory_access::first_unreadable() const {
  std::uint64_t at = address;
  while (window::readable(at)) ++at;
  return at;
}

memory_operands operands_of(const row_info& row, std::uint32_t word) {
  const memory_form& m = row.memory;
  const unsigned n5 = word >> 5 & 31, n16 = word >> 16 & 31;
  memory_operands o = {word & 31, word >> 10 & 7, n5, 31, 0};
  if (m.access == access_kind::fill || m.access == access_kind::spill) {
    o.governing = 16;
    if (m.predicate_register) o.data = word & 15;
  }
  if (m.address == address_form::base_index) o.index = n16;
  o.vector = m.address == address_form::vector_immediate ? n5 : n16;
  return o;
}

unsigned immediate_unit(const memory_form& m) { return m.row->offset_unit(); }

memory_plan plan_accesses(const row_info& row, std::uint32_t word, const machine& state) {
  const memory_form& m = row.memory;
  const memory_operands o = operands_of(row, word);
  memory_plan plan;
  const std::uint64_t base = o.base == 31 ? state.sp : state.x[o.base];
  const std::uint64_t index = o.index == 31 ? 0 : state.x[o.index];
  const auto immediate = static_cast<std::uint64_t>(static_cast<std::int64_t>(m.imm(word)) * immediate_unit(m));
  const auto offset = [&](unsigned e) -> std::uint64_t {
    if (m.element_bytes == 4) {
      std::uint32_t v;
      std::memcpy(&v, state.z[o.vector] + 4 * e, 4);
      return m.extension == offset_extension::sign_32
                 ? static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<std::int32_t>(v)))
                 : v;
    }
    std::uint64_t v;
    std::memcpy(&v, state.z[o.vector] + 8 * e, 8);
    if (m.extension == offset_extension::zero_32) return v & 0xffffffff;
    if (m.extension == offset_extension::sign_32)
      return static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<std::int32_t>(v)));
    return v;
  };
  if (m.address == address_form::base_immediate) plan.start = base + immediate;
  if (m.address == address_form::base_index) plan.start = base + index * m.memory_bytes;
  for (unsigned e = 0; e < m.elements(); ++e) {
    const bool quadword = m.access == access_kind::replicate_quadword;
    const unsigned predicate_byte = quadword ? e * m.memory_bytes : e * m.element_bytes;
    const bool active = o.governing == 16 || element_active(state.p[o.governing], predicate_byte);
    for (unsigned k = 0; k < m.registers; ++k) {
      std::uint64_t address = 0;
      switch (m.address) {
        case address_form::vector_immediate:
          address = offset(e) + immediate;
          break;
        case address_form::base_vector:
          address = base + offset(e);
          break;
        case address_form::base_vector_scaled:
          address = base + offset(e) * m.memory_bytes;
          break;
        default:
          address = plan.start +
                    (m.access == access_kind::replicate ? 0 : (std::uint64_t{e} * m.registers + k) * m.memory_bytes);
      }
      plan.accesses[plan.count++] = {address, static_cast<std::uint16_t>(e), static_cast<std::uint16_t>(predicate_byte),
                                     static_cast<std::uint8_t>(k), active};
    }
  }
  return plan;
}

}  // namespace conformance
