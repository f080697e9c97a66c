// The encoder of the runner's code beside binutils' disassembler: every form, with random operands.
#include "sve/runner/arm64/encode.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "sve/runner/arm64/code_buffer.h"

namespace {

using namespace sve::arm64;

const Form all_forms[] = {
#define SVE_ARM64_FORM(name, syntax, base, ...) name,
#include "sve/runner/arm64/forms.inc"
#undef SVE_ARM64_FORM
};

std::string hex(std::uint64_t value) {
  std::ostringstream text;
  text << std::hex << value;
  return text.str();
}

// The assembler text of a form at an address. "0x%n" is a hexadecimal number, ".%n" what lies so far from the address.
std::string text_of(const Form& f, const std::int64_t (&operands)[4], std::uint64_t address) {
  std::string text;
  for (const char* c = f.syntax; *c; ++c) {
    if (*c != '%') {
      text += *c;
      continue;
    }
    const std::int64_t value = operands[*++c - '0'];
    if (text.ends_with("0x"))
      text += hex(static_cast<std::uint64_t>(value));
    else if (text.ends_with("."))
      text.replace(text.size() - 1, 1, "0x" + hex(address + static_cast<std::uint64_t>(value)));
    else
      text += std::to_string(value);
  }
  return text;
}

struct Sample {
  word encoded;
  std::string text;
};

std::vector<std::string> disassemble(const std::vector<Sample>& samples) {
  const std::string path = testing::TempDir() + "encode_test_words";
  {
    std::ofstream file(path, std::ios::binary);
    for (const Sample& s : samples) file.write(reinterpret_cast<const char*>(&s.encoded), 4);
  }
  std::vector<std::string> lines;
  const std::string command = SVE_OBJDUMP " -D -b binary -m aarch64 --no-show-raw-insn " + path;
  FILE* const pipe = popen(command.c_str(), "r");
  char buffer[512];
  while (pipe && std::fgets(buffer, sizeof buffer, pipe)) {
    std::string line = buffer;
    const auto colon = line.find(":\t");
    if (colon == std::string::npos) continue;
    line = line.substr(colon + 2, line.find_last_not_of(" \n") + 1 - colon - 2);
    if (const auto tab = line.find('\t'); tab != std::string::npos) line[tab] = ' ';
    if (const auto note = line.find("//"); note != std::string::npos)
      line.resize(line.find_last_not_of(" \t", note - 1) + 1);
    lines.push_back(line);
  }
  if (pipe) pclose(pipe);
  std::remove(path.c_str());
  return lines;
}

TEST(Encode, EveryFormIsWhatTheDisassemblerSays) {
  std::minstd_rand random(20261121);
  std::vector<Sample> samples;
  for (const Form& f : all_forms) {
    for (int i = 0; i < 200; ++i) {
      std::int64_t operands[4] = {};
      word encoded = f.base;
      for (int k = 0; k < 4; ++k) {
        const Field& at = f.fields[k];
        if (at.width == 0) continue;
        // Register 31 has other names, and an offset of 0 is not written.
        const std::int64_t limit = std::int64_t{1} << at.width, is_register = at.width == 5 && !at.is_signed;
        std::int64_t value = 1 + static_cast<std::int64_t>(random() % static_cast<unsigned>(limit - 1 - is_register));
        if (at.is_signed) value = value < limit / 2 ? value : value - limit;
        operands[k] = value * (std::int64_t{1} << at.scale);
        ASSERT_TRUE(fits(at, operands[k]));
        ASSERT_EQ(encoded & encode_field(at, -1 * (std::int64_t{1} << at.scale)), 0u) << f.syntax << ": fields overlap";
        encoded |= encode_field(at, operands[k]);
      }
      // Registers that are read and written, and pairs that are loaded, must not be the same.
      samples.push_back({encoded, text_of(f, operands, 4 * samples.size())});
    }
  }
  const auto lines = disassemble(samples);
  ASSERT_EQ(lines.size(), samples.size());
  std::size_t compared = 0;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(lines[i], samples[i].text) << hex(samples[i].encoded);
    compared += lines[i] == samples[i].text;
  }
  EXPECT_EQ(compared, std::size(all_forms) * 200);
}

