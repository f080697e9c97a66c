// Predicate generation, logic, partition and tests, and the first-fault register.
#include "sve/insn/predicates.h"

#include <bit>
#include <limits>

#include "sve/insn/lanes.h"
#include "sve/lanes/patterns.h"
#include "sve/lanes/predicate_bits.h"

using namespace sve;

template <class T>
void sve_ptest(cpu_state* state, const char* mask_bytes, const char* result_bytes) {
  const auto bytes = [](const char* p) { return reinterpret_cast<const byte*>(p); };
  if (all_active<T>(bytes(mask_bytes))) [[likely]] {
    const byte* result = bytes(result_bytes);
    const bool none = !any_of(union_of(result) & piece_of_words(first_bytes(sizeof(T))));
    write_flags(state, result[0] & 1, none, !active<T>(result, lanes<T> - 1), false);
    return;
  }
  const RegisterPlaces mask = RegisterPlaces(bytes(mask_bytes)) & RegisterPlaces::elements(sizeof(T));
  const RegisterPlaces result(bytes(result_bytes));
  const bool any = static_cast<bool>(mask);
  write_flags(state, any && result.test(mask.first()), !(mask & result), !(any && result.test(mask.last())), false);
}

template void sve_ptest<signed char>(cpu_state*, const char*, const char*);
template void sve_ptest<short>(cpu_state*, const char*, const char*);
template void sve_ptest<int>(cpu_state*, const char*, const char*);
template void sve_ptest<long>(cpu_state*, const char*, const char*);
template void sve_ptest<unsigned char>(cpu_state*, const char*, const char*);
template void sve_ptest<unsigned short>(cpu_state*, const char*, const char*);
template void sve_ptest<unsigned int>(cpu_state*, const char*, const char*);
template void sve_ptest<unsigned long>(cpu_state*, const char*, const char*);

