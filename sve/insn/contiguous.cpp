// Contiguous loads and stores: predicated, non-temporal (as plain ones), replicating, and of whole registers.
#include "sve/insn/memory.h"
#include "sve/lanes/predicate_bits.h"

using namespace sve;

namespace {

// Element T of the register from element M of memory, which is packed: zeroing, in rising order, no inactive element
// read. M carries the extension by its signedness.
template <class T, class M>
aarch64_decode_rc load_from(cpu_state* state, aarch64_z_reg zt, aarch64_p_reg pg, std::uint64_t start) {
  byte* dst = z_of(state, zt);
  const byte* predicate = p_of(state, pg);
  // A load that faults has written the elements below: a wide access may stand in only where no fault can split it.
  if (all_active<T>(predicate) && within_page(start, lanes<T> * sizeof(M))) {
    const byte* src = reinterpret_cast<const byte*>(start);
    if constexpr (sizeof(T) == sizeof(M)) {
      std::memcpy(dst, src, vector_bytes);
    } else {
#pragma GCC ivdep
      for (std::size_t e = 0; e < lanes<T>; ++e) store<T>(dst, e, static_cast<T>(load<M>(src, e)));
    }
    return executed;
  }
  for (std::size_t e = 0; e < lanes<T>; ++e) {
    store<T>(dst, e, active<T>(predicate, e) ? static_cast<T>(read_memory<M>(start + e * sizeof(M))) : T{0});
    keep_order();
  }
  return executed;
}

// The low bytes of each active element, in rising order.
template <class T, class M>
aarch64_decode_rc store_to(cpu_state* state, aarch64_z_reg zt, aarch64_p_reg pg, std::uint64_t start) {
  const byte* src = z_of(state, zt);
  const byte* predicate = p_of(state, pg);
  // A store that faults has stored the elements below: a wide access may stand in only where no fault can split it.
  if (all_active<T>(predicate) && within_page(start, lanes<T> * sizeof(M))) {
    byte* dst = reinterpret_cast<byte*>(start);
    if constexpr (sizeof(T) == sizeof(M)) {
      std::memcpy(dst, src, vector_bytes);
    } else {
      M narrow[lanes<T>];
      for (std::size_t e = 0; e < lanes<T>; ++e) narrow[e] = static_cast<M>(load<T>(src, e));
      std::memcpy(dst, narrow, sizeof narrow);
    }
    return executed;
  }
  for (std::size_t e = 0; e < lanes<T>; ++e)
    if (active<T>(predicate, e)) write_memory<M>(start + e * sizeof(M), static_cast<M>(load<T>(src, e)));
  return executed;
}

// Start address of a load or store of M into elements of T, from an immediate count of whole transfers and from an
// index.
template <class T, class M>
std::uint64_t start_at(cpu_state* state, aarch64_i_rsp_reg rn, int imm) {
  return read(state, rn) + static_cast<std::uint64_t>(static_cast<std::int64_t>(imm)) * (lanes<T> * sizeof(M));
}
template <class M>
std::uint64_t start_at(cpu_state* state, aarch64_i_rsp_reg rn, aarch64_i_reg rm) {
  return read(state, rn) + read(state, rm) * sizeof(M);
}

// Each active element makes its own read of one address.
template <class T, class M>
aarch64_decode_rc replicate(cpu_state* state, aarch64_z_reg zt, aarch64_p_reg pg, aarch64_i_rsp_reg rn,
                            unsigned int imm) {
  const std::uint64_t address = read(state, rn) + std::uint64_t{imm} * sizeof(M);
  byte* dst = z_of(state, zt);
  const byte* predicate = p_of(state, pg);
  const auto read = [address] {
    M element = read_memory<M>(address);
    asm volatile("" : "+r"(element) : : "memory");  // keeps one read an element
    return static_cast<T>(element);
  };
  if (all_active<T>(predicate)) {
    if constexpr (native::reads_elements)
      store_pieces(dst, [address](std::size_t) { return native::repeated_reads<T, M>(address); });
    else
#pragma GCC unroll 16
      for (std::size_t e = 0; e < lanes<T>; ++e) store<T>(dst, e, read());
  } else {
    for (std::size_t e = 0; e < lanes<T>; ++e) store<T>(dst, e, active<T>(predicate, e) ? read() : T{0});
  }
  return executed;
}

}  // namespace

#define LOAD_SI(name, T, M) \
  SVE_ZPRI(name) { return load_from<T, M>(state, zt, pg, start_at<T, M>(state, rn, imm)); }
#define LOAD(name, T, M) \
  LOAD_SI(name, T, M)    \
  SVE_ZPRR(name) { return load_from<T, M>(state, zt, pg, start_at<M>(state, rn, rm)); }
#define STORE_SI(name, T, M) \
  SVE_ZPRI(name) { return store_to<T, M>(state, zt, pg, start_at<T, M>(state, rn, imm)); }
#define STORE(name, T, M) \
  STORE_SI(name, T, M)    \
  SVE_ZPRR(name) { return store_to<T, M>(state, zt, pg, start_at<M>(state, rn, rm)); }
#define REPLICATE(name, T, M)                                                                                     \
  aarch64_decode_rc sve_##name##_zpri(cpu_state* state, aarch64_z_reg zt, aarch64_p_reg pg, aarch64_i_rsp_reg rn, \
                                      unsigned int imm) {                                                         \
    return replicate<T, M>(state, zt, pg, rn, imm);                                                               \
  }

