#include "sve/runner/launcher/dynamorio.h"

#include <sstream>

#include "sve/runner/options.h"

namespace sve::runner {
namespace {

constexpr const char* launcher_of_dynamorio = "bin64/drrun";

Finding found(const std::filesystem::path& path) {
  Finding f;
  f.path = path.lexically_normal().string();
  return f;
}

Finding missing(std::string text) {
  Finding f;
  f.status = status_failed;
  f.error = std::move(text);
  return f;
}

}  // namespace

Finding find_dynamorio(const std::string& given, const std::function<const char*(const char*)>& variable,
                       const ReadableTest& readable) {
  std::string home = given, source = "--dynamorio";
  for (const char* name : {"DynamoRIO_DIR", "DYNAMORIO_HOME"}) {
    if (!home.empty()) break;
    const char* const value = variable(name);
    home = value ? value : "";
    source = name;
  }
  if (home.empty()) {
    return missing(
        "no DynamoRIO given; install its release and name its directory with --dynamorio DIR or DYNAMORIO_HOME");
  }
  const std::filesystem::path base = home;
  for (const auto& directory : {base, base / ".."})
    if (readable((directory / launcher_of_dynamorio).string())) return found(directory);
  return missing(home + ": no " + launcher_of_dynamorio +
                 " in it; name an installation of DynamoRIO for AArch64 with " + source);
}

std::vector<std::string> dynamorio_command(const CommandLine& line, const std::string& home, const std::string& client,
                                           const std::string& program) {
  std::vector<std::string> words = {(std::filesystem::path(home) / launcher_of_dynamorio).string(), "-thread_private",
                                    // A block's code has a limit of 64 KB, and an SVE instruction becomes about 1 KB.
                                    "-max_bb_instrs", "32"};
  std::istringstream options(line.dynamorio_options);
  for (std::string option; options >> option;) words.push_back(option);
  words.insert(words.end(), {"-c", client, "--", program});
  words.insert(words.end(), line.program.begin() + 1, line.program.end());
  return words;
}

}  // namespace sve::runner