namespace {

const char* chars(const byte* p) { return reinterpret_cast<const char*>(p); }

// ---- Predicates whose first elements are true ----

// `true_elements(count)` says how many leading elements compare true. The flags are those of a mask with every element
// active.
template <class TrueElements>
aarch64_decode_rc set_while(cpu_state* state, aarch64_p_reg pd, TrueElements true_elements) {
  return for_size(pd.size, [&](auto element) {
    using T = decltype(element);
    const std::size_t n = true_elements(lanes<T>);
    set_leading<T>(p_of(state, pd), n);
    write_flags(state, n != 0, n == 0, n != lanes<T>, false);
  });
}

// How many i below `count` have first + i < limit, without wrap-around; the subtraction is exact as unsigned.
template <class T>
std::size_t less_than(T first, T limit, std::size_t count) {
  if (first >= limit) return 0;
  const UnsignedOf<T> distance = static_cast<UnsignedOf<T>>(limit) - static_cast<UnsignedOf<T>>(first);
  return distance < count ? distance : count;
}

// The same for first + i <= limit; a limit at the largest value is never passed.
template <class T>
std::size_t less_or_equal(T first, T limit, std::size_t count) {
  if (limit == std::numeric_limits<T>::max()) return count;
  return less_than<T>(first, static_cast<T>(limit + 1), count);
}

// Calls `compare(rn, rm)` with both scalars at the width of the instruction: 64 bits for code 3, else 32.
template <class Wide, class Narrow, class Compare>
std::size_t at_width(const cpu_state* state, aarch64_i_reg rn, aarch64_i_reg rm, Compare compare) {
  const std::uint64_t n = read(state, rn), m = read(state, rm);
  if (rn.size == element_d) return compare(static_cast<Wide>(n), static_cast<Wide>(m));
  return compare(static_cast<Narrow>(n), static_cast<Narrow>(m));
}

// ---- Logic on bytes ----

// By bytes, 1 or 0; one of these on each host.
[[maybe_unused]] byte is_zero(int x) { return x == 0; }
[[maybe_unused]] BytePiece is_zero(BytePiece x) { return reinterpret_cast<BytePiece>(x == 0) & 1; }

// Bytes where Pg is inactive become 0 under the zeroing qualifier and keep the old Pd otherwise.
template <class Op, class... Sources>
aarch64_decode_rc byte_logic(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, Op op, const Sources*... src) {
  byte* dst = p_of(state, pd);
  const byte* predicate = p_of(state, pg);
  if constexpr (has_wider_pieces) {
    if (pg.size == aarch64_p_reg::zeroing)
      zero_lanes<byte>(dst, predicate, vector_bytes, op, src...);
    else
      merge_lanes<byte>(dst, dst, predicate, vector_bytes, op, src...);
  } else {
    const auto result = piecewise(op, source_pieces(src)...);
    store_pieces(dst, [&](std::size_t i) {
      const BytePiece active = active_piece<byte>(predicate + 16 * i), computed = result(i) & active;
      return pg.size == aarch64_p_reg::zeroing ? computed : computed | (load_piece(dst + 16 * i) & ~active);
    });
  }
  return executed;
}

// ---- Partition ----

// Active bytes of Pg below `end` become 1, those above 0; inactive ones are 0 or keep the old Pd.
aarch64_decode_rc write_break(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, unsigned end) {
  byte* dst = p_of(state, pd);
  const byte* predicate = p_of(state, pg);
  const LeadingOnes below(end);
  store_pieces(dst, [&](std::size_t i) {
    const BytePiece taken = load_piece(predicate + 16 * i) & below(i);
    const BytePiece kept = load_piece(dst + 16 * i) & ~active_piece<byte>(predicate + 16 * i);
    return pg.size == aarch64_p_reg::zeroing ? taken : taken | kept;
  });
  return executed;
}

// Where the bits up to the first active element at which Pn is true end, that element included or not.
unsigned before_break(cpu_state* state, aarch64_p_reg pg, aarch64_p_reg pn, bool inclusive) {
  const byte *active = p_of(state, pg), *source = p_of(state, pn);
  const int at = RegisterPlaces::of_pieces([&](std::size_t i) {
                   return load_piece(active + 16 * i) & load_piece(source + 16 * i);
                 }).first();
  return at < 0 ? vector_bytes : static_cast<unsigned>(inclusive ? at + 1 : at);
}

// Whether the byte of Pn, as a whole, is nonzero at the last element active in Pg.
bool last_is_true(cpu_state* state, aarch64_p_reg pg, aarch64_p_reg pn) {
  if (all_active<byte>(p_of(state, pg))) [[likely]]
    return p_of(state, pn)[vector_bytes - 1] != 0;
  const int last = RegisterPlaces(p_of(state, pg)).last();
  return last >= 0 && p_of(state, pn)[last] != 0;
}

aarch64_decode_rc sve_brkn(cpu_state* state, aarch64_p_reg pdm, aarch64_p_reg pg, aarch64_p_reg pn, bool setflags) {
  byte* dst = p_of(state, pdm);
  if (!last_is_true(state, pg, pn)) std::memset(dst, 0, vector_bytes);
  if (setflags) {
    // The mask of this test is all true, not Pg.
    const bool none = !any_of(union_of(dst) & (BytePiece{} + byte{1}));
    write_flags(state, dst[0] & 1, none, !(dst[vector_bytes - 1] & 1), false);
  }
  return executed;
}

aarch64_decode_rc sve_brkpb(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, aarch64_p_reg pn, aarch64_p_reg pm,
                            bool setflags) {
  const LeadingOnes below(last_is_true(state, pg, pn) ? before_break(state, pg, pm, false) : 0);
  const byte* const predicate = p_of(state, pg);
  if (setflags) {
    ComputedPredicate<byte> result(predicate, below);
    write_with_flags(state, p_of(state, pd), predicate, result);
  } else {
    store_pieces(p_of(state, pd), [&](std::size_t i) { return load_piece(predicate + 16 * i) & below(i); });
  }
  return executed;
}

}  // namespace

