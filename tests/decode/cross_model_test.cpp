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

/// The library handler of a direct row: what the table makes of a row that goes to the library.
template <auto* Routine, auto* Function, class Form>
struct library_of : library<Routine, Function, Form> {};

// Structure forms move several registers: the one shape that the table's marshalling does not know.
template <std::size_t N, class Second>
struct structure_operands {
  structure_operands(const cpu_state* state, word_t w) : predicate(state, w), base(state, w), second(state, w) {
    for (std::size_t k = 0; k < N; ++k) {
      number[k] = (bits<4, 0>::cut(w) + k) % 32;
      std::memcpy(z[k].bytes, state->z[number[k]], vector_bytes);
    }
  }
  fetched<Pg<bare>> predicate;
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
STRUCTURES(load2_si, 2, Imm_vl)
STRUCTURES(load3_si, 3, Imm_vl)
STRUCTURES(load4_si, 4, Imm_vl)
STRUCTURES(load2_ss, 2, Xm)
STRUCTURES(load3_ss, 3, Xm)
STRUCTURES(load4_ss, 4, Xm)
STRUCTURES(store2_si, 2, Imm_vl)
STRUCTURES(store3_si, 3, Imm_vl)
STRUCTURES(store4_si, 4, Imm_vl)
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
#define LIBRARY(key, name, function, ...) \
  twin { #name, nullptr, nullptr }
#define PREFETCH(key, name, function, ...) \
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
