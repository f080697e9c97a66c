// What instructions a file holds, by a look at every word of its code.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace sve::runner {

struct CodeSummary {
  std::uint64_t instructions = 0;  ///< of SVE, that sve-run executes
  /// The functions that hold them, with how many, most first. Places without a name stand under "".
  std::vector<std::pair<std::string, std::uint64_t>> functions;

  /// Instructions of an extension that sve-run refuses.
  struct Refusal {
    std::string extension;
    std::uint64_t instructions = 0;
    std::string function;  ///< the first that holds one
  };
  std::vector<Refusal> refused;  ///< by the extension's name
};

CodeSummary summarise_code(const std::string& path);

}  // namespace sve::runner
