// The instructions of a run as native code sees them: what of the table of native forms each is, and its operands.
#pragma once

#include <cstdint>
#include <string_view>

#include "sve/decode/table.h"
#include "sve/runner/arm64/encode.h"

namespace sve::runner {

enum class Action : std::uint8_t {
  none,
  binary,
  reversed,
  fp_binary,
  fp_reversed,
  fp_divide,
  fp_divide_reversed,
  fused,
  fp_fused,
  fp_fused_negated,  // the addend is negated, too
  complex_fused,
  unary,
  fp_unary,
  reverse,
  extend_signed,
  extend_unsigned,
  shift_left,
  shift_right,
  shift_right_signed,
  convert,  // between formats, or formats and integers, of different sizes
  move,
  select,
  copy,
  load,
  // From here on each stands alone.
  store,
  compare,
  compare_reversed,
  compare_not,
  fp_compare,
  fp_compare_reversed,
  fp_compare_not,
  unpack_low,
  unpack_high,
  sum,
  fp_sum,
  fp_ordered_sum,
  reduce,
  while_unsigned,
  while_signed,
  set_pattern,
  logic,  // of predicates
  set_ffr,
  read_ffr,
  test,
  count_active,
  compact,
  gather,
  scatter,
  replicate,
  series,
  structure,
  nothing,  // as prefetches
  count,
  count_up,
  count_down,
  add_length,
  read_length,
  scalar
};

constexpr bool is_standalone(Action how) { return how >= Action::store; }

inline constexpr unsigned no_register = 0xff;

enum class Conversion : std::uint8_t { none, widen, narrow, from_signed, from_unsigned, widen_and_convert };

struct Insn {
  Conversion converts = Conversion::none;
  std::uint32_t word = 0;
  const decode::Row* row = nullptr;
  Action how = Action::none;
  const arm64::VectorForm* form = nullptr;
  std::uint8_t size = 0;  // of its elements
  std::uint8_t d = no_register, sources[3] = {}, source_count = 0;
  std::uint8_t pd = no_register, pn = no_register, pm = no_register;
  std::uint8_t pg = no_register;
  decode::Predication inactive = decode::Predication::none;
  bool is_store = false;
  bool tied = false;         // the first source is the destination
  bool accumulates = false;  // the destination is an addend
  bool has_immediate = false;
  std::int64_t immediate = 0, second_immediate = 0;
  std::uint8_t xd = no_register, xn = no_register, xm = no_register;
  bool is_w = false;
  std::uint32_t x_used = 0, z_used = 0;  // a bit for each register
  std::uint16_t p_written = 0;
  bool writes_x = false;
};

/// An instruction and its handler, or one that is not of SVE and null.
Insn decode_insn(std::uint32_t word, DecodeHandler handle);

/// The code of the size that a mnemonic ends with, as that of an element count.
std::uint8_t count_size(std::string_view mnemonic);

/// The greater or the less of two, which for doublewords is a compare and a choice.
bool is_extreme(const Insn& i);

/// The row of an instruction with this handler.
const decode::Row* find_row(DecodeHandler handle);

/// Finds out what the processor has. Once, at start.
void start_native();

/// Whether an SVE instruction has a native form, at least where its predicate is full.
bool has_native_form(std::uint32_t word);

/// Whether a word may stand in a run between SVE instructions: it moves or computes general registers alone.
bool is_simple_scalar(std::uint32_t word);

}  // namespace sve::runner
