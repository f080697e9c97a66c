// The two models against each other: every row that runs in an instruction function also runs through the vector
// library's routine of the same name, on the same states, and both must leave the same state. The pairs come from the
// table itself: its row files are read once more here, with macros that build both handlers of a row.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "sve/decode/rows.h"

namespace sve::decode {
namespace {

struct twin {
  const char* name;
  handler direct_handle;
  handler library_handle;
};

std::vector<twin>& twins() {
  static std::vector<twin> all;
  return all;
}

// ---- From the operands of an instruction function to those of a routine, by the routine's shape and the row's form
// ----

// An unsigned field for a routine whose immediate is signed.
template <class Immediate>
struct as_signed {
  using type = std::int64_t;
  static void load(std::int64_t& value, const cpu_state*, word_t w) {
    value = static_cast<std::int64_t>(Immediate::cut(w));
  }
};
// A scalar of element size E into a vector register. The library hands signed extrema on sign-extended; the instruction
// functions write the element alone.
template <unsigned E>
struct to_v_element {
  static void store(cpu_state* state, word_t w, std::uint64_t x) {
    byte* z = state->z[bits<4, 0>::cut(w)];
    std::memset(z, 0, vector_bytes);
    std::memcpy(z, &x, std::size_t{1} << E);
  }
};
struct to_x_or_sp {
  static void store(cpu_state* state, word_t w, std::uint64_t x) {
    write(state, aarch64_i_rsp_reg(bits<4, 0>::cut(w), element_d), x);
  }
};

template <class Shape, class Form>
struct form_of;
#define FORM(shape, form, ...)           \
  template <>                            \
  struct form_of<routine::shape, form> { \
    using type = __VA_ARGS__;            \
  };
#define SIZED_FORM(shape, form, ...)        \
  template <unsigned E>                     \
  struct form_of<routine::shape, form<E>> { \
    using type = __VA_ARGS__;               \
  };
#define SIZED_FORM_2(shape, form, ...)         \
  template <unsigned E, unsigned F>            \
  struct form_of<routine::shape, form<E, F>> { \
    using type = __VA_ARGS__;                  \
  };
using G_copy = predicate_in<bits<19, 16>>;
using Xn_signed = signed_register_in<bits<9, 5>>;
using Xm_signed = signed_register_in<bits<20, 16>>;

SIZED_FORM(vvm, zpz_tied, lib::vvm)
SIZED_FORM(vvm, zpz, lib::vvm)
SIZED_FORM_2(vvm, zpz_from, lib::vvm)
SIZED_FORM(vz, zpz_zeroing, routine_form<to_z, G, Vn>)
SIZED_FORM(vvvm, zpzz_mla, lib::vvvm)
SIZED_FORM(vvvm, zpzz_mad, lib::vvvm_mad)
SIZED_FORM(pvv, zpzz_sel, routine_form<to_z, G4, Vn, Vm>)
SIZED_FORM(vvx, zzz, lib::vvx)
SIZED_FORM(v, zz, lib::v)
SIZED_FORM_2(v, zz_from, lib::v)
FORM(v, zz_bare, lib::v)
SIZED_FORM(vix, zi_shifted, lib::vix_shifted<E>)
SIZED_FORM(vix_signed, zi_signed, lib::vix_signed)
SIZED_FORM(i_signed, zi_dup, routine_form<to_z, SignedShifted8>)
FORM(vix, zi_logical, routine_form<to_z, Vdn, LogicalImmediate>)
FORM(i, zi_dup_logical, routine_form<to_z, LogicalImmediate>)
SIZED_FORM(i, zi_fp_dup, routine_form<to_z, FpImmediateBits<E>>)
SIZED_FORM_2(vim_signed, zpi_copy, routine_form<to_z, Vdn, G_copy, SignedShifted8>)
SIZED_FORM_2(iz, zpi_copy, routine_form<to_z, G_copy, SignedShifted8>)
SIZED_FORM(vim, zpi_left, routine_form<to_z, Vdn, G, LeftShift<E, true>>)
SIZED_FORM(vim, zpi_right, routine_form<to_z, Vdn, G, RightShift<E, true>>)
SIZED_FORM(vim, zpi_fp, lib::vim_fp)
SIZED_FORM(vix, zzi_left, routine_form<to_z, Vn, LeftShift<E, false>>)
SIZED_FORM(vix_signed, zzi_right, routine_form<to_z, Vn, as_signed<RightShift<E, false>>>)
SIZED_FORM(vix, zzi_dup, routine_form<to_z, Vn, DupIndex<E>>)
FORM(vvix, zzi_ext, routine_form<to_z, Vdn, Vn, Ujoined<bits<20, 16>, bits<12, 10>>>)
SIZED_FORM(i, zr_dup, routine_form<to_z, Base>)
SIZED_FORM(vim, zpr_copy, routine_form<to_z, Vdn, G, Base>)
SIZED_FORM(vim, zpz, routine_form<to_z, Vdn, G, element_in<bits<9, 5>, E>>)  // cpy from a vector register's element
SIZED_FORM(pv_scalar, vpz, routine_form<to_v_element<E>, G, Vn>)
SIZED_FORM(pv_scalar, rpz, lib::last_x)
SIZED_FORM(psv_scalar, rpz_tied, lib::cond_x)
SIZED_FORM(ii_signed, zii_index, routine_form<to_z, S<9, 5>, S<20, 16>>)
SIZED_FORM(ii_signed, zir_index, routine_form<to_z, S<9, 5>, Xm_signed>)
SIZED_FORM(ii_signed, zri_index, routine_form<to_z, Xn_signed, S<20, 16>>)
SIZED_FORM(ii_signed, zrr_index, routine_form<to_z, Xn_signed, Xm_signed>)
SIZED_FORM(cmp_vv, ppzz, lib::cmp_vv)
SIZED_FORM(cmp_v0, ppz, lib::cmp_v0)
SIZED_FORM(cmp_vi_signed, ppzi_signed, lib::cmp_vi_signed)
SIZED_FORM(cmp_vi, ppzi_unsigned, lib::cmp_vi_unsigned)
FORM(pppp, pppp, lib::pppp)
FORM(pppp, pppp_sel, lib::pppp)
FORM(ppp, ppp_break<zeroing>, lib::ppp_break)
FORM(pppp, ppp_break<merging>, routine_form<to_p, Qd, G4, Qn>)
FORM(pppp, ppp_brkn, routine_form<to_p, G4, Qn, Qd>)
SIZED_FORM(ppp, ppp_permute, lib::ppp_permute)
SIZED_FORM_2(pp, pp, routine_form<to_p, Qn>)
SIZED_FORM(ppp, pp_pnext, routine_form<to_p, Qn, Qd>)
FORM(test, pp_test, routine_form<nothing, G4, Qn>)
FORM(pp, pp_rdffr, routine_form<to_p, Qn>)
FORM(p, p_dst, routine_form<to_p>)
FORM(write_ffr, p_src, routine_form<nothing, Qn>)
FORM(set_ffr, no_operands, routine_form<nothing>)
SIZED_FORM(pattern_p, pi_pattern, lib::pattern)
SIZED_FORM_2(while_signed, prr_while, lib::while_signed)
SIZED_FORM_2(while_unsigned, prr_while, routine_form<to_p, Xn, Xm>)
SIZED_FORM(count_p, rpp_count, routine_form<to_x, G4, Qn>)
SIZED_FORM(count_p_scalar, rp_count, lib::count_p_x)
SIZED_FORM(count_scalar, rii_count, lib::count_x)
SIZED_FORM(count_vector, zii_count, lib::count_v)
FORM(add_length, rri_length, routine_form<to_x_or_sp, base_in<bits<20, 16>>, S<10, 5>>)
FORM(length, ri_length, routine_form<to_x, S<10, 5>>)
SIZED_FORM(load_si, zpri_load, lib::load_q_si)
SIZED_FORM(load_ss, zprr_load, lib::load_ss)
SIZED_FORM(load_si, zpri_replicate, routine_form<to_z, G, Base, as_signed<U<21, 16>>>)
SIZED_FORM(store_si, zpri_store, routine_form<nothing, G, Base, S<19, 16>, Vdn>)
SIZED_FORM(store_ss, zprr_store, routine_form<nothing, G, Base, Xm, Vdn>)
FORM(fill_v, zri_fill, routine_form<to_z, Base, vl_offset>)
FORM(spill_v, zri_fill, routine_form<nothing, Base, vl_offset, Vdn>)
FORM(fill_p, pri_fill, routine_form<to_p, Base, vl_offset>)
FORM(spill_p, pri_fill, routine_form<nothing, Base, vl_offset, Qd>)
SIZED_FORM(gather_vs, zpzi_gather, lib::gather_vi)
SIZED_FORM(gather_vs, zpzr_gather, lib::gather_vs)
SIZED_FORM(gather_sv, zprz_gather, lib::gather_sv)
SIZED_FORM(scatter_vs, zpzi_scatter, lib::scatter_vi)
SIZED_FORM(scatter_vs, zpzr_scatter, lib::scatter_vs)
SIZED_FORM(scatter_sv, zprz_scatter, lib::scatter_sv)

template <auto* Routine, auto* Function, class Form>
struct library_of : library<Routine, typename form_of<std::remove_pointer_t<decltype(Routine)>, Form>::type> {};
// The sum is 64 bits wide whatever the element.
template <auto* Routine, class Form>
struct library_of<Routine, sve_uaddv_vpz, Form> : library<Routine, lib::last_v> {};

// Structure forms move several registers: the one shape that the table's marshalling does not know.
template <std::size_t N, class Second>
struct structure_operands {
  structure_operands(const cpu_state* state, word_t w) : predicate(state, w), base(state, w), second(state, w) {
    for (std::size_t k = 0; k < N; ++k) {
      number[k] = (bits<4, 0>::cut(w) + k) % 32;
      std::memcpy(z[k].bytes, state->z[number[k]], vector_bytes);
    }
  }
  fetched<G> predicate;
  fetched<Base> base;
  fetched<Second> second;
  VectorV z[N];
  std::size_t number[N];
};
template <auto* Routine, std::size_t N, class Second>
aarch64_decode_rc structures(cpu_state* state, unsigned int word) {
  structure_operands<N, Second> o(state, word);
  CpuContext context;
  enter(context, state);
  const PredV ffr = context.ffr;
  [&]<std::size_t... K>(std::index_sequence<K...>) {
    Routine(o.predicate.value, o.base.value, o.second.value, o.z[K]..., &context);
  }
  (std::make_index_sequence<N>{});
  for (std::size_t k = 0; k < N; ++k) std::memcpy(state->z[o.number[k]], o.z[k].bytes, vector_bytes);
  leave(context, ffr, state);
  return AARCH64_DECODE_EXECUTED;
}
#define STRUCTURES(shape, N, Second)                               \
  template <routine::shape* Routine, auto* Function, class Form>   \
  struct library_of<Routine, Function, Form> {                     \
    static constexpr auto handle = structures<Routine, N, Second>; \
  };
using Offset = S<19, 16>;
STRUCTURES(load2_si, 2, Offset)
STRUCTURES(load3_si, 3, Offset)
STRUCTURES(load4_si, 4, Offset)
STRUCTURES(load2_ss, 2, Xm)
STRUCTURES(load3_ss, 3, Xm)
STRUCTURES(load4_ss, 4, Xm)
STRUCTURES(store2_si, 2, Offset)
STRUCTURES(store3_si, 3, Offset)
STRUCTURES(store4_si, 4, Offset)
STRUCTURES(store2_ss, 2, Xm)
STRUCTURES(store3_ss, 3, Xm)
STRUCTURES(store4_ss, 4, Xm)

}  // namespace
}  // namespace sve::decode

