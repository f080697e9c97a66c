// Moves of elements: broadcasts, predicated copies, selects, interleaves, reversals, unpacks, extracts, the move prefix
// and the index generator. A destination may be one of the sources.
#include "sve/insn/lanes.h"
#include "sve/lanes/lookup.h"
#include "sve/lanes/predicate_bits.h"

using namespace sve;

namespace {

// Calls `body` with the element type of a size code and a destination buffer, then copies the buffer to `dst`: for
// operations that read elements other than the one they write.
template <class Body>
aarch64_decode_rc buffered(unsigned int size, byte* dst, Body body) {
  return for_size(size, [&](auto element) {
    alignas(32) byte result[vector_bytes];
    body(element, result);
    std::memcpy(dst, result, vector_bytes);
  });
}

template <class T>
void broadcast(byte* dst, T value) {
  for (std::size_t i = 0; i < lanes<T>; ++i) store<T>(dst, i, value);
}

// ---- Interleaves, on any two buffers of the register's size: Z registers or predicates in byte form ----

inline constexpr std::size_t half_bytes = vector_bytes / 2;

template <class T>
void zip(byte* dst, const byte* a, const byte* b) {
  for (std::size_t i = 0; i < lanes<T> / 2; ++i) {
    store<T>(dst, 2 * i, load<T>(a, i));
    store<T>(dst, 2 * i + 1, load<T>(b, i));
  }
}

template <class T>
void unzip(byte* dst, const byte* a, const byte* b, std::size_t odd) {
  constexpr std::size_t m = lanes<T> / 2;
  for (std::size_t i = 0; i < m; ++i) store<T>(dst, i, load<T>(a, 2 * i + odd));
  for (std::size_t i = 0; i < m; ++i) store<T>(dst, m + i, load<T>(b, 2 * i + odd));
}

template <class T>
void transpose(byte* dst, const byte* a, const byte* b, std::size_t odd) {
  for (std::size_t i = 0; i < lanes<T>; i += 2) {
    store<T>(dst, i, load<T>(a, i + odd));
    store<T>(dst, i + 1, load<T>(b, i + odd));
  }
}

template <class T>
void reverse(byte* dst, const byte* src) {
  for (std::size_t i = 0; i < lanes<T>; ++i) store<T>(dst, i, load<T>(src, lanes<T> - 1 - i));
}

byte* bytes(char* p) { return reinterpret_cast<byte*>(p); }
char* chars(byte* p) { return reinterpret_cast<char*>(p); }

using Interleave = void (*)(char*, char*, char*, element_size);

// The Z and the P form of an interleave share one body: a byte-form predicate has the shape of a vector.
aarch64_decode_rc interleaved(byte* dst, byte* a, byte* b, unsigned int size, Interleave body) {
  alignas(32) byte result[vector_bytes];
  body(chars(result), chars(a), chars(b), static_cast<element_size>(size));
  std::memcpy(dst, result, vector_bytes);
  return executed;
}

// Index of the last active element of T, or -1.
template <class T>
int last_active(const byte* predicate) {
  const int last = (RegisterPlaces(predicate) & RegisterPlaces::elements(sizeof(T))).last();
  return last < 0 ? -1 : last / static_cast<int>(sizeof(T));
}

// The last active element, or the top element if none is active.
template <class T>
T last_element(const byte* predicate, const byte* src) {
  const int last = last_active<T>(predicate);
  return load<T>(src, last < 0 ? lanes<T> - 1 : static_cast<std::size_t>(last));
}

template <class To, class From>
aarch64_decode_rc unpack(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, std::size_t first_byte) {
  static_assert(sizeof(To) == 2 * sizeof(From));
  byte half[half_bytes];
  std::memcpy(half, z_of(state, zn) + first_byte, half_bytes);
  byte* dst = z_of(state, zd);
  for (std::size_t i = 0; i < lanes<To>; ++i) store<To>(dst, i, static_cast<To>(load<From>(half, i)));
  return executed;
}

// The flag of each source byte becomes the flag of a 16-bit unit.
aarch64_decode_rc unpack_predicate(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pn, std::size_t first_byte) {
  byte half[half_bytes];
  std::memcpy(half, p_of(state, pn) + first_byte, half_bytes);
  byte* dst = p_of(state, pd);
  for (std::size_t i = 0; i < half_bytes; ++i) store<std::uint16_t>(dst, i, half[i] & 1);
  return executed;
}

// start + e * step in wrapping arithmetic of 32 bits, or of 64 for 64-bit elements.
aarch64_decode_rc index(cpu_state* state, aarch64_z_reg zd, std::uint64_t start, std::uint64_t step) {
  return for_size(zd.size, [&](auto element) {
    using T = decltype(element);
    const T first = static_cast<T>(start), by = static_cast<T>(step);
    byte* dst = z_of(state, zd);
    using Wide = std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>;
    for (std::size_t e = 0; e < lanes<T>; ++e)
      store<T>(dst, e, static_cast<T>(Wide{first} + static_cast<Wide>(e) * Wide{by}));
  });
}

std::uint64_t extended(int imm) { return static_cast<std::uint64_t>(std::int64_t{imm}); }

}  // namespace

