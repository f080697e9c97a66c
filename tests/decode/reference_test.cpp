// The operation reference, generated anew: every row stands in it once, on the page of its family.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "tests/states.h"

namespace {

TEST(Reference, HoldsEveryRowOnce) {
  const std::filesystem::path directory = std::filesystem::path(SVE_REFERENCE_OUTPUT);
  std::filesystem::remove_all(directory);
  ASSERT_EQ(std::system(SVE_REFERENCE_COMMAND), 0);
  std::map<std::string, std::string> pages;
  for (const auto& file : std::filesystem::directory_iterator(directory)) {
    std::stringstream text;
    text << std::ifstream(file.path()).rdbuf();
    pages[file.path().stem().string()] = text.str();
  }
  test::for_each_row([&](auto&, auto& r) {
    const std::string name = "| `" + std::string(r.name) + "` |";
    for (const auto& [page, text] : pages) {
      std::size_t found = 0;
      for (std::size_t at = text.find(name); at != text.npos; at = text.find(name, at + 1)) ++found;
      EXPECT_EQ(found, page == name_of(r.function->of)) << name << " on page " << page;
    }
  });
}

TEST(Reference, HoldsEverySignature) {
  ASSERT_EQ(std::system(SVE_REFERENCE_COMMAND), 0);
  std::stringstream text;
  text << std::ifstream(std::filesystem::path(SVE_REFERENCE_OUTPUT) / "signatures.md").rdbuf();
  const auto holds = [&](const std::string& line) { return text.str().find("\n" + line + "\n") != std::string::npos; };
  EXPECT_TRUE(holds("aarch64_decode_rc sve_add_zpz(cpu_state*, aarch64_z_reg, aarch64_p_reg, aarch64_z_reg);"));
  EXPECT_TRUE(holds("VectorV VecU8AddVVM(const VectorV&, const PredV&, const VectorV&, CpuContext*);"));
  test::for_each_row([&](auto&, auto& r) {
    EXPECT_NE(text.str().find(" " + std::string(r.function->name) + "("), std::string::npos) << r.function->name;
    EXPECT_TRUE(r.model == sve::decode::Kind::prefetch ||
                text.str().find(" " + std::string(r.name) + "(") != std::string::npos)
        << r.name;
  });
}

}  // namespace
