#include "sve/runner/launcher/check.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "sve/runner/launcher/code.h"

namespace sve::runner {
namespace {

constexpr std::size_t indent = 11, width = 80, most_functions = 6, longest_name = 40;

std::string file_name(const std::string& path) { return std::filesystem::path(path).filename().string(); }

// `label`, and behind it `text` in lines that end before `width` where there are blanks.
void add(std::string& lines, std::string label, const std::string& text) {
  label.resize(indent, ' ');
  std::istringstream words(text);
  for (std::string word; words >> word; label += (label.size() > indent ? " " : "") + word) {
    if (label.size() == indent || label.size() + 1 + word.size() < width) continue;
    lines += label + "\n";
    label.assign(indent, ' ');
  }
  lines += label + "\n";
}

std::string number_of(std::uint64_t n, const char* what) {
  return std::to_string(n) + " " + what + (n == 1 ? "" : "s");
}

// As a shell takes it.
std::string shell_word(const std::string& word) {
  constexpr char plain[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_./-+=:,@%";
  if (!word.empty() && word.find_first_not_of(plain) == std::string::npos) return word;
  std::string text = "'";
  for (const char c : word) text += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return text + "'";
}

std::string command(const std::string& options, const std::vector<std::string>& words) {
  std::string text = "sve-run" + options;
  for (const std::string& word : words) text += " " + shell_word(word);
  return text;
}

std::string describe(const ProgramKind& kind) {
  std::string text = kind.is_dynamic   ? "dynamically linked"
                     : kind.is_library ? "a shared library"
                                       : "statically linked";
  if (kind.has_glibc) text += ", glibc";
  if (kind.is_dynamic && !kind.has_glibc) text += ", loaded by " + kind.loader;
  if (kind.is_go) text += ", Go";
  if (!kind.sanitizer.empty()) text += ", with " + kind.sanitizer;
  if (kind.changes_user) text += ", set-user-ID or set-group-ID";
  if (kind.gets_capabilities) text += ", file capabilities";
  return text;
}

std::string describe(const CodeSummary& code) {
  std::string text = number_of(code.instructions, "instruction");
  const auto& functions = code.functions;
  const std::size_t shown = functions.size() > most_functions ? most_functions - 1 : functions.size();
  for (std::size_t i = 0; i < shown; ++i) {
    auto [name, count] = functions[i];
    if (name.empty()) name = "code without a name";
    if (name.size() > longest_name) name.replace(longest_name / 2, name.size() - longest_name, "...");
    text += (i == 0 ? " in " : ", ") + name + " (" + std::to_string(count) + ")";
  }
  if (shown < functions.size()) text += " and " + number_of(functions.size() - shown, "other function");
  return text;
}

// The C library and the compiler's have code for several processors, and take what the processor is said to have.
bool is_chosen_by_processor(const std::string& path) {
  const std::string name = file_name(path);
  return name.starts_with("libc.so.") || name.starts_with("libgcc_s.so.") || name.starts_with("ld-linux-");
}

// What `env` runs: it is by this that scripts name their interpreters.
Finding behind_env(Finding program, const std::vector<std::string>& words, const std::string& search_path) {
  if (program.status != 0 || file_name(program.path) != "env") return program;
  std::string text;
  for (std::size_t i = 1; i < words.size(); ++i) text += " " + words[i];
  std::istringstream rest(text);
  for (std::string word; rest >> word;)
    if (word[0] != '-' && word.find('=') == std::string::npos) return find_program(word, search_path);
  return program;
}

}  // namespace

CheckResult check(const CommandLine& line, const Surroundings& here) {
  CheckResult result;
  const auto say = [&](const char* label, const std::string& text) { add(result.text, label, text); };
  const auto end = [&](int status, const std::string& text) {
    result.status = status;
    say("verdict", text);
    return result;
  };
  const auto does_not_run = [&](const Finding& f) { return end(f.status, "does not run: " + f.error); };
  say("machine", "AArch64, " + here.kernel + (here.has_sve ? ", with SVE of its own" : ", without SVE"));

  std::vector<std::string> words = line.program;
  const Finding named = find_program(words.front(), here.search_path);
  if (named.status != 0) return does_not_run(named);
  Finding program = behind_env(resolve_scripts(named, words), words, here.search_path);
  if (program.status != 0) return does_not_run(program);
  const bool is_script = program.path != named.path;
  if (is_script) say("script", named.path + ", run by " + program.path);
  program = check_machine(program.path);
  if (program.status != 0) return does_not_run(program);

  const ProgramKind kind = kind_of(program.path);
  say("program", program.path + ": " + describe(kind));
  const CodeSummary own = summarise_code(program.path);
  bool has_sve = own.instructions != 0;
  say("SVE code", file_name(program.path) + ": " + (has_sve ? describe(own) : "none"));

  // The loader of glibc alone tells of libraries without running the program.
  std::vector<std::pair<std::string, CodeSummary::Refusal>> refused;
  for (const auto& r : own.refused) refused.emplace_back(file_name(program.path), r);
  std::size_t others = 0;
  std::string missing;
  if (kind.has_glibc && !kind.changes_user && !kind.gets_capabilities) {
    for (const std::string& library : here.libraries(program.path)) {
      if (library.find('/') == std::string::npos) {
        missing = library;
        continue;
      }
      const CodeSummary code = summarise_code(library);
      has_sve |= code.instructions != 0 && !is_chosen_by_processor(library);
      for (const auto& r : code.refused) refused.emplace_back(file_name(library), r);
      if (code.instructions != 0) {
        say("", file_name(library) + ": " + describe(code));
      } else {
        ++others;
      }
    }
  }
  if (others > 0) say("", "none in " + number_of(others, "other file") + " that the loader loads");
  for (const auto& [file, r] : refused) {
    say("refused", file + ": " + number_of(r.instructions, "instruction") + " of " + r.extension +
                       (r.function.empty() ? "" : ", first in " + r.function));
  }
  if (!missing.empty()) return end(status_not_executable, "does not run: the loader does not find " + missing);
  if (here.has_sve) return end(0, "runs by itself: the processor has SVE, and sve-run has nothing to do");
  if (kind.is_library) return does_not_run(check_program(program.path));
  if (!has_sve && !is_script && own.refused.empty()) {
    return end(0, "runs without sve-run: no SVE code was found. Code that it loads or makes later is served by: " +
                      command("", line.program));
  }

  // What a library holds beyond SVE it chooses by what the processor is said to have; what stands in the program runs.
  std::string options;
  Finding platform = check_program(program.path);
  const bool is_reached_only_by_dynamorio =
      !kind.changes_user && !kind.gets_capabilities && (!kind.is_dynamic || !kind.has_glibc);
  if (line.dynamorio || is_reached_only_by_dynamorio) {
    platform = here.dynamorio();
    options = " --platform=dynamorio";
    if (platform.status == 0) options += " --dynamorio " + shell_word(platform.path);
    say("platform", std::string("dynamorio") +
                        (line.dynamorio ? ", as was asked for" : ": preloading cannot reach such a program"));
  } else if (platform.status == 0) {
    say("platform", "embedded");
  }
  if (platform.status != 0) return does_not_run(platform);
  const std::string how = command(options, line.program);
  if (!own.refused.empty())
    return end(status_may_end, "may end by SIGILL where it comes to what is refused; otherwise runs with: " + how);
  return end(0, "runs with: " + how);
}

}  // namespace sve::runner
