// Every name of the two models exists: the routines of the vector library, the instruction functions and the stubs.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>
#include <string>

#include "sve/decode/table.h"
#include "sve/insn/functions.h"
#include "sve/lanes/repeat.h"
#include "sve/veclib/routines.h"
#include "tests/states.h"

namespace {

using test::for_each_row;

/// How much there is of everything. It stands here and nowhere else.
constexpr struct {
  std::size_t direct, direct_fp, of_library, prefetch;  // rows by kind
  std::size_t reached_functions, unreached_functions, stubs;
  std::size_t routines;
} count = {657, 73, 717, 36, 410, 48, 339, 1447};

using Address = void (*)();

struct Entry {
  const char* name;
  Address callee;
};

// Each list below names every function of its kind and takes its address, so that one that is missing does not link.
#define ENTRY(shape, name) {"sve_" #name, reinterpret_cast<Address>(static_cast<sve::insn::shape*>(sve_##name))},

const Entry reached_functions[] = {
#define SVE_FUNCTIONS(shape, ...) SVE_FOR_EACH_WITH(ENTRY, shape, __VA_ARGS__)
#define SVE_UNREACHED_FUNCTIONS(...)
#include "sve/insn/functions.inc"
#undef SVE_FUNCTIONS
#undef SVE_UNREACHED_FUNCTIONS
};

const Entry unreached_functions[] = {
#define SVE_FUNCTIONS(...)
#define SVE_UNREACHED_FUNCTIONS(shape, ...) SVE_FOR_EACH_WITH(ENTRY, shape, __VA_ARGS__)
#include "sve/insn/functions.inc"
#undef SVE_FUNCTIONS
#undef SVE_UNREACHED_FUNCTIONS
    {"sve_zip1", reinterpret_cast<Address>(sve_zip1)},
    {"sve_zip2", reinterpret_cast<Address>(sve_zip2)},
    {"sve_uzp1", reinterpret_cast<Address>(sve_uzp1)},
};

const Entry stubs[] = {
#define SVE_STUBS(shape, ...) SVE_FOR_EACH_WITH(ENTRY, shape, __VA_ARGS__)
#include "sve/insn/stubs.inc"
#undef SVE_STUBS
};

#undef ENTRY
#define ENTRY(shape, type, op) \
  {"Vec" #type #op, reinterpret_cast<Address>(static_cast<sve::routine::shape*>(Vec##type##op))},

const Entry routines[] = {
#define SVE_ROUTINES(shape, types, ...) SVE_FOR_EACH_PAIR(ENTRY, shape, types, __VA_ARGS__)
#include "sve/veclib/routines.inc"
#undef SVE_ROUTINES
};

/// The routines' families, as their list has them.
std::map<std::string, sve::decode::Family> routine_families() {
  std::map<std::string, sve::decode::Family> families;
  sve::decode::Family current{};
#define SVE_FAMILY(name) current = sve::decode::Family::name;
#define PLACE(shape, type, op) families["Vec" #type #op] = current;
#define SVE_ROUTINES(shape, types, ...) SVE_FOR_EACH_PAIR(PLACE, shape, types, __VA_ARGS__)
#include "sve/veclib/routines.inc"
  return families;
}

template <std::size_t N>
std::set<std::string> names(const Entry (&entries)[N]) {
  std::set<std::string> result;
  for (const Entry& e : entries) {
    EXPECT_NE(e.callee, nullptr) << e.name;
    EXPECT_TRUE(result.insert(e.name).second) << e.name << " stands twice";
  }
  return result;
}

TEST(Inventory, Counts) {
  EXPECT_EQ(names(reached_functions).size(), count.reached_functions);
  EXPECT_EQ(names(unreached_functions).size(), count.unreached_functions);
  EXPECT_EQ(names(stubs).size(), count.stubs);
  EXPECT_EQ(names(routines).size(), count.routines);
  std::size_t rows[4] = {};
  for_each_row([&](auto&, auto& r) { ++rows[static_cast<int>(r.model)]; });
  using enum sve::decode::Kind;
  EXPECT_EQ(rows[static_cast<int>(direct)], count.direct);
  EXPECT_EQ(rows[static_cast<int>(direct_fp)], count.direct_fp);
  EXPECT_EQ(rows[static_cast<int>(library)], count.of_library);
  EXPECT_EQ(rows[static_cast<int>(prefetch)], count.prefetch);
}

TEST(Inventory, RowsReachWhatTheListsSay) {
  const std::set<std::string> functions = names(reached_functions), library = names(routines);
  std::set<std::string> called;
  for_each_row([&](auto&, auto& r) {
    if (r.is_direct()) {
      EXPECT_TRUE(functions.count(r.function->name)) << r.name;
      called.insert(r.function->name);
    }
    EXPECT_TRUE(r.model == sve::decode::Kind::prefetch || library.count(r.name)) << r.name;
  });
  EXPECT_EQ(called, functions);
}

TEST(Inventory, BothModelsNameOneFamily) {
  const auto families = routine_families();
  for_each_row([&](auto&, auto& r) {
    EXPECT_TRUE(r.model == sve::decode::Kind::prefetch || families.at(r.name) == r.function->of) << r.name;
  });
}

template <class... Operands>
aarch64_decode_rc call(aarch64_decode_rc (*stub)(cpu_state*, Operands...), cpu_state* state) {
  return stub(state, Operands{}...);
}

const struct {
  const char* name;
  aarch64_decode_rc (*run)(cpu_state*);
} stub_calls[] = {
#define STUB(shape, stub) \
  {"sve_" #stub, [](cpu_state* state) { return call(static_cast<sve::insn::shape*>(sve_##stub), state); }},
#define SVE_STUBS(shape, ...) SVE_FOR_EACH_WITH(STUB, shape, __VA_ARGS__)
#include "sve/insn/stubs.inc"
#undef SVE_STUBS
};

TEST(Stubs, EachAnswersWithItsMessageAndCodeAndChangesNothing) {
  cpu_state state;
  for (std::size_t i = 0; i < sizeof state; ++i)
    reinterpret_cast<unsigned char*>(&state)[i] = static_cast<unsigned char>(i * 29);
  state.pc = reinterpret_cast<std::uint32_t*>(0x12340);
  state.instr = 0x2e1f0a05;
  const cpu_state before = state;
  int called = 0;
  for (const auto& stub : stub_calls) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(stub.run(&state), AARCH64_DECODE_UNDECODED) << stub.name;
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              std::string("Unimplemented instruction: [  12340:\t 2e1f0a05\t ") + stub.name + "  ]\n");
    EXPECT_EQ(std::memcmp(&state, &before, sizeof state), 0) << stub.name;
    ++called;
  }
  EXPECT_EQ(called, static_cast<int>(count.stubs));
}

}  // namespace