void sve_zip1(char* dst, char* a, char* b, element_size es) {
  for_size(es, [&](auto element) { zip<decltype(element)>(bytes(dst), bytes(a), bytes(b)); });
}

void sve_zip2(char* dst, char* a, char* b, element_size es) {
  for_size(es, [&](auto element) { zip<decltype(element)>(bytes(dst), bytes(a) + half_bytes, bytes(b) + half_bytes); });
}

void sve_uzp1(char* dst, char* a, char* b, element_size es) {
  for_size(es, [&](auto element) { unzip<decltype(element)>(bytes(dst), bytes(a), bytes(b), 0); });
}

// dup Zd.T, #imm
aarch64_decode_rc sve_dup_zi(cpu_state* state, aarch64_z_reg zd, int imm) {
  return for_size(zd.size, [&](auto element) { broadcast(z_of(state, zd), static_cast<decltype(element)>(imm)); });
}

// fdup Zd.T, #imm
aarch64_decode_rc sve_fdup_zi(cpu_state* state, aarch64_z_reg zd, aarch64_sve_fp_dup_imm imm) {
  if (zd.size == element_d)
    broadcast(z_of(state, zd), imm.double_);
  else if (zd.size == element_s)
    broadcast(z_of(state, zd), imm.single);
  else
    broadcast(z_of(state, zd), imm.half);
  return executed;
}

// dup Zd.T, Rn|SP
aarch64_decode_rc sve_dup_zr(cpu_state* state, aarch64_z_reg zd, aarch64_i_rsp_reg rn) {
  const std::uint64_t value = read(state, rn);
  return for_size(zd.size, [&](auto element) { broadcast(z_of(state, zd), static_cast<decltype(element)>(value)); });
}

// dup Zd.T, Zn.T[index]: 0 for an index whose byte offset lies beyond the vector.
aarch64_decode_rc sve_dup_zzi(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, unsigned int index) {
  byte* dst = z_of(state, zd);
  const byte* src = z_of(state, zn);
  if (zd.size == element_q) {
    constexpr std::size_t quadword = 16;
    byte unit[quadword] = {};
    if (index * quadword < vector_bytes) std::memcpy(unit, src + index * quadword, quadword);
    for (std::size_t i = 0; i < vector_bytes; i += quadword) std::memcpy(dst + i, unit, quadword);
    return executed;
  }
  return for_size(zd.size, [&](auto element) {
    using T = decltype(element);
    broadcast(dst, index * sizeof(T) < vector_bytes ? load<T>(src, index) : T{0});
  });
}

// dupm Zd.D, #imm
aarch64_decode_rc sve_dupm_zi(cpu_state* state, aarch64_z_reg zd, aarch64_sve_logical64_imm imm) {
  broadcast(z_of(state, zd), imm.value);
  return executed;
}

// cpy Zd.T, Pg/ZM, #imm
aarch64_decode_rc sve_cpy_zpi(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, int imm) {
  return for_size(zd.size, [&](auto element) {
    using T = decltype(element);
    const T value = static_cast<T>(imm);
    byte* dst = z_of(state, zd);
    if (pg.size == aarch64_p_reg::zeroing)
      zero_lanes<T>(dst, p_of(state, pg), lanes<T>, [value] { return value; });
    else
      merge_lanes<T>(dst, dst, p_of(state, pg), lanes<T>, [value] { return value; });
  });
}

// cpy Zd.T, Pg/M, Rn|SP
aarch64_decode_rc sve_cpy_zpr(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_i_rsp_reg rn) {
  return for_size(zd.size, [&](auto element) {
    using T = decltype(element);
    const T value = static_cast<T>(read(state, rn));
    byte* dst = z_of(state, zd);
    merge_lanes<T>(dst, dst, p_of(state, pg), lanes<T>, [value] { return value; });
  });
}

// cpy Zd.T, Pg/M, Vn
aarch64_decode_rc sve_cpy_zpv(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg vn) {
  return for_size(zd.size, [&](auto element) {
    using T = decltype(element);
    const T value = load<T>(z_of(state, vn), 0);
    byte* dst = z_of(state, zd);
    merge_lanes<T>(dst, dst, p_of(state, pg), lanes<T>, [value] { return value; });
  });
}

