// One shape type and one table object for each decode map.
#pragma once

#include "sve/decode/shapes.h"
#include "sve/decode/table.h"

namespace sve::decode {

#define SVE_MAP(name, ...)                 \
  using shape_##name = Shape<__VA_ARGS__>; \
  extern const Map map_##name;
#include "sve/decode/maps.inc"
#undef SVE_MAP

}  // namespace sve::decode
