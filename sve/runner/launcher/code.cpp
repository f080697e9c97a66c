#include "sve/runner/launcher/code.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>

#include "sve/decode/words.h"
#include "sve/runner/launcher/elf_file.h"

namespace sve::runner {
namespace {

std::string readable_name(const std::string& name) {
  if (!name.starts_with("_Z")) return name;  // to the demangler, "f" is a type
  int status = -1;
  const std::unique_ptr<char, decltype(&std::free)> text(abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status),
                                                         std::free);
  return status == 0 ? text.get() : name;
}

}  // namespace

CodeSummary summarise_code(const std::string& path) {
  const ElfFile file(path);
  const std::vector<ElfFile::Function> functions = file.functions();
  const auto name_at = [&](std::uint64_t address) -> std::string {
    auto next = std::upper_bound(functions.begin(), functions.end(), address,
                                 [](std::uint64_t at, const auto& function) { return at < function.address; });
    if (next == functions.begin()) return "";
    const ElfFile::Function& f = *--next;
    return f.size == 0 || address - f.address < f.size ? f.name : "";
  };
  std::map<std::string, std::uint64_t> counts;
  std::map<std::string, CodeSummary::Refusal> refused;
  CodeSummary summary;
  for (const ElfFile::Code& code : file.executable()) {
    for (std::size_t at = 0; at + 4 <= code.bytes.size(); at += 4) {
      std::uint32_t word;
      std::memcpy(&word, code.bytes.data() + at, sizeof word);
      if (decode::is_modelled(word)) {
        ++summary.instructions;
        ++counts[name_at(code.address + at)];
      } else if (const char* const extension = decode::extension_of(word)) {
        CodeSummary::Refusal& r = refused[extension];
        if (r.instructions++ == 0) r.function = readable_name(name_at(code.address + at));
      }
    }
  }
  for (const auto& [name, count] : counts) summary.functions.emplace_back(readable_name(name), count);
  std::stable_sort(summary.functions.begin(), summary.functions.end(),
                   [](const auto& a, const auto& b) { return a.second > b.second; });
  for (auto& [extension, r] : refused) {
    r.extension = extension;
    summary.refused.push_back(std::move(r));
  }
  return summary;
}

}  // namespace sve::runner