// sel Zd.T, Pg, Zn.T, Zm.T
aarch64_decode_rc sve_sel_zpzz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn,
                               aarch64_z_reg zm) {
  return for_size(zd.tied_dst_size, [&](auto element) {
    using T = decltype(element);
    merge_lanes<T>(
        z_of(state, zd), z_of(state, zm), p_of(state, pg), lanes<T>, [](T a) { return a; }, z_of(state, zn));
  });
}

// sel Pd.B, Pg, Pn.B, Pm.B: whole bytes.
aarch64_decode_rc sve_sel_pppp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, aarch64_p_reg pn,
                               aarch64_p_reg pm) {
  byte result[vector_bytes];
  merge_lanes<byte>(
      result, p_of(state, pm), p_of(state, pg), vector_bytes, [](byte a) { return a; }, p_of(state, pn));
  std::memcpy(p_of(state, pd), result, vector_bytes);
  return executed;
}

// ext Zdn.B, Zdn.B, Zm.B, #imm: a start beyond the vector counts as 0.
aarch64_decode_rc sve_ext_zzi(cpu_state* state, aarch64_z_reg zdn, aarch64_z_reg zm, unsigned int imm) {
  byte both[2 * vector_bytes];
  std::memcpy(both, z_of(state, zdn), vector_bytes);
  std::memcpy(both + vector_bytes, z_of(state, zm), vector_bytes);
  std::memcpy(z_of(state, zdn), both + (imm < vector_bytes ? imm : 0), vector_bytes);
  return executed;
}

// tbl Zd.T, {Zn.T}, Zm.T: an index beyond the vector gives 0.
aarch64_decode_rc sve_tbl_zzz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, aarch64_z_reg zm) {
  return for_size(zd.size,
                  [&](auto element) { look_up<decltype(element)>(z_of(state, zd), z_of(state, zn), z_of(state, zm)); });
}

// zip1 Zd.T, Zn.T, Zm.T
aarch64_decode_rc sve_zip1_zzz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, aarch64_z_reg zm) {
  return interleaved(z_of(state, zd), z_of(state, zn), z_of(state, zm), zd.size, sve_zip1);
}

// zip2 Zd.T, Zn.T, Zm.T
aarch64_decode_rc sve_zip2_zzz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, aarch64_z_reg zm) {
  return interleaved(z_of(state, zd), z_of(state, zn), z_of(state, zm), zd.size, sve_zip2);
}

// uzp1 Zd.T, Zn.T, Zm.T
aarch64_decode_rc sve_uzp1_zzz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, aarch64_z_reg zm) {
  return interleaved(z_of(state, zd), z_of(state, zn), z_of(state, zm), zd.size, sve_uzp1);
}

// zip1 Pd.T, Pn.T, Pm.T
aarch64_decode_rc sve_zip1_ppp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pn, aarch64_p_reg pm) {
  return interleaved(p_of(state, pd), p_of(state, pn), p_of(state, pm), pd.size, sve_zip1);
}

// zip2 Pd.T, Pn.T, Pm.T
aarch64_decode_rc sve_zip2_ppp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pn, aarch64_p_reg pm) {
  return interleaved(p_of(state, pd), p_of(state, pn), p_of(state, pm), pd.size, sve_zip2);
}

// uzp1 Pd.T, Pn.T, Pm.T
aarch64_decode_rc sve_uzp1_ppp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pn, aarch64_p_reg pm) {
  return interleaved(p_of(state, pd), p_of(state, pn), p_of(state, pm), pd.size, sve_uzp1);
}

// uzp2 Zd.T, Zn.T, Zm.T
aarch64_decode_rc sve_uzp2_zzz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, aarch64_z_reg zm) {
  return buffered(zd.size, z_of(state, zd), [&](auto element, byte* result) {
    unzip<decltype(element)>(result, z_of(state, zn), z_of(state, zm), 1);
  });
}

// trn1 Zd.T, Zn.T, Zm.T. Complete, though the rows of the instruction go to the library.
aarch64_decode_rc sve_trn1_zzz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, aarch64_z_reg zm) {
  return buffered(zd.size, z_of(state, zd), [&](auto element, byte* result) {
    transpose<decltype(element)>(result, z_of(state, zn), z_of(state, zm), 0);
  });
}

// trn2 Zd.T, Zn.T, Zm.T
aarch64_decode_rc sve_trn2_zzz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, aarch64_z_reg zm) {
  return buffered(zd.size, z_of(state, zd), [&](auto element, byte* result) {
    transpose<decltype(element)>(result, z_of(state, zn), z_of(state, zm), 1);
  });
}

// trn1 Pd.T, Pn.T, Pm.T. Complete, though the rows of the instruction go to the library.
aarch64_decode_rc sve_trn1_ppp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pn, aarch64_p_reg pm) {
  return buffered(pd.size, p_of(state, pd), [&](auto element, byte* result) {
    transpose<decltype(element)>(result, p_of(state, pn), p_of(state, pm), 0);
  });
}

