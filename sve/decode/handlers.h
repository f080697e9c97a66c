// The kinds of decode handler: templates over the callee and its operands. Marshalling for the vector library exists
// here and nowhere else.
#pragma once

#include <type_traits>

#include "sve/decode/operands.h"
#include "sve/insn/host_fp.h"
#include "sve/veclib/routines.h"

namespace sve::decode {

using handler = aarch64_decode_rc (*)(cpu_state*, unsigned int);

/// The operands of an instruction function, in the order of its parameters.
template <class... Operands>
struct operands {};

/// The result of a routine and its operands, in the order of its parameters.
template <class Result, class... Operands>
struct routine_form {};

// ---- Direct: store the word, cut the operands, call the instruction function ----

template <auto* Function, class Form>
struct direct;
template <auto* Function, class... Operands>
struct direct<Function, operands<Operands...>> {
  static_assert(
      std::is_same_v<decltype(Function), aarch64_decode_rc (*)(cpu_state*, decltype(Operands::record(0u))...)>,
      "the row's operands are not the parameters of its instruction function");
  [[gnu::flatten]] static aarch64_decode_rc handle(cpu_state* state, unsigned int word) {
    state->instr = word;
    return Function(state, Operands::record(word)...);
  }
};

/// Direct with floating-point status: afterwards `fpsr` takes the host's status register.
template <auto* Function, class Form>
struct direct_fp : direct<Function, Form> {
  [[gnu::flatten]] static aarch64_decode_rc handle(cpu_state* state, unsigned int word) {
    const aarch64_decode_rc rc = direct<Function, Form>::handle(state, word);
    read_host_status(state);
    return rc;
  }
};

// ---- Library: marshal into values and a context, call the routine, copy everything back ----

/// One operand's value, fetched from the state. A temporary of the call, so that nothing is copied twice and the unused
/// bytes of a vector stay unset.
template <class Operand>
struct fetched {
  fetched(const cpu_state* state, word_t word) { Operand::load(value, state, word); }  // NOLINT
  typename Operand::type value;
};

inline void enter(CpuContext& context, const cpu_state* state) {
  context.nzcv = static_cast<std::uint32_t>(state->nzcv);
  context.fpsr = state->fpsr;
  context.fpcr = state->fpcr | state->fpcr_extra;
  context.vl_word = vector_granules;
  predicate_in<bits<0>>::to_bits(context.ffr, state->ffr);
}

inline void leave(const CpuContext& context, const PredV& entered_ffr, cpu_state* state) {
  state->nzcv = context.nzcv;
  if (const std::uint32_t raised = context.fpsr & ~state->fpsr) [[unlikely]]
    raise_host_status(raised);
  state->fpsr = context.fpsr;
  state->fpcr = context.fpcr;  // from here on any bits of fpcr_extra stand in fpcr
  // Few routines change the register. Not to write it back then keeps one handler from waiting for the one before.
  if (register_bits(context.ffr.words) != register_bits(entered_ffr.words) || !is_canonical(state->ffr)) [[unlikely]]
    unpack_register(context.ffr.words, state->ffr);
}

template <class Signature>
struct routine_parameters;
template <class Result, class... Parameters>
struct routine_parameters<Result (*)(Parameters...)> {
  using result = Result;
  template <class... Operands>
  static constexpr bool match() {
    return std::is_same_v<routine_parameters<void (*)(std::remove_cvref_t<Parameters>...)>,
                          routine_parameters<void (*)(typename Operands::type..., CpuContext*)>>;
  }
};

template <auto* Routine, class Form>
struct library;
template <auto* Routine, class Result, class... Operands>
struct library<Routine, routine_form<Result, Operands...>> {
  using signature = routine_parameters<decltype(Routine)>;
  static_assert(signature::template match<Operands...>(), "the row's operands are not the parameters of its routine");

  [[gnu::flatten]] static aarch64_decode_rc handle(cpu_state* state, unsigned int word) {
    CpuContext context;
    enter(context, state);
    const PredV ffr = context.ffr;
    if constexpr (std::is_void_v<typename signature::result>) {
      static_assert(std::is_same_v<Result, nothing>);
      Routine(fetched<Operands>(state, word).value..., &context);
    } else {
      Result::store(state, word, Routine(fetched<Operands>(state, word).value..., &context));
    }
    leave(context, ffr, state);
    return AARCH64_DECODE_EXECUTED;
  }
};

/// Prefetches touch nothing at all, not even `instr`.
struct prefetch {
  static aarch64_decode_rc handle(cpu_state*, unsigned int) { return AARCH64_DECODE_EXECUTED; }
};

}  // namespace sve::decode
