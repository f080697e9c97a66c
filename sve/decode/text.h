// The assembler text of an instruction word.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace sve::decode {

/// Room for any text and its terminating 0.
inline constexpr std::size_t max_text = 96;

/// Writes what the architecture's preferred syntax calls a word of the table, aliases included, and returns it; empty
/// for any other word. Allocates nothing and calls no library.
std::string_view text_of(std::uint32_t word, char (&buffer)[max_text]);

}  // namespace sve::decode
