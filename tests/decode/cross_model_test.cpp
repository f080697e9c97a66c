// Every row on random states. It changes what its description says and nothing else; and it also runs through the
// vector library's routine of the same name, with its operands as values, which must leave the same state: the other
// home of a row that runs in an instruction function, the other representation of one that runs in the library. The row
// files are read once more here, with macros that build the other handler.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "sve/decode/rows.h"
#include "tests/states.h"

namespace sve::decode {
namespace {

/// The handlers by value of all rows but prefetches, by name.
std::map<std::string_view, handler>& other_homes() {
  static std::map<std::string_view, handler> all;
  return all;
}

/// One operand's value, fetched from the state.
template <class Operand>
struct Fetched {
  Fetched(const cpu_state* state, word_t word) { Operand::load(value, state, word); }  // NOLINT
  typename Operand::type value;
};

CpuContext entered(const cpu_state* state) {
  CpuContext context{};
  context.nzcv = static_cast<std::uint32_t>(state->nzcv);
  context.fpsr = state->fpsr;
  context.fpcr = state->fpcr | state->fpcr_extra;
  context.vl_word = vector_granules;
  predicate_value<Bits<0>>::to_bits(context.ffr, state->ffr);
  return context;
}

void leave(const CpuContext& context, cpu_state* state) {
  state->nzcv = context.nzcv;
  state->fpsr = context.fpsr;
  state->fpcr = context.fpcr;
  unpack_register(context.ffr.words, state->ffr);
}

/// The protocol around an exported routine, step by step.
template <auto* Routine, class RoutineForm>
struct CallByValue;
template <auto* Routine, class Result, class... Operands>
struct CallByValue<Routine, routine_form<Result, Operands...>> {
  static aarch64_decode_rc handle(cpu_state* state, unsigned int word) {
    CpuContext context = entered(state);
    if constexpr (std::is_same_v<Result, nothing>)
      Routine(Fetched<Operands>(state, word).value..., &context);
    else
      Result::store(state, word, Routine(Fetched<Operands>(state, word).value..., &context));
    leave(context, state);
    return AARCH64_DECODE_EXECUTED;
  }
};
template <auto* Routine, auto* Function, class Form>
struct LibraryOf : CallByValue<Routine, typename routine_of<Form>::type> {};

// Structure forms move several registers: the one shape of which this does not hold.
template <std::size_t N, class Second>
struct StructureOperands {
  StructureOperands(const cpu_state* state, word_t w) : predicate(state, w), base(state, w), second(state, w) {
    for (std::size_t k = 0; k < N; ++k) {
      number[k] = (Bits<4, 0>::cut(w) + k) % 32;
      std::memcpy(z[k].bytes, state->z[number[k]], vector_bytes);
    }
  }
  Fetched<Pg<bare>> predicate;
  Fetched<Base> base;
  Fetched<Second> second;
  VectorV z[N];
  std::size_t number[N];
};
template <auto* Routine, std::size_t N, class Second>
aarch64_decode_rc structures(cpu_state* state, unsigned int word) {
  StructureOperands<N, Second> o(state, word);
  CpuContext context = entered(state);
  [&]<std::size_t... K>(std::index_sequence<K...>) {
    Routine(o.predicate.value, o.base.value, o.second.value, o.z[K]..., &context);
  }
  (std::make_index_sequence<N>{});
  for (std::size_t k = 0; k < N; ++k) std::memcpy(state->z[o.number[k]], o.z[k].bytes, vector_bytes);
  leave(context, state);
  return AARCH64_DECODE_EXECUTED;
}
#define STRUCTURES(shape, N, Second)                               \
  template <routine::shape* Routine, auto* Function, class Form>   \
  struct LibraryOf<Routine, Function, Form> {                      \
    static constexpr auto handle = structures<Routine, N, Second>; \
  };
#define STRUCTURES_OF(N)               \
  STRUCTURES(load##N##_si, N, Imm_vl)  \
  STRUCTURES(load##N##_ss, N, Xm)      \
  STRUCTURES(store##N##_si, N, Imm_vl) \
  STRUCTURES(store##N##_ss, N, Xm)
STRUCTURES_OF(2)
STRUCTURES_OF(3)
STRUCTURES_OF(4)

}  // namespace
}  // namespace sve::decode

// The row files once more, as pairs of handlers.
#undef DIRECT
#undef DIRECT_FP
#undef LIBRARY
#undef PREFETCH
#undef SVE_ROWS
#define DIRECT(key, name, function, ...) \
  { #name, LibraryOf < name, function, __VA_ARGS__> ::handle }
#define DIRECT_FP DIRECT
#define LIBRARY DIRECT
#define PREFETCH(key, name, function, ...) \
  { #name, nullptr }
#define SVE_ROWS(name, ...)                                                                              \
  namespace {                                                                                            \
  [[maybe_unused]] const bool added_##name = [] {                                                        \
    for (const auto& [row, handle] : std::initializer_list<std::pair<const char*, handler>> __VA_ARGS__) \
      if (handle) other_homes()[row] = handle;                                                           \
    return true;                                                                                         \
  }();                                                                                                   \
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

struct MemoryWindow {
  MemoryWindow() {
    void* at = mmap(reinterpret_cast<void*>(window), window_bytes, PROT_READ | PROT_WRITE,
                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    EXPECT_EQ(at, reinterpret_cast<void*>(window));
  }
  ~MemoryWindow() { munmap(bytes(), window_bytes); }
  byte* bytes() const { return reinterpret_cast<byte*>(window); }
};

using sve::decode::AddressForm;
using sve::decode::Operand;
using sve::decode::OperandRole;
using sve::decode::Row;

using namespace test;

cpu_state make_state(const Row& r, Random& random) {
  cpu_state state{};
  for (auto& z : state.z) random_words(z, vector_bytes, random);
  for (std::uint64_t& x : state.x)
    x = random() % 3 == 0 ? edge_words[random() % std::size(edge_words)] : random() % 130;
  state.sp = random();
  state.nzcv = random() & 0xf0000000;
  state.fpsr = static_cast<std::uint32_t>(random()) & 0x9f;
  state.fpcr = static_cast<std::uint32_t>(random()) & 0x07c80000;  // AHP, DN, FZ, RMode, FZ16
  // Predicates: sparse, dense, all or none. In a function's row bits between element starts only where no flags are set
  // from them: the flag writers of the two models differ there, which has its own test. In a library row all bits of a
  // byte but the lowest may be anything, and mean nothing.
  const auto predicate = [&](byte* p) {
    const unsigned density = static_cast<unsigned>(random() % 5);
    const bool starts_alone = r.is_direct() && r.function->writes & sve::decode::flag_nzcv && r.element_bytes();
    const std::size_t step = starts_alone ? r.element_bytes() : 1;
    for (std::size_t i = 0; i < vector_bytes; ++i) {
      const bool set = density == 0 ? false : density == 4 ? true : random() % 4 < density;
      p[i] = set && i % step == 0;
    }
  };
  Random stray(state.sp);
  for (auto& p : state.p) {
    predicate(p);
    if (!r.is_direct() && stray() % 2)
      for (byte& b : p) b |= static_cast<byte>(stray()) & 0xfe;
  }
  predicate(state.ffr);
  if (r.function->is_memory()) {
    // Registers 0 to 15 and SP are bases in the middle of the window, the others small indices; vectors hold offsets,
    // or addresses where they are bases.
    for (unsigned i = 0; i < 31; ++i) state.x[i] = i < 16 ? window + window_bytes / 2 + random() % 64 : random() % 16;
    state.sp = window + window_bytes / 2;
    const bool addresses = r.form->address == AddressForm::vector_immediate;
    const Operand* offset = r.find(OperandRole::offset);
    if (addresses || r.form->address == AddressForm::base_vector)
      for (auto& z : state.z)
        for (std::size_t i = 0; i < vector_bytes; i += r.element_bytes()) {
          std::uint64_t value = addresses ? window + 1024 + random() % 4096 : random() % 128;
          if (offset->extends == sve::decode::Extension::sxtw && random() % 4 == 0)
            value = static_cast<std::uint32_t>(-static_cast<std::int32_t>(random() % 128));
          std::memcpy(z + i, &value, r.element_bytes());
        }
  }
  if (r.model == sve::decode::Kind::direct_fp && (r.mnemonic() == "fcmle" || r.mnemonic() == "fcmlt")) {
    // On a NaN the library's unreached forms differ, deliberately; that has a test of its own.
    for (auto& z : state.z)
      for (std::size_t i = 0; i < vector_bytes; i += r.element_bytes()) z[i + r.element_bytes() - 1] &= 0xbf;
  }
  return state;
}

std::uint32_t make_word(const sve::decode::Map& map, const Row& r, Random& random) {
  std::uint32_t word = map.word(r.key) | (static_cast<std::uint32_t>(random()) & ~map.fixed_bits);
  const auto set = [&](std::uint32_t mask, std::uint32_t bits) {
    if ((map.fixed_bits & mask) == 0) word = (word & ~mask) | (bits & mask);
  };
  // Register overlaps are where mistakes show.
  if (random() % 3 == 0 && !r.function->is_memory()) set(0x1fu << 5, word << 5);
  for (const Operand& o : r.operands()) {
    const bool general = o.kind == sve::decode::OperandKind::x || o.kind == sve::decode::OperandKind::x_or_sp;
    if (r.function->is_memory() && general)
      word = o.with(word, random() % 4 == 0 ? 31 : o.role == OperandRole::base ? random() % 16 : 16 + random() % 15);
    if (o.spelled == sve::decode::Spelling::logical) set(1u << 5, 0);  // never the one whose expansion does not return
  }
  // A register's length of offset stays in the window.
  if (r.function->access == sve::decode::AccessKind::fill || r.function->access == sve::decode::AccessKind::spill)
    set(0x3fu << 16, random() % 2 ? 0 : ~0u);
  return word;
}

/// Takes back from `after` what the row says that the word writes; returns which flags had changed.
sve::decode::Flags take_back(const Row& r, std::uint32_t word, const cpu_state& before, cpu_state& after) {
  using enum sve::decode::OperandKind;
  for (const Operand& o : r.operands()) {
    if (!o.is_written()) continue;
    const std::uint32_t n = o.number(word);
    if (o.kind == p) std::memcpy(after.p[n], before.p[n], vector_bytes);
    if (o.kind == z || o.kind == v)
      for (unsigned k = 0; k < std::max<unsigned>(o.registers, 1); ++k)
        std::memcpy(after.z[(n + k) % 32], before.z[(n + k) % 32], vector_bytes);
    if (n < 31 && (o.kind == x || o.kind == x_or_sp)) after.x[n] = before.x[n];
    if (n == 31 && o.kind == x_or_sp) after.sp = before.sp;
  }
  after.instr = before.instr;
  sve::decode::Flags changed = 0;
  if (after.nzcv != before.nzcv) changed |= sve::decode::flag_nzcv;
  if (after.fpsr != before.fpsr) changed |= sve::decode::flag_fpsr;
  if (std::memcmp(after.ffr, before.ffr, vector_bytes) != 0) changed |= sve::decode::flag_ffr;
  if (r.function->writes & sve::decode::flag_nzcv) after.nzcv = before.nzcv;
  if (r.function->writes & sve::decode::flag_fpsr) after.fpsr = before.fpsr;
  if (r.function->writes & sve::decode::flag_ffr) std::memcpy(after.ffr, before.ffr, vector_bytes);
  return changed;
}

TEST(EveryRow, ChangesWhatItSaysAndAgreesWithItsOtherHome) {
  // A short vector has few values, and each flag that an instruction may change is to change once.
  constexpr int cases = vector_bytes < 64 ? 240 : 80;
  const MemoryWindow memory;
  std::vector<byte> before(window_bytes), after(window_bytes);
  const auto& homes = sve::decode::other_homes();
  std::size_t pairs = 0;
  std::map<std::string_view, sve::decode::Flags> changed;
  for (const sve::decode::Map* map : sve::decode::maps_in_is_sve_order())
    for (const Row& r : map->rows) {
      const auto other = homes.find(r.name);
      EXPECT_EQ(other != homes.end(), r.model != sve::decode::Kind::prefetch);
      pairs += other != homes.end();
      Random random(std::hash<std::string_view>{}(r.name));
      for (int i = 0; i < cases; ++i) {
        const std::uint32_t word = make_word(*map, r, random);
        const cpu_state start = make_state(r, random);
        if (r.function->is_memory()) {
          random_words(before.data(), window_bytes, random);
          std::memcpy(memory.bytes(), before.data(), window_bytes);
        }
        cpu_state result = start;
        {
          const LiveControl control(start);
          ASSERT_EQ(r.handle(&result, word), AARCH64_DECODE_EXECUTED);
        }
        if (r.function->is_memory()) {
          std::memcpy(after.data(), memory.bytes(), window_bytes);
          std::memcpy(memory.bytes(), before.data(), window_bytes);
          if (!r.function->stores()) {
            EXPECT_EQ(after, before) << r.name;
          }
        }
        EXPECT_EQ(result.instr, r.is_direct() ? word : start.instr) << r.name << ": only direct rows store their word";
        cpu_state taken_back = result;
        changed[r.function->name] |= take_back(r, word, start, taken_back);
        ASSERT_EQ(difference(start, taken_back), "") << r.name << " word " << std::hex << word << " case " << i;
        if (other == homes.end()) continue;
        cpu_state by_library = start;
        ASSERT_EQ(other->second(&by_library, word), AARCH64_DECODE_EXECUTED);
        EXPECT_EQ(by_library.instr, start.instr) << r.name;
        by_library.instr = result.instr;
        ASSERT_EQ(difference(result, by_library), "")
            << r.name << " word " << std::hex << word << " case " << i << ": handler and routine";
        if (r.function->is_memory()) {
          EXPECT_EQ(std::memcmp(after.data(), memory.bytes(), window_bytes), 0) << r.name << " memory, case " << i;
        }
      }
    }
  EXPECT_EQ(pairs, homes.size());
  // What no case changed is not there to be said. No load faults here, so that none marks the first-fault register.
  for (const auto& f : sve::decode::functions.of)
    if (const auto found = changed.find(f.name); found != changed.end() && !f.speculative()) {
      EXPECT_EQ(found->second, f.writes) << f.name;
    }
}

}  // namespace
