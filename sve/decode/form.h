// A form: the operands of an instruction, in the order of its instruction function's parameters, and the two things
// that follow from them: the operands of its library routine, and a description.
#pragma once

#include <array>
#include <tuple>
#include <utility>

#include "sve/decode/operands.h"

namespace sve::decode {

/// The result of a routine and its operands, in the order of its parameters.
template <class Result, class... Operands>
struct routine_form {};
/// The result of a routine that returns none.
struct nothing {};

/// The entry that takes a routine's result: the first operand, where it is written.
template <class... Entries>
struct result_of {
  using type = nothing;
};
template <class First, class... Others>
struct result_of<First, Others...> {
  using type = std::conditional_t<First::about.is_written(), First, nothing>;
};

/// How a routine takes the operands of a form: in the same order, but without a result that is no source, and with the
/// data of a store last. The old destination is a source where it is also named as one, and where inactive elements
/// keep it.
template <std::size_t N>
struct routine_order {
  std::size_t at[N + 1] = {};
  std::size_t count = 0;

  constexpr explicit routine_order(const std::array<Operand, N>& operands) {
    bool merges = false;
    for (const Operand& o : operands) merges |= o.inactive == Predication::merging;
    for (std::size_t i = 0; i < N; ++i)
      if (operands[i].role != OperandRole::stored && (operands[i].role != OperandRole::destination || merges))
        at[count++] = i;
    for (std::size_t i = 0; i < N; ++i)
      if (operands[i].role == OperandRole::stored) at[count++] = i;
  }
};

// By values: GCC's undefined-behaviour sanitizer takes no test of a pointer into a constant for a constant.
constexpr AddressForm address_of(std::span<const Operand> operands) {
  bool has_base = false, has_register_offset = false;
  OperandKind base{}, offset{};
  for (const Operand& o : operands) {
    if (o.role == OperandRole::base) {
      has_base = true;
      base = o.kind;
    }
    if (o.role == OperandRole::offset && o.is_register()) {
      has_register_offset = true;
      offset = o.kind;
    }
  }
  if (!has_base) return AddressForm::none;
  if (base == OperandKind::z) return AddressForm::vector_immediate;
  return !has_register_offset       ? AddressForm::base_immediate
         : offset == OperandKind::z ? AddressForm::base_vector
                                    : AddressForm::base_index;
}

/// The size of the first vector or predicate that has one. A conversion works on the wider of its two sizes.
constexpr std::uint8_t element_size_of(std::span<const Operand> operands) {
  std::uint8_t size = Operand::no_size;
  bool merges = false;
  for (const Operand& o : operands) {
    const bool sized = (o.kind == OperandKind::z || o.kind == OperandKind::p) && o.size != Operand::no_size;
    merges |= o.inactive == Predication::merging;
    if (!sized) continue;
    const bool converted = merges && operands[0].role == OperandRole::destination && o.kind == OperandKind::z;
    if (size == Operand::no_size || (converted && o.size > size)) size = o.size;
  }
  return size;
}

template <class... Entries>
struct form {
  using function = aarch64_decode_rc(cpu_state*, decltype(Entries::record(0u))...);
  static constexpr std::size_t size = sizeof...(Entries);
  static_assert(size <= max_operands);

  /// In the order of the assembler's syntax: the base of an address before its offset.
  static constexpr std::array<Operand, size> in_syntax = [] {
    std::array<Operand, size> list{Entries::about...};
    for (std::size_t i = 1; i < size; ++i)
      if (list[i].role == OperandRole::base && list[i - 1].role == OperandRole::offset) std::swap(list[i], list[i - 1]);
    return list;
  }();
  static constexpr OperandForm about{in_syntax.data(), size, element_size_of(in_syntax), address_of(in_syntax)};
};

/// A form whose routine takes its operands in another order: `I` are their places in the form.
template <class Form, std::size_t... I>
struct routine_takes : Form {};

/// The library face of a form.
template <class Form>
struct routine_of;
template <class... Entries>
struct routine_of<form<Entries...>> {
  static constexpr routine_order<sizeof...(Entries)> order{std::array<Operand, sizeof...(Entries)>{Entries::about...}};
  template <std::size_t... I>
  static routine_form<typename result_of<Entries...>::type,
                      std::tuple_element_t<order.at[I], std::tuple<Entries...>>...>
      pick(std::index_sequence<I...>);
  using type = decltype(pick(std::make_index_sequence<order.count>()));
};
template <class... Entries, std::size_t... I>
struct routine_of<routine_takes<form<Entries...>, I...>> {
  using type = routine_form<typename result_of<Entries...>::type, std::tuple_element_t<I, std::tuple<Entries...>>...>;
};

}  // namespace sve::decode
