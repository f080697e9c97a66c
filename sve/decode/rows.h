// The vocabulary of the row files: what DIRECT, DIRECT_FP, LIBRARY and PREFETCH make of a row, and SVE_ROWS of a map.
#pragma once

#include "sve/decode/forms.h"
#include "sve/decode/handlers.h"
#include "sve/decode/map_shapes.h"
#include "sve/decode/table.h"

#define SVE_ROW(key, model, name, function, handle, ...)                                                         \
  Row {                                                                                                          \
    key, Kind::model, #name, &functions.of[static_cast<std::size_t>(FunctionId::function)], &__VA_ARGS__::about, \
        handle                                                                                                   \
  }
#define DIRECT(key, name, function, ...) \
  SVE_ROW(key, direct, name, function, (direct<function, __VA_ARGS__>::handle), __VA_ARGS__)
#define DIRECT_FP(key, name, function, ...) \
  SVE_ROW(key, direct_fp, name, function, (direct_fp<function, __VA_ARGS__>::handle), __VA_ARGS__)
#define LIBRARY(key, name, function, ...) \
  SVE_ROW(key, library, name, function, (library<name, in_place::name, function, __VA_ARGS__>::handle), __VA_ARGS__)
#define PREFETCH(key, name, function, ...) SVE_ROW(key, prefetch, name, function, prefetch::handle, __VA_ARGS__)

#define SVE_ROWS(name, ...)                  \
  namespace {                                \
  constexpr Row rows_##name[] = __VA_ARGS__; \
  }                                          \
  const Map map_##name = {"decode_map__" #name, shape_##name::mask, shape_##name::key, shape_##name::word, rows_##name};
