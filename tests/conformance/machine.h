// The architectural state that both sides start from and end in, in the processor's own form: predicates packed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "sve/state/cpu_state.h"

namespace conformance {

/// The trampolines of native.S know these offsets.
struct alignas(16) Machine {
  std::uint64_t x[31];
  std::uint64_t sp;
  std::uint64_t nzcv;
  std::uint64_t fpsr;
  std::uint64_t fpcr;
  std::uint64_t unused;
  std::uint8_t z[32][sve::vector_bytes];
  std::uint8_t p[16][sve::predicate_bytes];
  std::uint8_t ffr[sve::predicate_bytes];
};
static_assert(offsetof(Machine, z) == 288 && offsetof(Machine, p) == 288 + 32 * sve::vector_bytes &&
              offsetof(Machine, ffr) == 288 + 34 * sve::vector_bytes);

inline constexpr unsigned register_31 = 31;

inline bool element_active(const std::uint8_t* predicate, std::size_t first_byte) {
  return predicate[first_byte / 8] >> (first_byte % 8) & 1;
}
inline void set_bit(std::uint8_t* predicate, std::size_t bit, bool value) {
  const auto mask = static_cast<std::uint8_t>(1u << (bit % 8));
  predicate[bit / 8] = static_cast<std::uint8_t>(value ? predicate[bit / 8] | mask : predicate[bit / 8] & ~mask);
}

/// Bit i of the packed form to byte i, and back.
inline void widen(const std::uint8_t (&bits)[sve::predicate_bytes], std::uint8_t* bytes) {
  for (std::size_t i = 0; i < sve::predicate_bytes; ++i) {
    // Byte k keeps bit k alone, and any byte that is not 0 becomes 1.
    const std::uint64_t copies = bits[i] * 0x0101010101010101u & 0x8040201008040201u;
    const std::uint64_t flags = (copies + 0x7f7f7f7f7f7f7f7fu) >> 7 & 0x0101010101010101u;
    std::memcpy(bytes + 8 * i, &flags, 8);
  }
}
inline void narrow(const std::uint8_t* bytes, std::uint8_t (&bits)[sve::predicate_bytes]) {
  for (std::size_t i = 0; i < sve::predicate_bytes; ++i) {
    std::uint64_t flags;
    std::memcpy(&flags, bytes + 8 * i, 8);
    bits[i] = static_cast<std::uint8_t>((flags & 0x0101010101010101u) * 0x0102040810204080u >> 56);
  }
}

inline void to_model(const Machine& from, cpu_state& to) {
  std::memcpy(to.x, from.x, sizeof to.x);
  to.sp = from.sp;
  to.nzcv = from.nzcv;
  to.fpsr = static_cast<std::uint32_t>(from.fpsr);
  to.fpcr = static_cast<std::uint32_t>(from.fpcr);
  to.fpcr_extra = 0;
  std::memcpy(to.z, from.z, sizeof to.z);
  for (int n = 0; n < 16; ++n) widen(from.p[n], to.p[n]);
  widen(from.ffr, to.ffr);
  to.instr = 0;
}

/// Returns false if a predicate byte holds more than its bit 0.
inline bool from_model(const cpu_state& from, Machine& to) {
  std::memcpy(to.x, from.x, sizeof to.x);
  to.sp = from.sp;
  to.nzcv = from.nzcv;
  to.fpsr = from.fpsr;
  to.fpcr = from.fpcr;
  to.unused = 0;
  std::memcpy(to.z, from.z, sizeof to.z);
  for (int n = 0; n < 16; ++n) narrow(from.p[n], to.p[n]);
  narrow(from.ffr, to.ffr);
  std::uint64_t stray = 0;
  const auto collect = [&stray](const std::uint8_t* bytes, std::size_t size) {
    for (std::size_t i = 0; i < size; i += 8) {
      std::uint64_t chunk;
      std::memcpy(&chunk, bytes + i, 8);
      stray |= chunk;
    }
  };
  collect(from.p[0], sizeof from.p);
  collect(from.ffr, sizeof from.ffr);
  return (stray & 0xfefefefefefefefeu) == 0;
}

}  // namespace conformance
