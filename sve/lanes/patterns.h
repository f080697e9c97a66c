// Element counts of predicate patterns.
#pragma once

/// The number of elements that a five-bit predicate pattern selects out of `count`: POW2 (0), VL1 to VL8, VL16 to VL256
/// (9 to 13), MUL4 (29), MUL3 (30), ALL (31); every other pattern selects none. Two answers are deliberate: POW2 of no
/// elements is 1, and ALL is the even part of the count.
constexpr int VecTrueILength(unsigned long pattern, int count) {
  if (pattern == 0) {
    int power = 1;
    while (power * 2 <= count) power *= 2;
    return power;
  }
  if (pattern <= 8) return static_cast<int>(pattern) <= count ? static_cast<int>(pattern) : 0;
  if (pattern <= 13) {
    const int length = 1 << (pattern - 5);
    return length <= count ? length : 0;
  }
  switch (pattern) {
    case 29:
      return count & ~3;
    case 30:
      return count / 3 * 3;
    case 31:
      return count & ~1;
    default:
      return 0;
  }
}
