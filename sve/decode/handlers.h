// The kinds of decode handler: templates over the callee and its operands. Marshalling for the vector library exists
// here and nowhere else.
#pragma once

#include <type_traits>

#include "sve/decode/form.h"
#include "sve/insn/host_fp.h"
#include "sve/veclib/routines.h"

namespace sve::decode {

using handler = aarch64_decode_rc (*)(cpu_state*, unsigned int);

// ---- Direct: store the word, cut the operands, call the instruction function ----

template <auto* Function, class Form>
struct direct;
template <auto* Function, class... Operands>
struct direct<Function, form<Operands...>> {
  static_assert(std::is_same_v<decltype(Function), typename form<Operands...>::function*>,
                "the row's operands are not the parameters of its instruction function");
  [[gnu::flatten]] static aarch64_decode_rc handle(cpu_state* state, unsigned int word) {
    state->instr = word;
    return Function(state, Operands::record(word)...);
  }
};

template <auto* Function, class Form, std::size_t... I>
struct direct<Function, routine_takes<Form, I...>> : direct<Function, Form> {};

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
  predicate_value<bits<0>>::to_bits(context.ffr, state->ffr);
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

// Scalars travel as 64 bits, which the routine takes as signed or unsigned.
template <class Parameter>
using as_fetched = std::conditional_t<std::is_same_v<std::remove_cvref_t<Parameter>, std::int64_t>, std::uint64_t,
                                      std::remove_cvref_t<Parameter>>;
template <class... Fetched>
struct parameters {};

template <class Signature>
struct signature_of;
template <class Result, class... Parameters>
struct signature_of<Result (*)(Parameters...)> {
  using result = Result;
  using fetched = parameters<as_fetched<Parameters>...>;
};

template <auto* Routine, class RoutineForm>
struct library_call;
template <auto* Routine, class Result, class... Operands>
struct library_call<Routine, routine_form<Result, Operands...>> {
  using signature = signature_of<decltype(Routine)>;
  static_assert(std::is_same_v<typename signature::fetched, parameters<typename Operands::type..., CpuContext*>>,
                "the row's operands are not the parameters of its routine");

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
/// Both homes of the instruction take the form's operands, though the row reaches one.
template <auto* Routine, auto* Function, class Form>
struct library : library_call<Routine, typename routine_of<Form>::type> {
  static_assert(std::is_same_v<decltype(Function), typename Form::function*>,
                "the row's operands are not the parameters of its instruction function");
};

/// Prefetches touch nothing at all, not even `instr`.
struct prefetch {
  static aarch64_decode_rc handle(cpu_state*, unsigned int) { return AARCH64_DECODE_EXECUTED; }
};

}  // namespace sve::decode
