#include "sve/report/lane_use.h"

#include <bit>
#include <cstring>

namespace sve {
namespace {

using decode::AccessKind;
using decode::AddressForm;
using decode::Operand;
using decode::OperandKind;
using decode::OperandRole;
using decode::Row;

constexpr std::uint64_t page_size = 4096;

// Notes the pages that an instruction touches.
struct PageWatch {
  bool any = false, crossing = false;
  std::uint64_t page = 0;
  void touch(std::uint64_t address, std::uint64_t size) {
    for (const std::uint64_t at : {address, address + size - 1}) {
      crossing |= any && at / page_size != page;
      page = at / page_size;
      any = true;
    }
  }
};

std::uint64_t element(const std::uint8_t* vector, unsigned bytes, unsigned n) {
  std::uint64_t value = 0;
  std::memcpy(&value, vector + bytes * n, bytes);
  return value;
}

bool is_active(const cpu_state* state, unsigned p, unsigned byte) { return state->p[p][byte] & 1; }

std::uint64_t general(const cpu_state* state, const Operand& o, std::uint32_t word) {
  const std::uint32_t n = o.number(word);
  if (n == 31) return o.kind == OperandKind::x_or_sp ? state->sp : 0;
  return state->x[n];
}

// Of the elements of one execution.
struct Observation {
  bool governed = false;
  unsigned elements = 0, active = 0;
  std::uint64_t bytes = 0;
  PageWatch pages;
};

void observe_memory(const cpu_state* state, std::uint32_t word, const Row& r, const Operand* governing,
                    Observation& seen) {
  const decode::InstructionFunction& f = *r.function;
  const Operand *base = r.find(OperandRole::base), *offset = r.find(OperandRole::offset);
  const std::uint64_t size = std::uint64_t{f.memory_bytes} * f.registers;
  const unsigned element_bytes = r.element_bytes() ? r.element_bytes() : 1;
  std::uint64_t start = base && base->kind != OperandKind::z ? general(state, *base, word) : 0;
  const unsigned shift = offset && offset->shift == Operand::by_access
                             ? static_cast<unsigned>(std::countr_zero(unsigned{f.memory_bytes}))
                             : (offset ? offset->shift : 0u);
  if (offset && offset->kind == OperandKind::x) start += general(state, *offset, word) << shift;
  if (offset && offset->kind == OperandKind::immediate)
    start += static_cast<std::uint64_t>(offset->value(word) * static_cast<std::int64_t>(r.offset_unit()));
  const Operand* const vector = base && base->kind == OperandKind::z       ? base
                                : offset && offset->kind == OperandKind::z ? offset
                                                                           : nullptr;
  const unsigned elements = f.access == AccessKind::replicate ? 1 : r.memory_elements();
  for (unsigned i = 0; i < elements; ++i) {
    const bool active = f.access == AccessKind::replicate
                            ? seen.active != 0
                            : !governing || is_active(state, governing->number(word), i * element_bytes);
    if (!active) continue;
    std::uint64_t address = start + i * size;
    if (vector) {
      std::uint64_t value = element(state->z[vector->number(word)], element_bytes, i);
      if (vector->extends == decode::Extension::sxtw)
        value = static_cast<std::uint64_t>(std::int64_t{static_cast<std::int32_t>(value)});
      if (vector->extends == decode::Extension::uxtw) value = static_cast<std::uint32_t>(value);
      address = start + (vector == offset ? value << shift : value);
    }
    seen.bytes += size;
    seen.pages.touch(address, size);
  }
}

Observation observe(const cpu_state* state, std::uint32_t word, const Row& r) {
  Observation seen;
  const Operand* const governing = r.find(OperandRole::governing);
  const unsigned element_bytes = r.element_bytes() ? r.element_bytes() : 1;
  if (governing) {
    seen.governed = true;
    seen.elements = static_cast<unsigned>(vector_bytes) / element_bytes;
    if (r.function->access == AccessKind::replicate_quadword) seen.elements = r.memory_elements();
    for (unsigned i = 0; i < seen.elements; ++i)
      seen.active += is_active(state, governing->number(word), i * element_bytes);
  }
  if (r.function->is_memory()) observe_memory(state, word, r, governing, seen);
  return seen;
}

unsigned first_fault_elements(const cpu_state* state) {
  unsigned n = 0;
  for (const std::uint8_t byte : state->ffr) n += byte & 1;
  return n;
}

}  // namespace

bool has_lane_use(const Row& r) { return r.find(OperandRole::governing) || r.function->is_memory(); }

aarch64_decode_rc execute_and_count(cpu_state* state, std::uint32_t word, const Row& r, LaneUse* use) {
  // Before it is executed, as it may overwrite what governs it.
  const Observation seen = observe(state, word, r);
  const unsigned readable = r.function->speculative() ? first_fault_elements(state) : 0;
  const aarch64_decode_rc done = r.handle(state, word);
  if (done != AARCH64_DECODE_EXECUTED) return done;
  constexpr auto relaxed = std::memory_order_relaxed;
  use->executions.fetch_add(1, relaxed);
  if (seen.governed) {
    use->active.fetch_add(seen.active, relaxed);
    use->bins[lane_bin(seen.active, seen.elements)].fetch_add(1, relaxed);
  }
  if (seen.bytes != 0) use->bytes.fetch_add(seen.bytes, relaxed);
  if (seen.pages.crossing) use->crossing.fetch_add(1, relaxed);
  if (r.function->speculative() && first_fault_elements(state) < readable) use->shortened.fetch_add(1, relaxed);
  return done;
}

}  // namespace sve
