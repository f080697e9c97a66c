// sve-run: looks at the program, then becomes it, with the library preloaded.
#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "sve/runner/launcher/command_line.h"
#include "sve/runner/launcher/dynamorio.h"
#include "sve/runner/launcher/library.h"
#include "sve/runner/launcher/program.h"
#include "sve/runner/options.h"
#include "sve/state/vector_length.h"

namespace {

using namespace sve::runner;

bool processor_has_sve() { return (getauxval(AT_HWCAP) & hwcap_sve) != 0; }

// Where this program lies. A changed root may have no /proc; then by the path that it was started by.
std::filesystem::path own_directory() {
  std::error_code error;
  auto path = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) path = std::filesystem::canonical(reinterpret_cast<const char*>(getauxval(AT_EXECFN)), error);
  return path.parent_path();
}

// Another sve-run is statically linked, and starts its program under the library itself.
bool is_sve_run(const std::string& path) { return std::filesystem::path(path).filename() == "sve-run"; }

int fail(int status, const std::string& text) {
  std::fprintf(stderr, "sve-run: %s\n", text.c_str());
  return status;
}

int run(const std::string& path, const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  // Not by way of libc: under another sve-run its library would report for this process, which runs nothing of its own,
  // and add itself again.
  syscall(SYS_execve, path.c_str(), arguments.data(), environ);
  return fail(errno == ENOENT ? status_not_found : status_not_executable,
              path + ": " + std::strerror(errno) + "; try to run it without sve-run");
}

// The library of this vector length, beside this program, as in a build tree, or where it is installed.
finding find_library_of(const std::string& bits, const char* prefix, std::initializer_list<const char*> places,
                        const std::string& remedy) {
  std::vector<std::filesystem::path> paths;
  for (const char* place : places) paths.push_back(own_directory() / place);
  return find_library(paths, prefix, bits, remedy);
}

int run_under_dynamorio(const command_line& line, const std::string& program, const std::string& bits) {
  const auto readable = [](const std::string& path) { return access(path.c_str(), R_OK) == 0; };
  const finding home = find_dynamorio(
      line.dynamorio_home, [](const char* name) { return std::getenv(name); }, readable);
  if (home.status != 0) return fail(home.status, home.error);
  const finding client = find_library_of(bits, client_prefix, {SVE_CLIENT_FROM_BUILD, SVE_CLIENT_FROM_PROGRAM},
                                         "the client is not there; build with DynamoRIO_DIR set, and install");
  if (client.status != 0) return fail(client.status, client.error);
  const auto words = dynamorio_command(line, home.path, client.path, program);
  return run(words.front(), words);
}

// What to preload before the program's own wishes. Of two copies of the library in one process none would know what the
// other does, so one from another place goes.
std::string preload_list(const std::string& library, const std::string& program, const char* wished) {
  std::string list = library;
  if (const std::string sanitizer = sanitizer_of(program); !sanitizer.empty()) list = sanitizer + ":" + list;
  std::string entries = wished ? wished : "";
  std::replace(entries.begin(), entries.end(), ' ', ':');
  std::istringstream words(entries);
  for (std::string entry; std::getline(words, entry, ':');)
    if (!entry.empty() && !entry.substr(entry.rfind('/') + 1).starts_with(library_prefix)) list += ":" + entry;
  return list;
}

// The file gets what each process of the tree appends, so it begins empty and its path is whole.
std::optional<std::string> prepare_counts_file(command_line& line) {
  if (line.counts_file.empty()) return std::nullopt;
  std::error_code error;
  line.counts_file = std::filesystem::absolute(line.counts_file, error).string();
  const bool one_a_process = line.counts_file.find("%p") != std::string::npos;
  if (one_a_process) return std::nullopt;
  const int fd = open(line.counts_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) return line.counts_file + ": " + std::strerror(errno) + "; give --counts a file that can be written";
  close(fd);
  return std::nullopt;
}

// What is asked for; or what an outer sve-run took, by its library where the variable has got lost; or this build's.
std::string wanted_length(const command_line& line, const char* preloaded) {
  if (!line.vector_length.empty()) return line.vector_length;
  if (const char* const said = std::getenv(length_variable); said && *said) return said;
  const std::string outer = length_in(preloaded ? preloaded : "", library_prefix);
  return outer.empty() ? std::to_string(sve::vector_bits) : outer;
}

}  // namespace

int main(int argc, char** argv) {
  parse_result parsed = parse_command_line(std::vector<std::string>(argv + (argc > 0), argv + argc));
  if (!parsed.run) {
    std::fprintf(parsed.status == 0 ? stdout : stderr, "%s%s",
                 parsed.status == 0 ? "" : "sve-run: ", parsed.text.c_str());
    return parsed.status;
  }
  command_line& line = parsed.line;

  const char* search_path = std::getenv("PATH");
  finding program = find_program(line.program.front(), search_path ? search_path : "/usr/local/bin:/usr/bin:/bin");
  if (program.status == 0)
    program = line.dynamorio || is_sve_run(program.path) ? check_machine(program.path) : check_program(program.path);
  if (program.status != 0) return fail(program.status, program.error);

  if (processor_has_sve()) {
    if (!line.quiet) fail(0, "this processor has SVE and runs the program itself, at its own vector length");
    return run(program.path, line.program);
  }
  const char* preloaded = std::getenv(preload_variable);
  const std::string bits = wanted_length(line, preloaded);
  // What is asked for here holds for another sve-run below too.
  if (!line.vector_length.empty()) setenv(length_variable, bits.c_str(), 1);
  if (line.dynamorio) return run_under_dynamorio(line, program.path, bits);
  const finding library =
      find_library_of(bits, library_prefix, {"", SVE_LIBRARY_FROM_PROGRAM},
                      "not found beside sve-run nor in " SVE_LIBRARY_FROM_PROGRAM "; install it again");
  if (library.status != 0) return fail(library.status, library.error);
  if (library.path.find_first_of(" :$") != std::string::npos) {
    return fail(status_failed,
                library.path + ": the loader takes no path with a space, colon or dollar; install it elsewhere");
  }
  if (const auto error = prepare_counts_file(line)) return fail(status_failed, *error);

  const bool nested = preloaded && std::strstr(preloaded, library_prefix);
  setenv(preload_variable, preload_list(library.path, program.path, preloaded).c_str(), 1);
  std::string options = options_value(line);
  if (nested && !line.counts) options = with_outer_counts(options, std::getenv(options_variable));
  if (options.empty()) {
    unsetenv(options_variable);
  } else {
    setenv(options_variable, options.c_str(), 1);
  }
  return run(program.path, line.program);
}