// The row files once more, as pairs of handlers.
#undef DIRECT
#undef DIRECT_FP
#undef LIBRARY
#undef PREFETCH
#undef SVE_ROWS
#define DIRECT(key, name, function, ...) \
  twin { #name, direct < function, __VA_ARGS__> ::handle, library_of < name, function, __VA_ARGS__> ::handle }
#define DIRECT_FP(key, name, function, ...) \
  twin { #name, direct_fp < function, __VA_ARGS__> ::handle, library_of < name, function, __VA_ARGS__> ::handle }
#define LIBRARY(key, name, ...) \
  twin { #name, nullptr, nullptr }
#define PREFETCH(key, name) \
  twin { #name, nullptr, nullptr }
#define SVE_ROWS(name, ...)                                       \
  namespace {                                                     \
  [[maybe_unused]] const bool added_##name = [] {                 \
    for (const twin& t : std::initializer_list<twin> __VA_ARGS__) \
      if (t.direct_handle) twins().push_back(t);                  \
    return true;                                                  \
  }();                                                            \
  }
#include "sve/decode/table_31_13.cpp"        // NOLINT(bugprone-suspicious-include)
#include "sve/decode/table_31_20.cpp"        // NOLINT(bugprone-suspicious-include)
#include "sve/decode/table_31_21.cpp"        // NOLINT(bugprone-suspicious-include)
#include "sve/decode/table_31_21_15_13.cpp"  // NOLINT(bugprone-suspicious-include)
#include "sve/decode/table_other.cpp"        // NOLINT(bugprone-suspicious-include)

namespace {

using sve::byte;
using sve::vector_bytes;

// ---- States ----

constexpr std::uint64_t window = 0x20000000;
constexpr std::size_t window_bytes = 1 << 14;

struct memory_window {
  memory_window() {
    void* at = mmap(reinterpret_cast<void*>(window), window_bytes, PROT_READ | PROT_WRITE,
                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    EXPECT_EQ(at, reinterpret_cast<void*>(window));
  }
  ~memory_window() { munmap(bytes(), window_bytes); }
  byte* bytes() const { return reinterpret_cast<byte*>(window); }
};

struct description {
  const sve::decode::map* map;
  const sve::decode::row* row;
  char type;       // the element type's letter
  unsigned bytes;  // the element's size, 1 for predicate operations
  bool memory, floating_point, flags;
};

bool has(std::string_view name, std::string_view part) { return name.find(part) != name.npos; }

description describe(const sve::decode::map* map, const sve::decode::row* row) {
  const std::string_view name = row->name;
  const unsigned width = name[4] >= '0' && name[4] <= '9' ? static_cast<unsigned>(std::atoi(row->name + 4)) : 8;
  description d{map,
                row,
                name[3],
                width / 8,
                has(name, "Load") || has(name, "Store") || has(name, "Fill") || has(name, "Spill"),
                row->model == sve::decode::kind::direct_fp,
                false};
  d.flags = has(name, "Flg") || has(name, "GenNext") || has(name, "TestPZ");
  return d;
}

constexpr std::uint64_t edge_words[] = {0,
                                        1,
                                        ~std::uint64_t{0},
                                        0x8000000000000000,
                                        0x7fffffffffffffff,
                                        0x80000000'7fffffff,
                                        0x8000'7fff'0001'ffff,
                                        0x80'7f'01'ff'00'fe'81'7e,
                                        0x7ff0000000000000,
                                        0xfff8000000000001,
                                        0x7ff0000000000001,
                                        0x7f800000'ffc00001,
                                        0x7f800001'00000001,
                                        0x3ff0000000000000,
                                        0x3f800000'bf800000,
                                        0x000fffffffffffff,
                                        0x007fffff'80000001};

template <class Random>
void fill(byte* bytes, std::size_t count, Random& random) {
  for (std::size_t i = 0; i < count; i += 8) {
    const std::uint64_t word = random() % 4 == 0 ? edge_words[random() % std::size(edge_words)] : random();
    std::memcpy(bytes + i, &word, 8);
  }
}

template <class Random>
cpu_state make_state(const description& d, Random& random) {
  cpu_state state{};
  for (auto& z : state.z) fill(z, vector_bytes, random);
  for (std::uint64_t& x : state.x)
    x = random() % 3 == 0 ? edge_words[random() % std::size(edge_words)] : random() % 130;
  state.sp = random();
  state.nzcv = random() & 0xf0000000;
  state.fpsr = static_cast<std::uint32_t>(random()) & 0x9f;
  state.fpcr = static_cast<std::uint32_t>(random()) & 0x07c80000;  // AHP, DN, FZ, RMode, FZ16
  // Predicates: sparse, dense, all or none. Bits between element starts only where no flags are set from them: the flag
  // writers of the two models differ there, which has its own test.
  const auto predicate = [&](byte* p) {
    const unsigned density = static_cast<unsigned>(random() % 5);
    for (std::size_t i = 0; i < vector_bytes; ++i) {
      const bool set = density == 0 ? false : density == 4 ? true : random() % 4 < density;
      p[i] = set && (!d.flags || i % d.bytes == 0);
    }
  };
  for (auto& p : state.p) predicate(p);
  predicate(state.ffr);
  if (d.memory) {
    // Registers 0 to 15 and SP are bases in the middle of the window, the others small indices; vectors hold offsets,
    // or addresses where they are bases.
    for (unsigned i = 0; i < 31; ++i) state.x[i] = i < 16 ? window + window_bytes / 2 + random() % 64 : random() % 16;
    state.sp = window + window_bytes / 2;
    const bool addresses = has(d.row->name, "VIZ");
    const std::size_t size = d.bytes == 4 ? 4 : 8;
    if (!has(d.row->name, "CLoad") && !has(d.row->name, "CStore") && !has(d.row->name, "E2") &&
        !has(d.row->name, "E3") && !has(d.row->name, "E4"))
      for (auto& z : state.z)
        for (std::size_t i = 0; i < vector_bytes; i += size) {
          std::uint64_t value = addresses ? window + 1024 + random() % 4096 : random() % 128;
          if (!addresses && random() % 4 == 0 && (has(d.row->name, "XVSZ") || has(d.row->name, "XSVZ")))
            value = static_cast<std::uint32_t>(-static_cast<std::int32_t>(random() % 128));
          std::memcpy(z + i, &value, size);
        }
  }
  if (d.floating_point && (has(d.row->name, "CmpLEV0Z") || has(d.row->name, "CmpLTV0Z"))) {
    // On a NaN the library's unreached forms differ, deliberately; that has a test of its own.
    for (auto& z : state.z)
      for (std::size_t i = 0; i < vector_bytes; i += d.bytes) z[i + d.bytes - 1] &= 0xbf;
  }
  return state;
}

template <class Random>
std::uint32_t make_word(const description& d, Random& random) {
  std::uint32_t word = d.map->word(d.row->key) | (static_cast<std::uint32_t>(random()) & ~d.map->fixed_bits);
  const auto set = [&](unsigned high, unsigned low, std::uint32_t value) {
    const std::uint32_t mask = ((1u << (high - low + 1)) - 1) << low;
    if ((d.map->fixed_bits & mask) == 0) word = (word & ~mask) | (value << low & mask);
  };
  if (d.memory) {
    if (!has(d.row->name, "VIZ")) set(9, 5, random() % 4 == 0 ? 31 : random() % 16);         // a base
    if (has(d.row->name, "LSSZ")) set(20, 16, random() % 4 == 0 ? 31 : 16 + random() % 15);  // an index
    if (has(d.row->name, "Fill") || has(d.row->name, "Spill")) {
      set(21, 16, random() % 2 ? 0 : 0x3f);
    }
  }
  // Register overlaps are where mistakes show.
  if (random() % 3 == 0 && !d.memory) set(9, 5, word & 31);
  if (has(d.row->name, "DupMaskI") || has(d.row->name, "U64AndVIX") || has(d.row->name, "rVIX"))
    set(5, 5, 0);  // never the immediate whose expansion does not return
  return word;
}

#if defined(__aarch64__)
// The instruction functions run on the host's floating point under its live control register.
struct live_control {
  explicit live_control(const cpu_state& state) {
    asm volatile("mrs %0, fpcr\n\tmrs %1, fpsr" : "=r"(fpcr), "=r"(fpsr));
    asm volatile("msr fpcr, %0\n\tmsr fpsr, %1" ::"r"(std::uint64_t{state.fpcr}), "r"(std::uint64_t{state.fpsr}));
  }
  ~live_control() { asm volatile("msr fpcr, %0\n\tmsr fpsr, %1" ::"r"(fpcr), "r"(fpsr)); }
  std::uint64_t fpcr, fpsr;
};
#else
struct live_control {
  explicit live_control(const cpu_state&) {}
};
#endif

std::string difference(const cpu_state& a, const cpu_state& b) {
  const auto first = [](const byte* x, const byte* y) {
    std::size_t i = 0;
    while (x[i] == y[i]) ++i;
    return " at byte " + std::to_string(i) + ": " + std::to_string(x[i]) + " in the function, " + std::to_string(y[i]) +
           " in the library";
  };
  for (int n = 0; n < 32; ++n)
    if (std::memcmp(a.z[n], b.z[n], vector_bytes) != 0) return "Z" + std::to_string(n) + first(a.z[n], b.z[n]);
  for (int n = 0; n < 16; ++n)
    if (std::memcmp(a.p[n], b.p[n], vector_bytes) != 0) return "P" + std::to_string(n) + first(a.p[n], b.p[n]);
  if (std::memcmp(a.ffr, b.ffr, vector_bytes) != 0) return "FFR" + first(a.ffr, b.ffr);
  for (int n = 0; n < 31; ++n)
    if (a.x[n] != b.x[n]) return "X" + std::to_string(n);
  if (a.sp != b.sp) return "SP";
  if (a.nzcv != b.nzcv) return "NZCV";
  if (a.fpsr != b.fpsr) return "FPSR " + std::to_string(a.fpsr) + " in the function, " + std::to_string(b.fpsr);
  if (a.fpcr != b.fpcr) return "FPCR";
  return "";
}

TEST(CrossModel, EveryRowWithTwoHomesAgrees) {
  constexpr int cases = 80;
  const memory_window memory;
  std::vector<byte> before(window_bytes), after(window_bytes);
  std::size_t pairs = 0;
  for (const sve::decode::twin& t : sve::decode::twins()) {
    ++pairs;
    const sve::decode::map* map = nullptr;
    const sve::decode::row* row = nullptr;
    for (const sve::decode::map* m : sve::decode::maps_in_is_sve_order())
      for (const sve::decode::row& r : m->rows)
        if (std::string_view(r.name) == t.name) map = m, row = &r;
    ASSERT_NE(row, nullptr) << t.name;
    const description d = describe(map, row);
    std::mt19937_64 random(std::hash<std::string_view>{}(t.name));
    for (int i = 0; i < cases; ++i) {
      const std::uint32_t word = make_word(d, random);
      const cpu_state start = make_state(d, random);
      if (d.memory) {
        fill(before.data(), window_bytes, random);
        std::memcpy(memory.bytes(), before.data(), window_bytes);
      }
      cpu_state by_function = start, by_library = start;
      {
        const live_control control(start);
        ASSERT_EQ(t.direct_handle(&by_function, word), AARCH64_DECODE_EXECUTED);
      }
      if (d.memory) {
        std::memcpy(after.data(), memory.bytes(), window_bytes);
        std::memcpy(memory.bytes(), before.data(), window_bytes);
      }
      ASSERT_EQ(t.library_handle(&by_library, word), AARCH64_DECODE_EXECUTED);
      EXPECT_EQ(difference(by_function, by_library), "") << t.name << " word " << std::hex << word << " case " << i;
      if (d.memory) {
        EXPECT_EQ(std::memcmp(after.data(), memory.bytes(), window_bytes), 0) << t.name << " memory, case " << i;
      }
      EXPECT_EQ(by_function.instr, word);
      EXPECT_EQ(by_library.instr, start.instr) << t.name << ": a library handler leaves the last direct word";
      if (!difference(by_function, by_library).empty()) break;
    }
  }
  EXPECT_EQ(pairs, 730u);
}

}  // namespace
