// Integer reductions and address computation as instruction functions.
#include <limits>

#include "registers.h"

namespace {

using namespace insn_test;

enum class Operation { sum, smax, smin, umax, umin, and_, or_, xor_ };

template <class T>
u64 reduced(Operation op, const byte* predicate, const byte* source) {
  using S = std::make_signed_t<T>;
  const auto v = elements<T>(source);
  u64 sum = 0;
  S smax = std::numeric_limits<S>::min(), smin = std::numeric_limits<S>::max();
  T umax = 0, umin = static_cast<T>(~T{0}), all = umin, any = 0, parity = 0;
  for (std::size_t i = 0; i < v.size(); ++i) {
    if (!active<T>(predicate, i)) continue;
    const S s = static_cast<S>(v[i]);
    sum += v[i];
    smax = s > smax ? s : smax;
    smin = s < smin ? s : smin;
    umax = v[i] > umax ? v[i] : umax;
    umin = v[i] < umin ? v[i] : umin;
    all &= v[i];
    any |= v[i];
    parity ^= v[i];
  }
  switch (op) {
    case Operation::sum:
      return sum;
    case Operation::smax:
      return static_cast<T>(smax);  // not sign-extended beyond the element
    case Operation::smin:
      return static_cast<T>(smin);
    case Operation::umax:
      return umax;
    case Operation::umin:
      return umin;
    case Operation::and_:
      return all;
    case Operation::or_:
      return any;
    default:
      return parity;
  }
}

struct Reduction {
  const char* name;
  sve::insn::vpz* function;
  Operation op;
};
const Reduction reductions[] = {
    {"uaddv", sve_uaddv_vpz, Operation::sum},  {"smaxv", sve_smaxv_vpz, Operation::smax},
    {"sminv", sve_sminv_vpz, Operation::smin}, {"umaxv", sve_umaxv_vpz, Operation::umax},
    {"uminv", sve_uminv_vpz, Operation::umin}, {"andv", sve_andv_vpz, Operation::and_},
    {"orv", sve_orv_vpz, Operation::or_},      {"eorv", sve_eorv_vpz, Operation::xor_},
};

template <class T>
void check(const Reduction& r, unsigned code) {
  for (const unsigned d : {5u, 6u})  // the register's other bytes are cleared, also when it is the source
    run(r.name, 200, calling(r.function, d, merging(1), z(6, code)), [&](auto& e, auto& s) {
      const u64 value = reduced<T>(r.op, s.p[1], s.z[6]);
      std::memset(e.z[d], 0, vector_bytes);
      std::memcpy(e.z[d], &value, 8);
    });
}

TEST(Reduction, EveryOperationAndSize) {
  for (const Reduction& r : reductions) {
    for_each_type([&]<class T>() { check<T>(r, size_code<T>); });
    check<u8>(r, 5);
  }
}

u64 low(const cpu_state& s) { return elements<u64>(s.z[0])[0]; }

TEST(Reduction, Edges) {
  cpu_state state{};
  struct {
    sve::insn::vpz* function;
    unsigned size;
    u64 expected;
  } const starts[] = {
      {sve_smaxv_vpz, element_b, 0x80},    {sve_andv_vpz, element_h, 0xffff}, {sve_sminv_vpz, element_s, 0x7fffffff},
      {sve_uminv_vpz, element_d, ~u64{0}}, {sve_orv_vpz, element_d, 0},       {sve_umaxv_vpz, element_b, 0}};
  for (const auto& [function, size, expected] : starts) {
    std::memset(state.z[0], 0xaa, vector_bytes);
    function(&state, 0, merging(1), z(1, size));  // no active element
    EXPECT_EQ(low(state), expected);
  }
  std::memset(state.p[1], 1, vector_bytes);
  std::memset(state.z[1], 0xff, vector_bytes);
  sve_uaddv_vpz(&state, 0, merging(1), z(1, element_b));
  EXPECT_EQ(low(state), 255u * vector_bytes);
  sve_smaxv_vpz(&state, 0, merging(1), z(1, element_b));
  EXPECT_EQ(low(state), 0xffu);
}

// The shift is bits 11 to 10 and the size bit 22 of the stored word; the operands' sizes do not count.
template <class T>
void check_address(bool doubleword) {
  for (unsigned shift = 0; shift < 4; ++shift)
    for (const unsigned d : {5u, 6u, 7u})
      run(
          "adr", 20, [&](cpu_state& s) { s.instr = (s.instr & ~u64{0x400c00}) | shift << 10 | u64{doubleword} << 22; },
          calling(sve_adr_scaled_zzz, z(d, element_b), z(6, element_b), z(7, element_b)),
          [&](auto& e, auto& s) {
            map_elements<T>(
                e.z[d], [&](T base, T offset) { return base + offset * (T{1} << shift); }, s.z[6], s.z[7]);
          });
}

TEST(Address, TakesItsShiftAndSizeFromTheWord) {
  check_address<u32>(false);
  check_address<u64>(true);
}

}  // namespace
