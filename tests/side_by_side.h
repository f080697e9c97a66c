// How a failed test of vectors tells: operands, what was expected and what came, element by element.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace test {

/// The element size of the expectation that was formed last, by the helpers that form them.
inline std::size_t element_bytes = 8;

struct Column {
  std::string title;
  const unsigned char* bytes;
};

/// The elements where `expected` and `got` differ, a line each with those of the operands, as numbers of hexadecimal
/// digits; at most eight lines.
inline std::string side_by_side(std::size_t length, const std::vector<Column>& operands, const unsigned char* expected,
                                const unsigned char* got) {
  constexpr int most = 8;
  std::vector<Column> columns = operands;
  columns.push_back({"expected", expected});
  columns.push_back({"got", got});
  const std::size_t width = element_bytes * 2 < 8 ? 8 : element_bytes * 2;
  const auto cell = [&](std::string text) {
    return "  " + std::string(text.size() < width ? width - text.size() : 0, ' ') + text;
  };
  std::string text = "elements of " + std::to_string(element_bytes) + " bytes\n element";
  for (const Column& c : columns) text += cell(c.title);
  text += "\n";
  int lines = 0;
  for (std::size_t at = 0; at + element_bytes <= length; at += element_bytes) {
    if (std::memcmp(expected + at, got + at, element_bytes) == 0 || ++lines > most) continue;
    char number[16];
    std::snprintf(number, sizeof number, "%8zu", at / element_bytes);
    text += number;
    for (const Column& c : columns) {
      std::string digits;
      for (std::size_t i = element_bytes; i-- > 0;) {
        char two[3];
        std::snprintf(two, sizeof two, "%02x", unsigned{c.bytes[at + i]});
        digits += two;
      }
      text += cell(digits);
    }
    text += "\n";
  }
  if (lines > most) text += "and " + std::to_string(lines - most) + " more\n";
  return text;
}

}  // namespace test
