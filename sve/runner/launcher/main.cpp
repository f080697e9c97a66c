// sve-run: looks at the program, then becomes it, with the library preloaded.
#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <sys/wait.h>
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

#include "sve/runner/launcher/check.h"
#include "sve/runner/launcher/command_line.h"
#include "sve/runner/launcher/dynamorio.h"
#include "sve/runner/launcher/library.h"
#include "sve/runner/launcher/program.h"
#include "sve/runner/launcher/reporting.h"
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
Finding find_library_of(const std::string& bits, const char* prefix, std::initializer_list<const char*> places,
                        const std::string& remedy) {
  std::vector<std::filesystem::path> paths;
  for (const char* place : places) paths.push_back(own_directory() / place);
  return find_library(paths, prefix, bits, remedy);
}

// The directory of DynamoRIO, and the client that it is to load.
struct DynamorioPlace {
  Finding home, client;
};

DynamorioPlace find_dynamorio_and_client(const CommandLine& line, const std::string& bits) {
  const auto readable = [](const std::string& path) { return access(path.c_str(), R_OK) == 0; };
  const auto variable = [](const char* name) { return std::getenv(name); };
  DynamorioPlace place;
  place.client = find_library_of(bits, client_prefix, {SVE_CLIENT_FROM_BUILD, SVE_CLIENT_FROM_PROGRAM},
                                 "the client is not there; build with DynamoRIO_DIR set, and install");
  place.home = find_dynamorio(line.dynamorio_home, variable, readable);
  if (place.home.status == 0 && place.client.status != 0) place.home = place.client;
  return place;
}

int run_under_dynamorio(const CommandLine& line, const std::string& program, const std::string& bits) {
  if (!line.report_directory.empty()) setenv(options_variable, options_value(line).c_str(), 1);
  const auto [home, client] = find_dynamorio_and_client(line, bits);
  if (home.status != 0) return fail(home.status, home.error);
  const auto words = dynamorio_command(line, home.path, client.path, program);
  return run(words.front(), words);
}

// As the loader tells them that would load them, to whoever asks for it as `ldd` does.
std::vector<std::string> libraries_of(const std::string& program) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return {};
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[1], STDOUT_FILENO);
    setenv("LD_TRACE_LOADED_OBJECTS", "1", 1);
    char* const arguments[] = {const_cast<char*>(program.c_str()), nullptr};
    syscall(SYS_execve, program.c_str(), arguments, environ);
    _exit(status_failed);
  }
  close(ends[1]);
  std::string text;
  char piece[4096];
  for (ssize_t n; (n = read(ends[0], piece, sizeof piece)) > 0;) text.append(piece, static_cast<std::size_t>(n));
  close(ends[0]);
  waitpid(child, nullptr, 0);
  // "libm.so.6 => /lib/libm.so.6 (0x1000)", "libm.so.6 => not found", "/lib/ld-linux-aarch64.so.1 (0x1000)".
  std::vector<std::string> libraries;
  std::istringstream lines(text);
  for (std::string line, name, word; std::getline(lines, line);) {
    std::istringstream words(line);
    words >> name >> word;
    if (word == "=>" && words >> word && word == "not") {
      libraries.push_back(name);
    } else if (const auto path = word[0] == '/' ? word : name; path[0] == '/') {
      libraries.push_back(path);
    }
  }
  return libraries;
}

int check(const CommandLine& line, const char* search_path, const std::string& bits) {
  struct utsname system;
  Surroundings here;
  if (uname(&system) == 0) here.kernel = std::string(system.sysname) + " " + system.release;
  here.has_sve = processor_has_sve();
  here.search_path = search_path;
  here.libraries = libraries_of;
  here.dynamorio = [&] { return find_dynamorio_and_client(line, bits).home; };
  const CheckResult result = sve::runner::check(line, here);
  std::fputs(result.text.c_str(), stdout);
  return result.status;
}

// What to preload before the program's own wishes. Of two copies of the library in one process none would know what the
// other does, so one from another place goes.
std::string preload_list(const std::string& library, const std::string& program, const char* wished) {
  std::string list = library;
  if (const std::string sanitizer = kind_of(program).sanitizer; !sanitizer.empty()) list = sanitizer + ":" + list;
  std::string entries = wished ? wished : "";
  std::replace(entries.begin(), entries.end(), ' ', ':');
  std::istringstream words(entries);
  for (std::string entry; std::getline(words, entry, ':');)
    if (!entry.empty() && !entry.substr(entry.rfind('/') + 1).starts_with(library_prefix)) list += ":" + entry;
  return list;
}

int run_embedded(const CommandLine& line, const std::string& program, const std::string& library) {
  const char* preloaded = std::getenv(preload_variable);
  const bool nested = preloaded && std::strstr(preloaded, library_prefix);
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
std::optional<std::string> prepare_counts_file(CommandLine& line) {
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
std::string wanted_length(const CommandLine& line, const char* preloaded) {
  if (!line.vector_length.empty()) return line.vector_length;
  if (const char* const said = std::getenv(length_variable); said && *said) return said;
  const std::string outer = length_in(preloaded ? preloaded : "", library_prefix);
  return outer.empty() ? std::to_string(sve::vector_bits) : outer;
}

}  // namespace

int main(int argc, char** argv) {
  ParseResult parsed = parse_command_line(std::vector<std::string>(argv + (argc > 0), argv + argc));
  if (!parsed.run) {
    std::fprintf(parsed.status == 0 ? stdout : stderr, "%s%s",
                 parsed.status == 0 ? "" : "sve-run: ", parsed.text.c_str());
    return parsed.status;
  }
  CommandLine& line = parsed.line;

  const char* search_path = std::getenv("PATH");
  if (!search_path) search_path = "/usr/local/bin:/usr/bin:/bin";
  const char* preloaded = std::getenv(preload_variable);
  const std::string bits = wanted_length(line, preloaded);
  if (line.check) return check(line, search_path, bits);
  Finding program = resolve_scripts(find_program(line.program.front(), search_path), line.program);
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
    const Finding prepared = prepare_reports(line, {here / report_name, here / "../report" / report_name});
    if (prepared.status != 0) return fail(prepared.status, prepared.error);
    return run_for_reports(line, prepared.path, program_of_line);
  };
  // What is asked for here holds for another sve-run below too.
  if (!line.vector_length.empty()) setenv(length_variable, bits.c_str(), 1);
  if (line.dynamorio) return become([&] { return run_under_dynamorio(line, program.path, bits); });
  const Finding library =
      find_library_of(bits, library_prefix, {"", SVE_LIBRARY_FROM_PROGRAM},
                      "not found beside sve-run nor in " SVE_LIBRARY_FROM_PROGRAM "; install it again");
  if (library.status != 0) return fail(library.status, library.error);
  if (library.path.find_first_of(" :$") != std::string::npos) {
    return fail(status_failed,
                library.path + ": the loader takes no path with a space, colon or dollar; install it elsewhere");
  }
  if (const auto error = prepare_counts_file(line)) return fail(status_failed, *error);

  return become([&] { return run_embedded(line, program.path, library.path); });
}
