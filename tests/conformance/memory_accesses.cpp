// Address formation of the memory rows.
#include "tests/conformance/memory_accesses.h"

#include "sve/state/vector_length.h"
#include "tests/conformance/window.h"

namespace conformance {

bool MemoryAccess::readable(unsigned bytes) const {
  return window::readable(address) && window::readable(address + bytes - 1);
}

std::uint64_t MemoryAccess::first_unreadable() const {
  std::uint64_t at = address;
  while (window::readable(at)) ++at;
  return at;
}

MemoryOperands operands_of(const RowInfo& row, std::uint32_t word) {
  const MemoryForm& m = row.memory;
  const unsigned n5 = word >> 5 & 31, n16 = word >> 16 & 31;
  MemoryOperands o = {word & 31, word >> 10 & 7, n5, 31, 0};
  if (m.access == AccessKind::fill || m.access == AccessKind::spill) {
    o.governing = 16;
    if (m.predicate_register) o.data = word & 15;
  }
  if (m.address == AddressForm::base_index) o.index = n16;
  o.vector = m.address == AddressForm::vector_immediate ? n5 : n16;
  return o;
}

unsigned immediate_unit(const MemoryForm& m) { return m.row->offset_unit(); }

MemoryPlan plan_accesses(const RowInfo& row, std::uint32_t word, const Machine& state) {
  const MemoryForm& m = row.memory;
  const MemoryOperands o = operands_of(row, word);
  MemoryPlan plan;
  const std::uint64_t base = o.base == 31 ? state.sp : state.x[o.base];
  const std::uint64_t index = o.index == 31 ? 0 : state.x[o.index];
  const auto immediate = static_cast<std::uint64_t>(static_cast<std::int64_t>(m.imm(word)) * immediate_unit(m));
  const auto offset = [&](unsigned e) -> std::uint64_t {
    if (m.element_bytes == 4) {
      std::uint32_t v;
      std::memcpy(&v, state.z[o.vector] + 4 * e, 4);
      return m.extension == OffsetExtension::sign_32
                 ? static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<std::int32_t>(v)))
                 : v;
    }
    std::uint64_t v;
    std::memcpy(&v, state.z[o.vector] + 8 * e, 8);
    if (m.extension == OffsetExtension::zero_32) return v & 0xffffffff;
    if (m.extension == OffsetExtension::sign_32)
      return static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<std::int32_t>(v)));
    return v;
  };
  if (m.address == AddressForm::base_immediate) plan.start = base + immediate;
  if (m.address == AddressForm::base_index) plan.start = base + index * m.memory_bytes;
  for (unsigned e = 0; e < m.elements(); ++e) {
    const bool quadword = m.access == AccessKind::replicate_quadword;
    const unsigned predicate_byte = quadword ? e * m.memory_bytes : e * m.element_bytes;
    const bool active = o.governing == 16 || element_active(state.p[o.governing], predicate_byte);
    for (unsigned k = 0; k < m.registers; ++k) {
      std::uint64_t address = 0;
      switch (m.address) {
        case AddressForm::vector_immediate:
          address = offset(e) + immediate;
          break;
        case AddressForm::base_vector:
          address = base + offset(e);
          break;
        case AddressForm::base_vector_scaled:
          address = base + offset(e) * m.memory_bytes;
          break;
        default:
          address = plan.start +
                    (m.access == AccessKind::replicate ? 0 : (std::uint64_t{e} * m.registers + k) * m.memory_bytes);
      }
      plan.accesses[plan.count++] = {address, static_cast<std::uint16_t>(e), static_cast<std::uint16_t>(predicate_byte),
                                     static_cast<std::uint8_t>(k), active};
    }
  }
  return plan;
}

}  // namespace conformance
