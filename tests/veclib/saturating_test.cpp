// Saturating additions and subtractions of the vector library.
#include "values.h"

namespace {

using namespace veclib_test;

template <class T>
void check_vectors(const char* name, sve::routine::vvx* routine, int sign) {
  run(name, 100, routine,
      elements<T>([&](auto& o, auto e) { return clamp<T>(wide{at<T>(o.a, e)} + sign * wide{at<T>(o.b, e)}); }));
}

// The immediate is unsigned, also where the element is signed.
template <class T>
void check_immediates(const char* name, sve::routine::vix* routine, int sign) {
  for (u64 imm = 0; imm < 256; ++imm)
    for (const u64 value : {imm, imm << 8}) {
      if (sizeof(T) == 1 && value > 255) continue;  // reserved, and 0 from its handlers
      run(name, 2, calling(routine, value), elements<T>([&](auto& o, auto e) {
            return clamp<T>(wide{at<T>(o.a, e)} + sign * static_cast<wide>(value));
          }));
    }
}

TEST(Saturating, VectorsAndEveryImmediate) {
#define CHECK(Type, T)                                         \
  check_vectors<T>("qadd " #Type, Vec##Type##QAddVVX, 1);      \
  check_vectors<T>("qsub " #Type, Vec##Type##QSubVVX, -1);     \
  check_immediates<T>("qadd i " #Type, Vec##Type##QAddVIX, 1); \
  check_immediates<T>("qsub i " #Type, Vec##Type##QSubVIX, -1);
  FOR_INTEGERS(CHECK)
#undef CHECK
}

TEST(Saturating, Edges) {
  CpuContext c{0x12345678, 0x9f, 0, 14, {}}, before = c;
  const VectorV minus_one = generated<s8>(c, [](auto) { return -1; });
  EXPECT_EQ(at<s8>(VecS8QAddVIX(minus_one, 255, &c), 111), 127);  // 254, above the limit
  EXPECT_EQ(at<u8>(VecU8QSubVVX(VectorV{}, minus_one, &c), 0), 0);
  const VectorV largest = generated<s64>(c, [](auto) { return std::numeric_limits<s64>::max(); });
  EXPECT_EQ(at<s64>(VecS64QAddVVX(largest, largest, &c), 13), std::numeric_limits<s64>::max());
  EXPECT_EQ(difference(before, c), "");  // no sticky flag anywhere
}

}  // namespace
