// The kinds of decode handler: templates over the callee and its operands. The library's protocol exists here and
// nowhere else.
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

// ---- Library: the routine's body on the registers where they lie, under the protocol of the library's context ----

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

template <class Operand>
concept whole_register = requires(cpu_state* state, word_t word) {
  Operand::place(state, word);
};

/// Whether both are registers of one file.
template <class A, class B>
concept of_one_kind =
    whole_register<A> && whole_register<B> && std::is_same_v<typename A::register_type, typename B::register_type>;
/// Whether both are the register that one field names.
template <class A, class B>
concept one_register = of_one_kind<A, B> && std::is_same_v<typename A::field, typename B::field>;

/// An operand as a body takes it: its register, or a scalar fetched from the state.
template <class Operand, class Result>
[[gnu::always_inline]] inline auto operand_of(cpu_state* state, word_t word, byte* destination) {
  if constexpr (one_register<Operand, Result>) {
    return typename Operand::register_type{destination};
  } else if constexpr (whole_register<Operand>) {
    return typename Operand::register_type{Operand::place(state, word)};
  } else {
    typename Operand::type value;
    Operand::load(value, state, word);
    return value;
  }
}

/// Whether an operand is the register that the result goes to.
template <class Operand, class Result>
[[gnu::always_inline]] inline bool is_overwritten(word_t word) {
  if constexpr (of_one_kind<Operand, Result>)
    return Operand::number(word) == Result::number(word);
  else
    return false;
}

[[gnu::always_inline]] inline void enter(in_place::CpuContext& context, std::uint32_t extra, cpu_state* state) {
  std::memcpy(&context.nzcv, &state->nzcv, sizeof context.nzcv);
  context.fpsr = state->fpsr;
  context.fpcr = state->fpcr | extra;
  context.ffr = {state->ffr};
}

/// The word of flags loses its upper half, bits of `fpcr_extra` stand in `fpcr`, which no routine changes, and the
/// first-fault register's bytes are 0 or 1, whatever the routine did.
[[gnu::always_inline]] inline void leave(const in_place::CpuContext& context, const in_place::CpuContext& entered,
                                         std::uint32_t extra, cpu_state* state) {
  state->nzcv = context.nzcv;
  if (context.fpsr != entered.fpsr) {
    if (const std::uint32_t raised = context.fpsr & ~entered.fpsr) raise_host_status(raised);
    state->fpsr = context.fpsr;
  }
  if (extra) [[unlikely]]
    state->fpcr |= extra;
  static_assert(offsetof(cpu_state, ffr) == offsetof(cpu_state, p) + sizeof state->p);
  if (!is_canonical(address_behind(state->p, state->ffr))) [[unlikely]]
    make_canonical(state->ffr);
}

template <auto& Body, class RoutineForm>
struct library_call;
template <auto& Body, class Result, class... Operands>
struct library_call<Body, routine_form<Result, Operands...>> {
  using result = typename signature_of<decltype(&Body)>::result;

  [[gnu::flatten]] static aarch64_decode_rc handle(cpu_state* state, unsigned int word) {
    in_place::CpuContext context;
    const std::uint32_t extra = state->fpcr_extra;
    enter(context, extra, state);
    const in_place::CpuContext entered = context;
    alignas(16) byte aside[vector_bytes];
    context.destination = context.aside = aside;
    if constexpr (whole_register<Result>) context.destination = Result::place(state, word);
    const bool is_source = (is_overwritten<Operands, Result>(word) || ...);
    context.result = is_source ? context.aside : context.destination;
    if constexpr (std::is_void_v<result>) {
      static_assert(std::is_same_v<Result, nothing>);
      Body(operand_of<Operands, Result>(state, word, context.destination)..., &context);
    } else if constexpr (whole_register<Result>) {
      const auto computed = Body(operand_of<Operands, Result>(state, word, context.destination)..., &context);
      if (computed.bytes != context.destination) std::memcpy(context.destination, computed.bytes, vector_bytes);
    } else {
      Result::store(state, word, Body(operand_of<Operands, Result>(state, word, context.destination)..., &context));
    }
    leave(context, entered, extra, state);
    return AARCH64_DECODE_EXECUTED;
  }
};

template <class Signature, class RoutineForm>
inline constexpr bool routine_fits = false;
template <class Signature, class Result, class... Operands>
inline constexpr bool routine_fits<Signature, routine_form<Result, Operands...>> =
    std::is_same_v<typename Signature::fetched, parameters<typename Operands::type..., CpuContext*>>;

/// Both homes of the instruction take the form's operands, though the row reaches one.
template <auto* Routine, auto& Body, auto* Function, class Form>
struct library : library_call<Body, typename routine_of<Form>::type> {
  static_assert(std::is_same_v<decltype(Function), typename Form::function*>,
                "the row's operands are not the parameters of its instruction function");
  static_assert(routine_fits<signature_of<decltype(Routine)>, typename routine_of<Form>::type>,
                "the row's operands are not the parameters of its routine");
};

/// Prefetches touch nothing at all, not even `instr`.
struct prefetch {
  static aarch64_decode_rc handle(cpu_state*, unsigned int) { return AARCH64_DECODE_EXECUTED; }
};

}  // namespace sve::decode
