// What an instruction word is, told by the table's keys alone: for programs that look at code and execute none.
#pragma once

#include <cstdint>
#include <span>

namespace sve::decode {

/// Whether the word is an instruction that the model executes and the architecture has.
bool is_modelled(std::uint32_t word);

/// Words of which `mask` picks `value`, and in which some bit of `some` is set if there is one, are instructions of the
/// extension `name`, or none if it is null. Modelled words may be among them.
struct ExtensionForm {
  std::uint32_t mask, value, some;
  const char* name;
};
std::span<const ExtensionForm> extension_forms();

/// For a word that is not modelled: the extension of the scalable vectors and matrices that it is of, such as "SVE2" or
/// "SME"; null for what no processor has, and for all else.
const char* extension_of(std::uint32_t word);

}  // namespace sve::decode