// pfalse Pd.B
aarch64_decode_rc sve_pfalse_p(cpu_state* state, aarch64_p_reg pd) {
  std::memset(p_of(state, pd), 0, vector_bytes);
  return executed;
}

// ptrue Pd.T, pattern
aarch64_decode_rc sve_ptrue_pi(cpu_state* state, aarch64_p_reg pd, unsigned int pattern) {
  return for_size(pd.size, [&](auto element) {
    set_leading<decltype(element)>(p_of(state, pd), pattern_count<decltype(element)>(pattern));
  });
}

// whilelt Pd.T, Rn, Rm
aarch64_decode_rc sve_whilelt_prr(cpu_state* state, aarch64_p_reg pd, aarch64_i_reg rn, aarch64_i_reg rm) {
  return set_while(state, pd, [&](std::size_t count) {
    return at_width<std::int64_t, std::int32_t>(state, rn, rm, [&](auto n, auto m) { return less_than(n, m, count); });
  });
}

// whilelo Pd.T, Rn, Rm
aarch64_decode_rc sve_whilelo_prr(cpu_state* state, aarch64_p_reg pd, aarch64_i_reg rn, aarch64_i_reg rm) {
  return set_while(state, pd, [&](std::size_t count) {
    return at_width<std::uint64_t, std::uint32_t>(state, rn, rm,
                                                  [&](auto n, auto m) { return less_than(n, m, count); });
  });
}

// whilels Pd.T, Rn, Rm
aarch64_decode_rc sve_whilels_prr(cpu_state* state, aarch64_p_reg pd, aarch64_i_reg rn, aarch64_i_reg rm) {
  return set_while(state, pd, [&](std::size_t count) {
    return at_width<std::uint64_t, std::uint32_t>(state, rn, rm,
                                                  [&](auto n, auto m) { return less_or_equal(n, m, count); });
  });
}

// The logic is on whole bytes: bits above bit 0 come out as the combination yields them.

// and Pd.B, Pg/Z, Pn.B, Pm.B
aarch64_decode_rc sve_and_pppp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, aarch64_p_reg pn,
                               aarch64_p_reg pm) {
  return byte_logic(
      state, pd, pg, [](auto n, auto m) { return n & m; }, p_of(state, pn), p_of(state, pm));
}

// bic Pd.B, Pg/Z, Pn.B, Pm.B
aarch64_decode_rc sve_bic_pppp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, aarch64_p_reg pn,
                               aarch64_p_reg pm) {
  return byte_logic(
      state, pd, pg, [](auto n, auto m) { return n & ~m; }, p_of(state, pn), p_of(state, pm));
}

// eor Pd.B, Pg/Z, Pn.B, Pm.B
aarch64_decode_rc sve_eor_pppp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, aarch64_p_reg pn,
                               aarch64_p_reg pm) {
  return byte_logic(
      state, pd, pg, [](auto n, auto m) { return n ^ m; }, p_of(state, pn), p_of(state, pm));
}

// orr Pd.B, Pg/Z, Pn.B, Pm.B
aarch64_decode_rc sve_orr_pppp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, aarch64_p_reg pn,
                               aarch64_p_reg pm) {
  return byte_logic(
      state, pd, pg, [](auto n, auto m) { return n | m; }, p_of(state, pn), p_of(state, pm));
}

// nor Pd.B, Pg/Z, Pn.B, Pm.B: 1 where both bytes are 0.
aarch64_decode_rc sve_nor_pppp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, aarch64_p_reg pn,
                               aarch64_p_reg pm) {
  return byte_logic(
      state, pd, pg, [](auto n, auto m) { return is_zero(n | m); }, p_of(state, pn), p_of(state, pm));
}

// not Pd.B, Pg/Z, Pn.B. No row reaches it: the decoder knows the alias as eor.
aarch64_decode_rc sve_not_ppp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, aarch64_p_reg pn) {
  return byte_logic(
      state, pd, pg, [](auto n) { return (n & 1) ^ 1; }, p_of(state, pn));
}

