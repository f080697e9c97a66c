// Words whose elements, at every size, are where mistakes show.
#pragma once

#include <iterator>
#include <random>

#include "sve/state/integers.h"

namespace test {

using namespace sve::integers;
using Random = std::mt19937_64;

// Integers, then floating-point numbers: infinities, NaNs, ones, the largest subnormal ones.
inline constexpr u64 edge_words[] = {0,
                                     1,
                                     ~u64{0},
                                     0x8000000000000000,
                                     0x7fffffffffffffff,
                                     0x80000000'7fffffff,
                                     0x8000'7fff'0001'ffff,
                                     0x80'7f'01'ff'00'fe'81'7e,
                                     0x0000000500000040,
                                     0x0020'0010'000f'0100,
                                     0x08'07'09'40'3f'00'01'02,
                                     0x7ff0000000000000,
                                     0xfff8000000000001,
                                     0x7ff0000000000001,
                                     0x7f800000'ffc00001,
                                     0x7f800001'00000001,
                                     0x3ff0000000000000,
                                     0x3f800000'bf800000,
                                     0x000fffffffffffff,
                                     0x007fffff'80000001};

inline u64 random_word(Random& random) {
  return random() % 3 == 0 ? edge_words[random() % std::size(edge_words)] : random();
}

}  // namespace test
