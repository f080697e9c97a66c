// The instruction table: 1483 rows in 44 maps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "sve/decode/dispatch.h"

namespace sve::decode {

enum class kind : std::uint8_t { direct, direct_fp, library, prefetch };

/// One instruction form: the key of its fixed bits, its handler's name, and the handler.
struct row {
  int key;
  kind model;
  const char* name;      ///< the handler's name, and the name of the library routine
  const char* function;  ///< the instruction function that a direct row calls, otherwise null
  decode_handler handle;
};

/// One map: its name, how its key is cut, and its rows in ascending order of key.
struct map {
  const char* name;  ///< `decode_map__` and the bit ranges of the key
  std::uint32_t fixed_bits;
  int (*key)(std::uint32_t word);
  std::uint32_t (*word)(int key);
  std::span<const row> rows;
};

/// The maps in the order of `is_sve`, and in that of `execute_sve_instruction`.
std::span<const map* const> maps_in_is_sve_order();
std::span<const map* const> maps_in_execute_order();

/// The handler that the search of `is_sve`, and that of `execute_sve_instruction`, finds in the maps, or null. Both
/// functions first look among the words that they met lately.
decode_handler find_in_is_sve_order(std::uint32_t word);
decode_handler find_in_execute_order(std::uint32_t word);

/// What `execute_sve_instruction` does with a word once it has its handler: runs it, and on success counts and moves
/// on.
aarch64_decode_rc execute_with(decode_handler handle, cpu_state* state, std::uint32_t word);

/// The row of a word, or null.
const row* find_row(std::uint32_t word);

}  // namespace sve::decode
