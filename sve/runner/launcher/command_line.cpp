#include "sve/runner/launcher/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "sve/runner/launcher/program.h"
#include "sve/runner/options.h"

namespace sve::runner {

namespace {

// CLI11 sees the options only; the program's words are cut off before it.
class UsageFormatter : public CLI::Formatter {
 public:
  std::string make_usage(const CLI::App*, std::string) const override {
    return "Usage: sve-run [OPTIONS] PROGRAM [ARGS...]\n";
  }
};

}  // namespace

parse_result parse_command_line(const std::vector<std::string>& arguments) {
  parse_result result;
  command_line& line = result.line;

  // Every option is one word but for --dynamorio, which may have its value behind it, so the program begins at the first
  // other word that does not look like one.
  auto program = arguments.begin();
  while (program != arguments.end() && program->starts_with('-') && *program != "--" && *program != "-")
    program += *program == "--dynamorio" && program + 1 != arguments.end() ? 2 : 1;
  std::vector<std::string> own(arguments.begin(), program);
  if (program != arguments.end() && *program == "--") ++program;
  line.program.assign(program, arguments.end());

  CLI::App app("Runs an AArch64 program that uses SVE on a processor without it, at a vector length of 896 bits.",
               "sve-run");
  app.formatter(std::make_shared<UsageFormatter>());
  app.set_version_flag("--version", std::string("sve-run ") + SVE_VERSION, "Print the version and exit");
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.add_flag("-q,--quiet", line.quiet, "Do not print the totals at exit");
  app.add_flag_callback(
      "--no-announce", [&line] { line.announce = false; },
      "Do not tell programs that ask (getauxval, prctl) that there is SVE");
  std::string platform = "embedded";
  app.add_option("--platform", platform,
                 "How instructions are caught: embedded, a preloaded library that handles SIGILL; or dynamorio, the "
                 "instrumentation platform, for statically linked programs too")
      ->type_name("NAME")
      ->check([](const std::string& name) {
        return name == "embedded" || name == "dynamorio" ? std::string()
                                                         : "there is no platform " + name + ", only embedded and dynamorio";
      });
  app.add_option("--dynamorio", line.dynamorio_home,
                 "Where DynamoRIO is installed; otherwise the variables DynamoRIO_DIR and DYNAMORIO_HOME say it")
      ->type_name("DIR");
  app.add_option("--dynamorio-options", line.dynamorio_options, "Options for DynamoRIO itself, separated by spaces")
      ->type_name("OPTIONS");
  std::string counts;
  auto* counts_option = app.add_option("--counts", counts,
                                       "Print each instruction's address, word and count at exit, to stderr or FILE; "
                                       "%p in FILE is the process id")
                            ->type_name("[FILE]")
                            ->expected(0, 1)
                            ->default_str("");
  app.footer("Exit status: the program's; 125 if sve-run fails, 126 if PROGRAM cannot be run, 127 if it is not found.");

  try {
    std::reverse(own.begin(), own.end());  // CLI11 takes them so
    app.parse(own);
  } catch (const CLI::CallForHelp&) {
    result.text = app.help();
    return result;
  } catch (const CLI::CallForVersion& version) {
    result.text = std::string(version.what()) + "\n";
    return result;
  } catch (const CLI::ExtrasError&) {
    result.status = status_failed;
    const auto known = app.remaining();
    result.text = "unknown option " + (known.empty() ? own.back() : known.front()) + "; see sve-run --help\n";
    return result;
  } catch (const CLI::ParseError& error) {
    result.status = status_failed;
    result.text = std::string(error.what()) + "; see sve-run --help\n";
    return result;
  }
  line.counts = counts_option->count() > 0;
  line.dynamorio = platform == "dynamorio";
  if (line.dynamorio && (line.quiet || line.counts)) {
    result.status = status_failed;
    result.text = "--quiet and --counts go with --platform=embedded only; leave them away\n";
    return result;
  }
  line.counts_file = counts;
  if (line.program.empty()) {
    result.status = status_failed;
    result.text = "no program given; see sve-run --help\n";
    return result;
  }
  result.run = true;
  return result;
}

std::string options_value(const command_line& line) {
  std::string value;
  const auto add = [&](std::string_view word) {
    if (!value.empty()) value += ':';
    value += word;
  };
  if (line.quiet) add(quiet_word);
  if (!line.announce) add(no_announce_word);
  if (line.counts) add(std::string(counts_word) + (line.counts_file.empty() ? "" : "=" + line.counts_file));
  return value;
}

}  // namespace sve::runner
