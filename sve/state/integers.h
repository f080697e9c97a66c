// The integers of the machine's element sizes, by their short names.
#pragma once

#include <cstdint>

namespace sve {

inline namespace integers {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
using s8 = std::int8_t;
using s16 = std::int16_t;
using s32 = std::int32_t;
using s64 = std::int64_t;

}  // namespace integers

using byte = u8;

}  // namespace sve
