// A host whose floating point is not used: what the loops over pieces name.
#pragma once

#include "sve/processor/pieces.h"

namespace sve::processor {

inline constexpr bool exists = false;
inline constexpr bool settles_all = true;

class Control {
 public:
  Control(FPSCR, FPSCR) {}
  FPSCR raised() const { return 0; }
  bool settled() const { return true; }
};
using Under = Control&;

inline bool serves(FPSCR) { return false; }
template <class T>
bool any_of(typename Piece<T>::Bits);

}  // namespace sve::processor