SVE_LOAD_FUNCTIONS(LOAD, ld1)
SVE_STORE_FUNCTIONS(STORE, st1)
SVE_LOAD_FUNCTIONS(REPLICATE, ld1r)

// Non-temporal forms move the same elements; there is no hint to pass on.
SVE_SAME_SIZE_FUNCTIONS(LOAD, ldnt1)
SVE_SAME_SIZE_FUNCTIONS(STORE, stnt1)

// Names of forms that no encoding produces; they behave as the plain forms of the same sizes.
LOAD_SI(ld1sb, u8, u8)
LOAD_SI(ld1sh, u16, u16)
LOAD_SI(ld1sw, u32, u32)
LOAD_SI(ld1sd, u64, u64)
STORE_SI(st1sb, u8, u8)
STORE_SI(st1sb_h, u16, u8)
STORE_SI(st1sb_s, u32, u8)
STORE_SI(st1sb_d, u64, u8)
STORE_SI(st1sh, u16, u16)
STORE_SI(st1sh_s, u32, u16)
STORE_SI(st1sh_d, u64, u16)
STORE_SI(st1sw, u32, u32)
STORE_SI(st1sw_d, u64, u32)
STORE_SI(st1sd, u64, u64)

namespace {

// The offset is formed as a signed 32-bit value.
std::uint64_t offset_by(cpu_state* state, aarch64_i_rsp_reg rn, int imm, std::size_t unit) {
  return read(state, rn) + static_cast<std::uint64_t>(static_cast<std::int64_t>(imm * static_cast<int>(unit)));
}

}  // namespace

// ldr Zt, [Xn|SP, #imm, mul vl]: rising 16-byte pieces, so that a fault leaves the pieces below it loaded.
aarch64_decode_rc sve_ldr_zri(cpu_state* state, aarch64_z_reg zt, aarch64_i_rsp_reg rn, int imm) {
  const std::uint64_t address = offset_by(state, rn, imm, vector_bytes);
  byte* dst = z_of(state, zt);
  if (within_page(address, vector_bytes)) {
    std::memcpy(dst, reinterpret_cast<const void*>(address), vector_bytes);
    return executed;
  }
  for (std::size_t i = 0; i < vector_bytes; i += 16) {
    std::memcpy(dst + i, reinterpret_cast<const void*>(address + i), 16);
    keep_order();
  }
  return executed;
}

// str Zt, [Xn|SP, #imm, mul vl]: rising 16-byte pieces, so that a fault leaves the pieces below it stored.
aarch64_decode_rc sve_str_zri(cpu_state* state, aarch64_z_reg zt, aarch64_i_rsp_reg rn, int imm) {
  const std::uint64_t address = offset_by(state, rn, imm, vector_bytes);
  const byte* src = z_of(state, zt);
  if (within_page(address, vector_bytes)) {
    std::memcpy(reinterpret_cast<void*>(address), src, vector_bytes);
    return executed;
  }
  for (std::size_t i = 0; i < vector_bytes; i += 16) {
    std::memcpy(reinterpret_cast<void*>(address + i), src + i, 16);
    keep_order();
  }
  return executed;
}

// A packed predicate is moved in words of 8 bytes. Where its bytes are no multiple of that the last word is read and
// written again over the end of the one before it: no byte beyond is touched.
inline constexpr std::size_t whole_words = predicate_bytes / 8, bytes_over = predicate_bytes % 8;

// ldr Pt, [Xn|SP, #imm, mul vl]
aarch64_decode_rc sve_ldr_pri(cpu_state* state, aarch64_p_reg pt, aarch64_i_rsp_reg rn, int imm) {
  const std::uint64_t address = offset_by(state, rn, imm, predicate_bytes);
  PredicateWords packed{};
#pragma GCC unroll 4
  for (std::size_t w = 0; w < whole_words; ++w) packed.words[w] = read_memory<std::uint64_t>(address + 8 * w);
  if constexpr (whole_words == 0)
    std::memcpy(packed.words, reinterpret_cast<const void*>(address), bytes_over);
  else if constexpr (bytes_over != 0)
    packed.words[whole_words] = read_memory<std::uint64_t>(address + predicate_bytes - 8) >> (64 - 8 * bytes_over);
  unpack_register(packed.words, p_of(state, pt));
  return executed;
}

// str Pt, [Xn|SP, #imm, mul vl]
aarch64_decode_rc sve_str_pri(cpu_state* state, aarch64_p_reg pt, aarch64_i_rsp_reg rn, int imm) {
  const std::uint64_t address = offset_by(state, rn, imm, predicate_bytes);
  const RegisterBits packed(p_of(state, pt));
#pragma GCC unroll 4
  for (std::size_t w = 0; w < whole_words; ++w) write_memory(address + 8 * w, packed.words[w]);
  if constexpr (whole_words == 0)
    std::memcpy(reinterpret_cast<void*>(address), packed.words, bytes_over);
  else if constexpr (bytes_over != 0)
    write_memory(address + predicate_bytes - 8, packed.words[whole_words] << (64 - 8 * bytes_over) |
                                                    packed.words[whole_words - 1] >> (8 * bytes_over));
  return executed;
}
