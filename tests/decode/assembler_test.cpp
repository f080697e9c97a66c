// The assembler text of every row's words, with operands at random, beside binutils' disassembly of the same words.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "sve/decode/table.h"
#include "sve/decode/text.h"

namespace {

using sve::decode::Operand;
using sve::decode::OperandRole;
using sve::decode::Row;
using sve::decode::Spelling;

std::string text_of(std::uint32_t word) {
  char buffer[sve::decode::max_text];
  const std::string_view text = sve::decode::text_of(word, buffer);
  EXPECT_STREQ(buffer, std::string(text).c_str());
  return std::string(text);
}

/// Whether the encoding reserves the word though its row takes it: an index register 31 where none may be, a shifted
/// immediate of bytes, a logical immediate whose ones fill their element.
bool is_reserved(const Row& r, std::uint32_t word) {
  for (const Operand& o : r.operands()) {
    if (o.role == OperandRole::offset && o.kind == sve::decode::OperandKind::x && o.number(word) == 31 &&
        r.function->access != sve::decode::AccessKind::first_fault)
      return true;
    if (o.spelled == Spelling::shifted && r.element_bytes() == 1 && (word >> 13 & 1)) return true;
    if (o.spelled == Spelling::logical) {
      const std::uint64_t value = static_cast<std::uint64_t>(o.value(word));
      if (value == 0 || value == ~std::uint64_t{0}) return true;
    }
  }
  return false;
}

TEST(Assembler, EveryRowsWordsReadAsTheDisassemblerSays) {
  const char* const tool = SVE_OBJDUMP;
  if (std::system((std::string("command -v ") + tool + " >/dev/null").c_str()) != 0)
    GTEST_SKIP() << "no " << tool << " on this machine (Debian: binutils-aarch64-linux-gnu)";
  constexpr int settings = 200;
  std::vector<const Row*> rows;
  std::vector<std::uint32_t> words;
  std::mt19937 random(1);
  for (const sve::decode::Map* m : sve::decode::maps_in_is_sve_order())
    for (const Row& r : m->rows)
      for (int i = 0; i < settings; ++i) {
        std::uint32_t word = m->word(r.key);
        if (i != 0) word |= static_cast<std::uint32_t>(random()) & ~m->fixed_bits;
        // Equal registers are what aliases are made of.
        if (i % 4 == 1)
          for (const Operand& o : r.operands())
            if (o.is_register() && (~m->fixed_bits & o.with(0, 31))) word = o.with(word, words.back() >> 5 & 7);
        if (is_reserved(r, word)) continue;
        rows.push_back(&r);
        words.push_back(word);
      }
  char path[] = "/tmp/sve_assembler_test_XXXXXX";
  const int file = mkstemp(path);
  ASSERT_GE(file, 0);
  ASSERT_EQ(write(file, words.data(), words.size() * 4), static_cast<ssize_t>(words.size() * 4));
  close(file);
  FILE* listing = popen((std::string(tool) + " -D -z -b binary -m aarch64 " + path).c_str(), "r");
  ASSERT_NE(listing, nullptr);
  char line[512];
  std::size_t n = 0;
  const Row* failed = nullptr;
  while (std::fgets(line, sizeof line, listing)) {
    unsigned offset, word;
    int at = 0;
    if (std::sscanf(line, " %x:\t%8x \t%n", &offset, &word, &at) != 2 || at == 0) continue;
    ASSERT_LT(n, words.size());
    ASSERT_EQ(word, words[n]);
    std::string expected = line + at;
    // Not part of the text: the comment behind it, and what pads the columns.
    expected = expected.substr(0, expected.find("  //"));
    while (!expected.empty() && std::isspace(static_cast<unsigned char>(expected.back()))) expected.pop_back();
    if (const std::size_t tab = expected.find('\t'); tab != expected.npos) expected[tab] = ' ';
    const std::string text = text_of(word);
    // One failure a row tells enough.
    if (text != expected && rows[n] != failed) {
      ADD_FAILURE() << rows[n]->name << std::hex << " word " << word << ": " << text << ", expected " << expected;
      failed = rows[n];
    }
    ++n;
  }
  pclose(listing);
  unlink(path);
  EXPECT_EQ(n, words.size());
}

TEST(Assembler, WordsThatAreNotOursHaveNoText) { EXPECT_EQ(text_of(0xd503201f), ""); }

TEST(Assembler, ReservedWordsHaveAText) {
  EXPECT_EQ(text_of(0x2520e020), "add z0.b, z0.b, #0, lsl #8");
  EXPECT_EQ(text_of(0x0583ffe0), "and z0.b, z0.b, #0x0");  // its expansion does not return
}

}  // namespace
