// Words that the rows accept and that the architecture leaves unallocated.
#pragma once

#include <cstdint>
#include <span>

namespace sve::decode {

/// Words of which `mask` picks `value` are no instructions, because of `reason`, although a row takes them.
struct UnallocatedForm {
  std::uint32_t mask, value;
  const char* reason;
};
std::span<const UnallocatedForm> unallocated_forms();

/// Whether a processor answers the word with an illegal instruction although `is_sve` has a handler for it. The
/// handlers execute such words, each in the way that its row gives; who runs programs as a processor would asks here
/// first. Says nothing of words that no row takes.
bool is_unallocated(std::uint32_t word);

}  // namespace sve::decode
