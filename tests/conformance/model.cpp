// The model's side.
#include "tests/conformance/model.h"

#include <vector>

#include "sve/decode/dispatch.h"
#include "tests/conformance/native.h"

namespace conformance {
namespace {

#if defined(__aarch64__)
std::uint64_t read_control() {
  std::uint64_t value;
  asm volatile("mrs %0, fpcr" : "=r"(value));
  return value;
}
void write_floating_point(std::uint64_t control, std::uint64_t status) {
  asm volatile("msr fpcr, %0\n\tmsr fpsr, %1" : : "r"(control), "r"(status) : "memory");
}
#else
std::uint64_t read_control() { return 0; }
void write_floating_point(std::uint64_t, std::uint64_t) {}
#endif

}  // namespace

void run_model(const TestCase& c, ModelOutcome& result) {
  static cpu_state state;
  static DecodeHandler handle;
  static std::uint32_t word;
  static int code;
  to_model(c.state, state);
  word = c.word;
  handle = is_sve(word);
  code = AARCH64_DECODE_UNDECODED;
  const std::uint64_t control = read_control();
  write_floating_point(c.state.fpcr, c.state.fpsr);
  result.faulted =
      handle != nullptr && catches_fault([](void*) { code = handle(&state, word); }, nullptr, &result.fault_address);
  write_floating_point(control, 0);
  result.code = code;
  result.stray_bytes = !from_model(state, result.state);
  result.instr_stored = state.instr == c.word;
  if (c.row->memory.stores()) window::save(result.memory);
}

unsigned run_sequence(const ModelStart& start, std::span<const std::uint32_t> words, ModelEnd& end) {
  static cpu_state state;
  to_model(start.state, state);
  state.nzcv |= start.nzcv_beside_flags;
  state.fpcr |= start.fpcr_beside_modes;
  const auto stray = [&start](std::uint8_t* predicate) {
    for (std::size_t i = 0; i < sve::vector_bytes; ++i) predicate[i] |= start.stray_predicate_bits[i];
  };
  for (auto& p : state.p) stray(p);
  stray(state.ffr);
  std::vector<std::uint32_t> code(words.begin(), words.end());
  state.pc = code.data();
  const std::uint64_t control = read_control();
  write_floating_point(state.fpcr, state.fpsr);
  unsigned executed = 0;
  while (executed < words.size() && execute_sve_instruction(&state) == AARCH64_DECODE_EXECUTED) ++executed;
  write_floating_point(control, 0);
  from_model(state, end.state);
  end.nzcv = state.nzcv;
  end.fpcr = state.fpcr;
  end.state.nzcv &= 0xf0000000;
  end.state.fpcr = start.state.fpcr;
  return executed;
}

}  // namespace conformance
