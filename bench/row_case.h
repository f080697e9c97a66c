// One measurable case for each row of the instruction table: a word with fixed operands, and the register contents it
// runs on. The benchmark of the model and the program that runs the same words natively share it.
#pragma once

#include <sys/mman.h>

#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include "sve/decode/table.h"

namespace bench {

/// Memory below 4 GiB, so that vectors of 32-bit bases can point into it.
inline constexpr std::uint64_t window_address = 0x30000000;
inline constexpr std::size_t window_bytes = 1 << 16;

/// Maps the window; ends the program if it cannot.
inline void map_window() {
  void* at = mmap(reinterpret_cast<void*>(window_address), window_bytes, PROT_READ | PROT_WRITE,
                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  if (at != reinterpret_cast<void*>(window_address)) {
    std::perror("cannot map the benchmark's memory");
    std::exit(1);
  }
  std::memset(at, 0x5a, window_bytes);
}

/// What the registers of a case hold. Zd, Zdn and Pd are 0, Zn and Rn 1, Zm and Rm 2, the governing predicate is P1.
struct Registers {
  alignas(16) std::uint8_t
      z[4][sve::vector_bytes];  ///< Z3 keeps a copy of Z0, to which floating-point cases return after each word
  std::uint64_t x1, x2;         ///< base inside the window, index
};

struct RowCase {
  std::uint32_t word;
  Registers values;
  bool floating_point;  ///< destructive operations on real numbers would run away: Z0 is restored after each word
};

template <class T, class Next>
void fill(std::uint8_t* z, Next next) {
  for (std::size_t i = 0; i < sve::lanes<T>; ++i) {
    const T value = static_cast<T>(next());
    std::memcpy(z + i * sizeof(T), &value, sizeof value);
  }
}

inline RowCase make_case(const sve::decode::Map& map, const sve::decode::Row& row) {
  using namespace sve::decode;
  RowCase c{};
  // Registers 1 and 2 as sources, by the usual places of their fields; no offset, or index 0; the pattern ALL; a mask
  // of eight ones in 64. The row's fixed bits win.
  std::uint32_t operands = 1u << 5 | 1u << 10 | 2u << 16;
  for (const Operand& o : row.operands()) {
    if (o.role == OperandRole::offset && !o.is_register()) operands &= ~(0x3fu << 16);
    if (o.kind == OperandKind::pattern) operands = 31u << 5;
    if (o.spelled == Spelling::logical) operands = 1u << 17 | 7u << 5;
  }
  c.word = map.word(row.key) | (operands & ~map.fixed_bits);

  std::mt19937_64 random(row.key);
  const auto any = [&] { return random(); };
  for (auto& z : c.values.z) fill<std::uint64_t>(z, any);
  c.floating_point = row.function->floating_point;
  const unsigned bytes = row.element_bytes();
  if (c.floating_point) {
    // Numbers near 1 at the width of the type.
    for (int k = 0; k < 3; ++k) {
      if (bytes == 2) fill<std::uint16_t>(c.values.z[k], [&] { return 0x3c00u | (random() & 0x3ff); });
      if (bytes == 4) fill<std::uint32_t>(c.values.z[k], [&] { return 0x3f800000u | (random() & 0x7fffff); });
      if (bytes == 8)
        fill<std::uint64_t>(c.values.z[k], [&] { return 0x3ff0000000000000u | (random() & 0xfffffffffffffu); });
    }
  }
  if (row.function->is_memory()) {
    const auto offset = [&] { return random() % 64; };
    const auto address = [&] { return window_address + 4096 + random() % 2048; };
    if (bytes == 4) {
      fill<std::uint32_t>(c.values.z[1], address);
      fill<std::uint32_t>(c.values.z[2], offset);
    } else {
      fill<std::uint64_t>(c.values.z[1], address);
      fill<std::uint64_t>(c.values.z[2], offset);
    }
  }
  std::memcpy(c.values.z[3], c.values.z[0], sizeof c.values.z[0]);
  c.values.x1 = window_address + 8192;
  c.values.x2 = 0;
  return c;
}

}  // namespace bench
