// The vocabulary of the row files: what DIRECT, DIRECT_FP, LIBRARY and PREFETCH make of a row, and SVE_ROWS of a map.
#pragma once

#include "sve/decode/forms.h"
#include "sve/decode/map_shapes.h"
#include "sve/decode/table.h"

#define DIRECT(key, name, function, ...) \
  row { key, kind::direct, #name, #function, direct<function, __VA_ARGS__>::handle }
#define DIRECT_FP(key, name, function, ...) \
  row { key, kind::direct_fp, #name, #function, direct_fp<function, __VA_ARGS__>::handle }
#define LIBRARY(key, name, ...) \
  row { key, kind::library, #name, nullptr, library<name, __VA_ARGS__>::handle }
#define PREFETCH(key, name) \
  row { key, kind::prefetch, #name, nullptr, prefetch::handle }

#define SVE_ROWS(name, ...)                  \
  namespace {                                \
  constexpr row rows_##name[] = __VA_ARGS__; \
  }                                          \
  const map map_##name = {"decode_map__" #name, shape_##name::mask, shape_##name::key, shape_##name::word, rows_##name};
