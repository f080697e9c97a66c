// Reads the operand lists of the table's rows as data, by including the row files again with the row macros redefined.
#pragma once

#include <string_view>

#include "sve/decode/rows.h"
#include "tests/conformance/row_info.h"

namespace conformance {

template <class Entry>
struct describe;  // one specialisation an entry of the operand vocabulary that is a register

template <role Kind, unsigned Low, unsigned Width, unsigned Size, bool Result, bool Source>
struct register_field {
  static constexpr operand value{Kind, Low, Width, Size, Result, Source};
};

namespace d = sve::decode;
// In the direct forms the register in the lowest bits is the result, unless the row stores; the reader does not care.
template <unsigned Low, unsigned E>
struct describe<d::Z<Low, E>> : register_field<role::z, Low, 5, E, Low == 0, Low != 0> {};
template <unsigned E>
struct describe<d::Zdn<E>> : register_field<role::z, 0, 5, E, true, true> {};
template <>
struct describe<d::Vd> : register_field<role::z, 0, 5, 5, true, false> {};
template <unsigned Low, unsigned Width, unsigned Q>
struct describe<d::P<Low, Width, Q>> : register_field<role::p, Low, Width, Q, Low == 0, Low != 0> {};
template <unsigned E>
struct describe<d::Pdn<E>> : register_field<role::p, 0, 4, E, true, true> {};
template <unsigned Low, unsigned E>
struct describe<d::R<Low, E>> : register_field<role::x, Low, 5, E, Low == 0, Low != 0> {};
template <unsigned E>
struct describe<d::Rdn<E>> : register_field<role::x, 0, 5, E, true, true> {};
template <unsigned Low, unsigned E>
struct describe<d::Rsp<Low, E>> : register_field<role::x_or_sp, Low, 5, E, Low == 0, Low != 0> {};

template <unsigned High, unsigned Low>
struct describe<d::vector_in<d::bits<High, Low>>> : register_field<role::z, Low, High - Low + 1, 5, false, true> {};
template <unsigned High, unsigned Low>
struct describe<d::predicate_in<d::bits<High, Low>>> : register_field<role::p, Low, High - Low + 1, 7, false, true> {};
template <unsigned High, unsigned Low>
struct describe<d::register_in<d::bits<High, Low>>> : register_field<role::x, Low, High - Low + 1, 3, false, true> {};
template <unsigned High, unsigned Low>
struct describe<d::signed_register_in<d::bits<High, Low>>> : register_field<role::x, Low, 5, 3, false, true> {};
template <unsigned High, unsigned Low>
struct describe<d::base_in<d::bits<High, Low>>> : register_field<role::x_or_sp, Low, 5, 3, false, true> {};
template <unsigned High, unsigned Low, unsigned E>
struct describe<d::element_in<d::bits<High, Low>, E>> : register_field<role::z, Low, 5, E, false, true> {};
template <>
struct describe<d::to_z> : register_field<role::z, 0, 5, 5, true, false> {};
template <>
struct describe<d::to_v> : register_field<role::z, 0, 5, 5, true, false> {};
template <>
struct describe<d::to_p> : register_field<role::p, 0, 4, 7, true, false> {};
template <>
struct describe<d::to_x> : register_field<role::x, 0, 5, 3, true, false> {};

/// The description of an entry: a register field, or an immediate.
template <class Entry>
constexpr operand described() {
  if constexpr (requires { describe<Entry>::value; })
    return describe<Entry>::value;
  else
    return {role::immediate, 0, 0, 0, false, true};
}

template <class Form>
struct described_form;
template <class... Entries>
struct described_form<d::operands<Entries...>> {
  static constexpr operand list[] = {described<Entries>()..., {role::immediate, 0, 0, 0, false, false}};
  static constexpr std::span<const operand> value{list, sizeof...(Entries)};
};
template <class Result, class... Entries>
struct described_form<d::routine_form<Result, Entries...>> {
  static constexpr operand list[] = {described<Result>(), described<Entries>()...};
  static constexpr std::span<const operand> value =
      std::is_same_v<Result, d::nothing> ? std::span<const operand>{list + 1, sizeof...(Entries)}
                                         : std::span<const operand>{list, sizeof...(Entries) + 1};
};

struct described_row {
  std::string_view name;
  std::span<const operand> operands;
};

/// Every row that has operands, in no particular order.
std::span<const std::span<const described_row>> described_tables();

}  // namespace conformance
