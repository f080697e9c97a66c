#include "sve/runner/launcher/library.h"

#include <unistd.h>

#include <set>

namespace sve::runner {
namespace {

constexpr std::string_view suffix = ".so";

std::string name_of(std::string_view prefix, const std::string& bits) {
  return std::string(prefix).append(bits).append(suffix);
}

// The lengths whose libraries are in `places`, with commas between them.
std::string lengths_in(const std::vector<std::filesystem::path>& places, std::string_view prefix) {
  std::set<unsigned long> lengths;
  for (const auto& place : places) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(place, error)) {
      const std::string name = entry.path().filename().string(), bits = length_in(name, prefix);
      if (!bits.empty() && name == name_of(prefix, bits)) lengths.insert(std::stoul(bits));
    }
  }
  std::string list;
  for (const unsigned long length : lengths) list += (list.empty() ? "" : ", ") + std::to_string(length);
  return list;
}

}  // namespace

Finding find_library(const std::vector<std::filesystem::path>& places, std::string_view prefix, const std::string& bits,
                     const std::string& remedy) {
  Finding f;
  const std::string name = name_of(prefix, bits);
  for (const auto& place : places) {
    f.path = (place / name).lexically_normal().string();
    if (access(f.path.c_str(), R_OK) == 0) return f;
  }
  f.status = status_failed;
  const std::string lengths = lengths_in(places, prefix);
  f.error = lengths.empty() ? name + ": " + remedy
                            : "there is no library for a vector length of " + bits + " bits, only for " + lengths;
  return f;
}

std::string length_in(std::string_view list, std::string_view prefix) {
  const std::size_t at = list.find(prefix);
  if (at == list.npos) return "";
  const std::string_view rest = list.substr(at + prefix.size());
  const std::string_view digits = rest.substr(0, rest.find_first_not_of("0123456789"));
  return std::string(digits.size() < 6 ? digits : "");
}

}  // namespace sve::runner
