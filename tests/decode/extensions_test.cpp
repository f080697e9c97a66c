// The names of other extensions beside the assembler of binutils: a word is of the first extension with which it takes
// the disassembler's text of the word.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "sve/decode/words.h"

namespace {

using sve::decode::extension_forms;
using sve::decode::extension_of;
using sve::decode::is_modelled;

struct Level {
  const char* name;
  const char* option;
};
// In the order in which they build on each other.
constexpr Level levels[] = {
    {"SVE", "+sve"},
    {"I8MM", "+sve+i8mm"},
    {"BF16", "+sve+bf16"},
    {"F32MM", "+f32mm"},
    {"F64MM", "+f64mm"},
    {"SVE2", "+sve2"},
    {"SVE2-AES", "+sve2-aes"},
    {"SVE2-SHA3", "+sve2-sha3"},
    {"SVE2-SM4", "+sve2-sm4"},
    {"SVE2-BitPerm", "+sve2-bitperm"},
    {"SME", "+sme+sme-f64+sme-i64"},
};
// What this version of binutils does not know.
bool is_later(const char* name) { return name && std::string_view(name).find("later") != std::string_view::npos; }

// What binutils takes although bits are set that must not be: in psel, and in moves to and from tiles, which are of
// quadwords only if the size says so as well.
bool is_refused_by_the_architecture(std::uint32_t word) {
  if ((word & 0xff20c000) == 0x25204000) return (word & 0x210) != 0;
  if ((word & 0xff3c0000) != 0xc0000000) return false;
  return (word & (word & 0x20000 ? 0x200 : 0x10)) != 0 || ((word & 0x10000) && (word >> 22 & 3) != 3);
}

class Extensions : public testing::Test {
 protected:
  void SetUp() override {
    if (std::system("command -v " SVE_OBJDUMP " > /dev/null && command -v " SVE_AS " > /dev/null") != 0)
      GTEST_SKIP() << "no " << SVE_OBJDUMP << " on this machine (Debian: binutils-aarch64-linux-gnu)";
    char pattern[] = "/tmp/sve_extensions_test_XXXXXX";
    directory = mkdtemp(pattern);
  }
  void TearDown() override {
    if (!directory.empty()) std::system(("rm -r " + directory).c_str());
  }
  std::string path(const char* name) const { return directory + "/" + name; }

  template <class Line>
  static void for_each_line(const std::string& command, Line line) {
    FILE* output = popen(command.c_str(), "r");
    ASSERT_NE(output, nullptr);
    for (char text[512]; std::fgets(text, sizeof text, output);) line(text);
    pclose(output);
  }

  /// The name of each word's extension; "" where binutils knows no such instruction.
  std::vector<std::string> names_of(const std::vector<std::uint32_t>& words) {
    std::ofstream(path("words"), std::ios::binary)
        .write(reinterpret_cast<const char*>(words.data()), static_cast<std::streamsize>(words.size() * 4));
    std::vector<std::string> names(words.size());
    std::vector<std::pair<std::size_t, std::string>> left;
    std::size_t n = 0;
    for_each_line(SVE_OBJDUMP " -D -z -b binary -m aarch64 " + path("words"), [&](const char* line) {
      unsigned offset, word;
      int at = 0;
      if (std::sscanf(line, " %x:\t%8x \t%n", &offset, &word, &at) != 2 || at == 0) return;
      const std::string text = line + at;
      if (text.find("undefined") == text.npos && text[0] != '.') left.emplace_back(n, text.substr(0, text.find("//")));
      ++n;
    });
    EXPECT_EQ(n, words.size());
    for (const Level& l : levels) {
      std::ofstream source(path("source.s"));
      for (const auto& [index, text] : left) source << text << (text.back() == '\n' ? "" : "\n");
      source.close();
      std::vector<bool> refused(left.size());
      for_each_line(SVE_AS " -march=armv8.2-a" + std::string(l.option) + " -o /dev/null " + path("source.s") + " 2>&1",
                    [&](const char* line) {
                      unsigned number = 0;
                      const char* const at = std::strstr(line, "source.s:");
                      if (at && std::sscanf(at, "source.s:%u: Error", &number) == 1) refused.at(number - 1) = true;
                    });
      std::vector<std::pair<std::size_t, std::string>> rest;
      for (std::size_t i = 0; i < left.size(); ++i) {
        if (refused[i]) {
          rest.push_back(left[i]);
        } else {
          names[left[i].first] = l.name;
        }
      }
      left.swap(rest);
    }
    for (const auto& [index, text] : left) ADD_FAILURE() << "no extension takes " << text;
    return names;
  }

  std::string directory;
};

TEST_F(Extensions, AreNamedAsTheAssemblerNamesThem) {
  std::mt19937 random(1);
  std::vector<std::uint32_t> words;
  for (int i = 0; i < 100000; ++i) {
    const auto word = static_cast<std::uint32_t>(random());
    words.push_back((word & ~(15u << 25)) | 2u << 25);   // scalable vectors
    words.push_back((word & 0x61ffffffu) | 0x80000000);  // matrices
  }
  for (const auto& form : extension_forms())
    for (int i = 0; i < 200; ++i) words.push_back((static_cast<std::uint32_t>(random()) & ~form.mask) | form.value);
  const std::vector<std::string> expected = names_of(words);
  std::map<std::string, int> seen;
  int shown = 0;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (is_modelled(words[i])) continue;
    const char* const name = extension_of(words[i]);
    ++seen[expected[i]];
    // Of the first version the model has all, but for what binutils takes and the architecture does not.
    const bool is_none = expected[i].empty() || expected[i] == "SVE" || is_refused_by_the_architecture(words[i]);
    const bool agrees = is_none ? !name || is_later(name) : name && expected[i] == name;
    if (!agrees && ++shown < 20)
      ADD_FAILURE() << std::hex << words[i] << " is of " << (name ? name : "nothing") << ", expected " << expected[i];
  }
  for (const Level& l : levels) EXPECT_TRUE(l.name == std::string_view("SVE") || seen[l.name] > 10) << l.name;
}

TEST_F(Extensions, OfOtherWordsThereIsNoName) {
  for (std::uint32_t word : {0u, 0xd503201fu, 0xd65f03c0u, 0x9b017c00u, 0x4e208400u, 0xf8200000u})
    EXPECT_EQ(extension_of(word), nullptr) << std::hex << word;
}

}  // namespace