// rev Zd.T, Zn.T
aarch64_decode_rc sve_rev_zz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn) {
  return buffered(zd.size, z_of(state, zd),
                  [&](auto element, byte* result) { reverse<decltype(element)>(result, z_of(state, zn)); });
}

// rev Pd.T, Pn.T
aarch64_decode_rc sve_rev_pp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pn) {
  return buffered(pd.size, p_of(state, pd),
                  [&](auto element, byte* result) { reverse<decltype(element)>(result, p_of(state, pn)); });
}

#define UNPACK(name, To, From, first_byte)                                                  \
  aarch64_decode_rc sve_##name##_zz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn) { \
    return unpack<To, From>(state, zd, zn, first_byte);                                     \
  }
UNPACK(uunpklo_b2h, std::uint16_t, std::uint8_t, 0)
UNPACK(uunpkhi_b2h, std::uint16_t, std::uint8_t, half_bytes)
UNPACK(uunpklo_h2s, std::uint32_t, std::uint16_t, 0)
UNPACK(uunpkhi_h2s, std::uint32_t, std::uint16_t, half_bytes)
UNPACK(uunpklo_s2d, std::uint64_t, std::uint32_t, 0)
UNPACK(uunpkhi_s2d, std::uint64_t, std::uint32_t, half_bytes)
UNPACK(sunpklo_s2d, std::uint64_t, std::int32_t, 0)
UNPACK(sunpkhi_s2d, std::uint64_t, std::int32_t, half_bytes)

// punpklo Pd.H, Pn.B
aarch64_decode_rc sve_punpklo_pp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pn) {
  return unpack_predicate(state, pd, pn, 0);
}

// punpkhi Pd.H, Pn.B
aarch64_decode_rc sve_punpkhi_pp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pn) {
  return unpack_predicate(state, pd, pn, half_bytes);
}

// lastb Rd, Pg, Zn.T
aarch64_decode_rc sve_lastb_rpz(cpu_state* state, aarch64_i_reg rd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return for_size(zn.size, [&](auto element) {
    write(state, rd, last_element<decltype(element)>(p_of(state, pg), z_of(state, zn)));
  });
}

// lastb Vd, Pg, Zn.T
aarch64_decode_rc sve_lastb_vpz(cpu_state* state, unsigned int vd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return for_size(zn.size, [&](auto element) {
    const std::uint64_t value = last_element<decltype(element)>(p_of(state, pg), z_of(state, zn));
    std::memset(state->z[vd], 0, vector_bytes);
    std::memcpy(state->z[vd], &value, sizeof value);
  });
}

// clastb Rdn, Pg, Rdn, Zm.T: with no active element the register's own element, its upper bits cleared.
aarch64_decode_rc sve_clastb_rpz(cpu_state* state, aarch64_i_reg rdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return for_size(zm.size, [&](auto element) {
    using T = decltype(element);
    const int last = last_active<T>(p_of(state, pg));
    write(state, rdn,
          last < 0 ? static_cast<T>(read(state, rdn)) : load<T>(z_of(state, zm), static_cast<std::size_t>(last)));
  });
}

// movprfx Zd, Zn
aarch64_decode_rc sve_movprfx_zz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn) {
  std::memmove(z_of(state, zd), z_of(state, zn), vector_bytes);
  return executed;
}

// movprfx Zd.T, Pg/ZM, Zn.T. An instruction of its own: the one that follows is not fused to it.
aarch64_decode_rc sve_movprfx_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {
  if (pg.size == aarch64_p_reg::zeroing)
    return for_size(zd.size, [&](auto element) {
      using T = decltype(element);
      zero_lanes<T>(
          z_of(state, zd), p_of(state, pg), lanes<T>, [](T a) { return a; }, z_of(state, zn));
    });
  return merging_unary(state, zd.size, zd, pg, zn, [](auto a) { return a; });
}

// index Zd.T, #start, #step
aarch64_decode_rc sve_index_zii(cpu_state* state, aarch64_z_reg zd, int start, int step) {
  return index(state, zd, extended(start), extended(step));
}

// index Zd.T, #start, Rm
aarch64_decode_rc sve_index_zir(cpu_state* state, aarch64_z_reg zd, int start, aarch64_i_reg step) {
  return index(state, zd, extended(start), read(state, step));
}

// index Zd.T, Rn, #step
aarch64_decode_rc sve_index_zri(cpu_state* state, aarch64_z_reg zd, aarch64_i_reg start, int step) {
  return index(state, zd, read(state, start), extended(step));
}

// index Zd.T, Rn, Rm
aarch64_decode_rc sve_index_zrr(cpu_state* state, aarch64_z_reg zd, aarch64_i_reg start, aarch64_i_reg step) {
  return index(state, zd, read(state, start), read(state, step));
}
