// Every row's word disassembles to its mnemonic; the other side is binutils.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "sve/decode/table.h"

namespace {

TEST(Assembler, EveryRowsWordHasItsMnemonic) {
  const char* const tool = SVE_OBJDUMP;
  if (std::system((std::string("command -v ") + tool + " >/dev/null").c_str()) != 0)
    GTEST_SKIP() << "no " << tool << " on this machine (Debian: binutils-aarch64-linux-gnu)";
  // Each word twice: with its operand bits clear, and with some of them set as they please.
  std::vector<const sve::decode::row*> rows;
  std::vector<std::uint32_t> words;
  std::mt19937 random(1);
  for (const sve::decode::map* m : sve::decode::maps_in_is_sve_order())
    for (const sve::decode::row& r : m->rows) {
      rows.push_back(&r);
      words.push_back(m->word(r.key));
      rows.push_back(&r);
      // Operands that are registers and predicates alone: an immediate may be one that the processor reserves.
      words.push_back(m->word(r.key) | (static_cast<std::uint32_t>(random()) & ~m->fixed_bits & 0x1f));
    }
  char path[] = "/tmp/sve_assembler_test_XXXXXX";
  const int file = mkstemp(path);
  ASSERT_GE(file, 0);
  ASSERT_EQ(write(file, words.data(), words.size() * 4), static_cast<ssize_t>(words.size() * 4));
  close(file);
  FILE* listing = popen((std::string(tool) + " -D -z -b binary -m aarch64 -M no-aliases " + path).c_str(), "r");
  ASSERT_NE(listing, nullptr);
  char line[512];
  std::size_t n = 0;
  while (std::fgets(line, sizeof line, listing)) {
    unsigned offset, word;
    char mnemonic[32];
    if (std::sscanf(line, " %x:\t%8x \t%31s", &offset, &word, mnemonic) != 3) continue;
    ASSERT_LT(n, words.size());
    ASSERT_EQ(word, words[n]);
    EXPECT_EQ(std::string_view(mnemonic), rows[n]->mnemonic()) << rows[n]->name << std::hex << " word " << word;
    ++n;
  }
  pclose(listing);
  unlink(path);
  EXPECT_EQ(n, words.size());
}

}  // namespace
