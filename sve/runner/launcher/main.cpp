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
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "sve/runner/launcher/command_line.h"
#include "sve/runner/launcher/dynamorio.h"
#include "sve/runner/launcher/program.h"
#include "sve/runner/launcher/reporting.h"
#include "sve/runner/options.h"

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

int run_under_dynamorio(const command_line& line, const std::string& program) {
  if (!line.report_directory.empty()) setenv(options_variable, options_value(line).c_str(), 1);
  const auto here = own_directory();
  const auto readable = [](const std::string& path) { return access(path.c_str(), R_OK) == 0; };
  const finding home = find_dynamorio(
      line.dynamorio_home, [](const char* name) { return std::getenv(name); }, readable);
  if (home.status != 0) return fail(home.status, home.error);
  std::vector<std::filesystem::path> places;
  for (const char* place : {SVE_CLIENT_FROM_BUILD, SVE_CLIENT_FROM_PROGRAM}) places.push_back(here / place);
  const finding client = find_client(places, readable);
  if (client.status != 0) return fail(client.status, client.error);
  const auto words = dynamorio_command(line, home.path, client.path, program);
  return run(words.front(), words);
}

// Beside this program, as in a build tree, or where it is installed.
std::optional<std::string> find_library() {
  const auto here = own_directory();
  for (const auto& directory : {here, here / SVE_LIBRARY_FROM_PROGRAM}) {
    const auto path = (directory / library_name).lexically_normal();
    if (access(path.c_str(), R_OK) == 0) return path.string();
  }
  return std::nullopt;
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
    if (!entry.empty() && entry.substr(entry.rfind('/') + 1) != library_name) list += ":" + entry;
  return list;
}

int run_embedded(const command_line& line, const std::string& program, const std::string& library) {
  const char* preloaded = std::getenv(preload_variable);
  const bool nested = preloaded && std::strstr(preloaded, library_name);
  setenv(preload_variable, preload_list(library, program, preloaded).c_str(), 1);
  std::string options = options_value(line);
  if (nested) options = with_outer_wishes(options, std::getenv(options_variable));
  if (options.empty()) {
    unsetenv(options_variable);
  } else {
    setenv(options_variable, options.c_str(), 1);
  }
  return run(program, line.program);
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
    const bool reports = !line.reports.empty();
    if (!line.quiet || reports)
      fail(0, std::string("this processor has SVE and runs the program itself, at its own vector length") +
                  (reports ? "; there is no report" : ""));
    return run(program.path, line.program);
  }
  const auto become = [&](const std::function<int()>& program_of_line) {
    if (line.reports.empty()) return program_of_line();
    const auto here = own_directory();
    const finding prepared = prepare_reports(line, {here / report_name, here / "../report" / report_name});
    if (prepared.status != 0) return fail(prepared.status, prepared.error);
    return run_for_reports(line, prepared.path, program_of_line);
  };
  if (line.dynamorio) return become([&] { return run_under_dynamorio(line, program.path); });
  const auto library = find_library();
  if (!library) {
    return fail(status_failed, std::string(library_name) + ": not found beside sve-run nor in " SVE_LIBRARY_FROM_PROGRAM
                                                           "; install it again");
  }
  if (library->find_first_of(" :$") != std::string::npos) {
    return fail(status_failed,
                *library + ": the loader takes no path with a space, colon or dollar; install it elsewhere");
  }
  if (const auto error = prepare_counts_file(line)) return fail(status_failed, *error);

  return become([&] { return run_embedded(line, program.path, *library); });
}