// brka Pd.B, Pg/ZM, Pn.B
aarch64_decode_rc sve_brka_ppp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, aarch64_p_reg pn) {
  return write_break(state, pd, pg, before_break(state, pg, pn, true));
}

// brkb Pd.B, Pg/ZM, Pn.B
aarch64_decode_rc sve_brkb_ppp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, aarch64_p_reg pn) {
  return write_break(state, pd, pg, before_break(state, pg, pn, false));
}

// brkn Pdm.B, Pg/Z, Pn.B, Pdm.B
aarch64_decode_rc sve_brkn_ppp(cpu_state* state, aarch64_p_reg pdm, aarch64_p_reg pg, aarch64_p_reg pn) {
  return sve_brkn(state, pdm, pg, pn, false);
}

// brkns Pdm.B, Pg/Z, Pn.B, Pdm.B
aarch64_decode_rc sve_brkns_ppp(cpu_state* state, aarch64_p_reg pdm, aarch64_p_reg pg, aarch64_p_reg pn) {
  return sve_brkn(state, pdm, pg, pn, true);
}

// brkpb Pd.B, Pg/Z, Pn.B, Pm.B
aarch64_decode_rc sve_brkpb_pppp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, aarch64_p_reg pn,
                                 aarch64_p_reg pm) {
  return sve_brkpb(state, pd, pg, pn, pm, false);
}

// brkpbs Pd.B, Pg/Z, Pn.B, Pm.B
aarch64_decode_rc sve_brkpbs_pppp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, aarch64_p_reg pn,
                                  aarch64_p_reg pm) {
  return sve_brkpb(state, pd, pg, pn, pm, true);
}

// ptest Pg, Pn.B
aarch64_decode_rc sve_ptest_pp(cpu_state* state, aarch64_p_reg pg, aarch64_p_reg pn) {
  sve_ptest<signed char>(state, chars(p_of(state, pg)), chars(p_of(state, pn)));
  return executed;
}

// pnext Pdn.T, Pv, Pdn.T: the first element active in Pv after the last one of Pdn.
aarch64_decode_rc sve_pnext_pp(cpu_state* state, aarch64_p_reg pdn, aarch64_p_reg pv) {
  return for_size(pdn.tied_dst_size, [&](auto element) {
    using T = decltype(element);
    const NextElement next = next_element<T>(p_of(state, pv), p_of(state, pdn));
    write_flags(state, next.is_first, next.place < 0, !next.is_last, false);
    std::memset(p_of(state, pdn), 0, vector_bytes);
    if (next.place >= 0) p_of(state, pdn)[next.place] = 1;
  });
}

// cntp Xd, Pg, Pn.T
aarch64_decode_rc sve_cntp_rpp(cpu_state* state, aarch64_i_reg rd, aarch64_p_reg pg, aarch64_p_reg pn) {
  return for_size(pn.size, [&](auto element) {
    write(state, rd, common_elements<decltype(element)>(p_of(state, pg), p_of(state, pn)));
  });
}

// setffr
aarch64_decode_rc sve_setffr(cpu_state* state) {
  std::memset(state->ffr, 1, vector_bytes);
  return executed;
}

// wrffr Pn.B
aarch64_decode_rc sve_wrffr_p(cpu_state* state, aarch64_p_reg pn) {
  std::memcpy(state->ffr, p_of(state, pn), vector_bytes);
  return executed;
}

// rdffr Pd.B
aarch64_decode_rc sve_rdffr_p(cpu_state* state, aarch64_p_reg pd) {
  std::memcpy(p_of(state, pd), state->ffr, vector_bytes);
  return executed;
}

// rdffr Pd.B, Pg/Z
aarch64_decode_rc sve_rdffr_pp(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg) {
  map_lanes<byte>(
      p_of(state, pd), vector_bytes, [](byte f, byte g) { return f & g; }, static_cast<const byte*>(state->ffr),
      p_of(state, pg));
  return executed;
}