// The assembler text of a vector form.
std::string text_of(const VectorForm& f, unsigned size, unsigned d, unsigned n, unsigned m) {
  static const char* const whole[] = {"16b", "8h", "4s", "2d"};
  static const char* const half[] = {"8b", "4h", "2s"};
  const std::string name = f.name;
  std::string text = name.substr(0, name.find('_')) + " ";
  const auto vector = [](unsigned r, const char* arrangement) { return "v" + std::to_string(r) + "." + arrangement; };
  switch (f.kind) {
    case VectorKind::three:
    case VectorKind::fp_three:
      return text + vector(d, whole[size]) + ", " + vector(n, whole[size]) + ", " + vector(m, whole[size]);
    case VectorKind::two:
    case VectorKind::fp_two:
      return text + vector(d, whole[size]) + ", " + vector(n, whole[size]);
    case VectorKind::two_and_zero:
      return text + vector(d, whole[size]) + ", " + vector(n, whole[size]) + ", #0";
    case VectorKind::across:
      return text + "bhs"[size] + std::to_string(d) + ", " + vector(n, whole[size]);
    case VectorKind::narrow:
      return text + vector(d, half[size]) + ", " + vector(n, whole[size + 1]);
    case VectorKind::left:
    case VectorKind::right:
      return text + vector(d, whole[size]) + ", " + vector(n, whole[size]) + ", #" + std::to_string(m);
    case VectorKind::structure: {
      const unsigned registers = static_cast<unsigned>(name.back() - '0');
      return text + "{" + vector(d, whole[size]) + (registers == 2 ? ", " : "-") +
             vector(d + registers - 1, whole[size]) + "}, [x" + std::to_string(n) + "], #" +
             std::to_string(16 * registers);
    }
    case VectorKind::wide:
      return text + vector(d, whole[size + 1]) + ", " + vector(n, half[size]);
    case VectorKind::wide_high:
      return text + vector(d, whole[size + 1]) + ", " + vector(n, whole[size]);
  }
  return "";
}

TEST(Encode, EveryVectorFormIsWhatTheDisassemblerSays) {
  const VectorForm forms[] = {
#define SVE_ARM64_VECTOR(name, kind, sizes, base) v_##name,
#include "sve/runner/arm64/vector_forms.inc"
#undef SVE_ARM64_VECTOR
  };
  std::minstd_rand random(20261122);
  std::vector<Sample> samples;
  for (const VectorForm& f : forms)
    for (unsigned size = 0; size < 4; ++size) {
      if (!(f.sizes >> size & 1)) continue;
      for (int i = 0; i < 50; ++i) {
        const bool is_shift = f.kind == VectorKind::left || f.kind == VectorKind::right;
        const unsigned d = random() % (f.kind == VectorKind::structure ? 28 : 32), n = random() % 31,
                       limit = is_shift ? (8u << size) - 1 : 32;
        // Of the same register twice, orr is a move.
        unsigned m = is_shift ? 1 + random() % limit : random() % limit;
        if (!is_shift && m == n) m = 31;
        samples.push_back({encode(f, size, d, n, m), text_of(f, size, d, n, m)});
      }
    }
  const auto lines = disassemble(samples);
  ASSERT_EQ(lines.size(), samples.size());
  for (std::size_t i = 0; i < lines.size(); ++i) EXPECT_EQ(lines[i], samples[i].text) << hex(samples[i].encoded);
}

TEST(Encode, OperandsThatDoNotFitAreSeen) {
  EXPECT_TRUE(fits(b.fields[0], -(std::int64_t{1} << 27)));
  EXPECT_FALSE(fits(b.fields[0], std::int64_t{1} << 27));
  EXPECT_FALSE(fits(b.fields[0], 2));
  EXPECT_FALSE(fits(str_x.fields[2], -8));
  EXPECT_FALSE(fits(str_x.fields[2], 8 * 4096));
  CodeBuffer<16> code(0x1000);
  code.put(str_x, 0, 1, 8);
  EXPECT_TRUE(code.is_good());
  code.put(str_x, 0, 1, 4);
  EXPECT_FALSE(code.is_good());
  code.restart(0x1000);
  for (int i = 0; i < 17; ++i) code.put(0);
  EXPECT_FALSE(code.is_good());
}

TEST(Encode, LiteralsLieBehindTheCodeAndAreShared) {
  CodeBuffer<16> code(0x1000);
  code.load_x(3, 0x123456789abcdef0);
  code.load_x(4, 7);
  code.load_x(5, 0x123456789abcdef0);
  code.branch(0x1000);
  code.finish();
  ASSERT_TRUE(code.is_good());
  ASSERT_EQ(code.size(), 8u);
  EXPECT_EQ(code.words()[0], 0x58000003u | 4u << 5);
  EXPECT_EQ(code.words()[1], 0x58000004u | 5u << 5);
  EXPECT_EQ(code.words()[2], 0x58000005u | 2u << 5);
  EXPECT_EQ(code.words()[3], 0x17fffffdu);
  EXPECT_EQ(code.words()[4], 0x9abcdef0u);
  EXPECT_EQ(code.words()[5], 0x12345678u);
  EXPECT_EQ(code.words()[6], 7u);
}

}  // namespace
