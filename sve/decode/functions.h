// A number for each instruction function, by which rows name it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sve/lanes/repeat.h"

namespace sve::decode {

#define SVE_FUNCTION_ID(shape, name) sve_##name,
#define SVE_FUNCTIONS(shape, ...) SVE_FOR_EACH_WITH(SVE_FUNCTION_ID, shape, __VA_ARGS__)
#define SVE_UNREACHED_FUNCTIONS SVE_FUNCTIONS
#define SVE_STUBS SVE_FUNCTIONS
enum class FunctionId : std::uint16_t {
#include "sve/insn/functions.inc"
#include "sve/insn/stubs.inc"
  count
};
#undef SVE_STUBS
#undef SVE_UNREACHED_FUNCTIONS
#undef SVE_FUNCTIONS
#undef SVE_FUNCTION_ID

inline constexpr std::size_t function_count = static_cast<std::size_t>(FunctionId::count);

}  // namespace sve::decode
