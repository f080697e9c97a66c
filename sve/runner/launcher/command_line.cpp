#include "sve/runner/launcher/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>
#include <utility>

#include "sve/runner/launcher/program.h"
#include "sve/runner/options.h"
#include "sve/state/vector_length.h"

namespace sve::runner {

namespace {

constexpr std::size_t help_width = 80, help_indent = 28;

// `text` in lines that begin at `indent` and end before help_width, but for the first, which stands behind `head`.
std::string wrapped(std::string head, std::size_t indent, const std::string& text) {
  std::string lines;
  if (head.size() >= indent) lines = std::exchange(head, "") + "\n";
  head.resize(indent, ' ');
  std::istringstream words(text);
  for (std::string word; words >> word; head += (head.size() > indent ? " " : "") + word) {
    if (head.size() + 1 + word.size() < help_width) continue;
    lines += head + "\n";
    head.assign(indent, ' ');
  }
  return lines + head + "\n";
}

// CLI11 sees the options only; the program's words are cut off before it.
class HelpFormatter : public CLI::Formatter {
 public:
  std::string make_description(const CLI::App* app) const override { return wrapped("", 0, app->get_description()); }
  std::string make_usage(const CLI::App*, std::string) const override {
    return "Usage: sve-run [OPTIONS] PROGRAM [ARGS...]\n";
  }
  std::string make_option(const CLI::Option* option, bool) const override {
    const std::string value = option->get_type_size() == 0 ? "" : option->get_type_name();
    return wrapped("  " + option->get_name(false, true) + (value.empty() || value[0] == '[' ? "" : " ") + value,
                   help_indent, option->get_description());
  }
  std::string make_footer(const CLI::App* app) const override {
    return wrapped("", 0, app->get_footer()) +
           "\nExamples:\n"
           "  sve-run ./program arguments\n"
           "  sve-run --check ./program\n"
           "  sve-run --quiet --counts=/tmp/counts.%p ./program\n"
           "  sve-run --platform=dynamorio --dynamorio /opt/dynamorio ./static_program\n"
           "\nSee also: man sve-run\n";
  }
};

// The options whose value may be the word behind them. That of --counts may be left away, so it stands behind a '='.
bool takes_next_word(std::string_view option) {
  return option == "--platform" || option == "--dynamorio" || option == "--dynamorio-options" ||
         option == "--translate" || option == "--report" || option == "--vector-length";
}

}  // namespace

ParseResult parse_command_line(const std::vector<std::string>& arguments) {
  ParseResult result;
  CommandLine& line = result.line;

  // The program begins at the first word that is neither an option nor an option's value.
  auto program = arguments.begin();
  while (program != arguments.end() && program->starts_with('-') && *program != "--" && *program != "-")
    program += takes_next_word(*program) && program + 1 != arguments.end() ? 2 : 1;
  std::vector<std::string> own(arguments.begin(), program);
  if (program != arguments.end() && *program == "--") ++program;
  line.program.assign(program, arguments.end());

  CLI::App app("Runs an AArch64 program that uses SVE on a processor without it.", "sve-run");
  app.formatter(std::make_shared<HelpFormatter>());
  app.set_version_flag("--version", std::string("sve-run ") + SVE_VERSION, "Print the version and exit");
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.add_flag("--check", line.check, "Run nothing; tell what would happen to PROGRAM, and why");
  app.add_flag("-q,--quiet", line.quiet, "Do not print the totals at exit");
  app.add_flag_callback(
      "--no-announce", [&line] { line.announce = false; },
      "Do not tell programs that ask (getauxval, prctl) that there is SVE");
  app.add_flag_callback(
      "--no-patch", [&line] { line.patch = false; },
      "Leave the program's code as it is and serve every run by a trap, for programs that read their own code");
  app.add_option("--translate", line.translate,
                 "What a run becomes when it has been met: native, code of the processor's own instructions; handlers, "
                 "calls of the model; or off, as --no-patch")
      ->type_name("HOW")
      ->check([](const std::string& how) {
        return how == "native" || how == "handlers" || how == "off"
                   ? std::string()
                   : "there is no translation " + how + ", only native, handlers and off";
      });
  app.add_flag("--trace-translation", line.trace_translation, "Print each run and the code made of it to stderr");
  app.add_option("--vector-length", line.vector_length,
                 "The vector length that the program meets, one of those that are installed; otherwise the variable " +
                     std::string(length_variable) + " says it, or it is " + std::to_string(vector_bits))
      ->type_name("BITS")
      ->check([](const std::string& bits) {
        return !bits.empty() && bits.find_first_not_of("0123456789") == bits.npos
                   ? std::string()
                   : "a vector length is a number of bits, not " + bits;
      });
  std::string platform = "embedded";
  app.add_option("--platform", platform,
                 "How instructions are caught: embedded, a preloaded library that handles SIGILL; or dynamorio, the "
                 "instrumentation platform, for statically linked programs too")
      ->type_name("NAME")
      ->check([](const std::string& name) {
        return name == "embedded" || name == "dynamorio"
                   ? std::string()
                   : "there is no platform " + name + ", only embedded and dynamorio";
      });
  app.add_option("--dynamorio", line.dynamorio_home,
                 "Where DynamoRIO is installed; otherwise the variables DynamoRIO_DIR and DYNAMORIO_HOME say it")
      ->type_name("DIR");
  app.add_option("--dynamorio-options", line.dynamorio_options, "Options for DynamoRIO itself, separated by spaces")
      ->type_name("OPTIONS");
  std::string counts;
  auto* counts_option =
      app.add_option("--counts", counts,
                     "Print each instruction's address, word, count and text at exit, to stderr or FILE; "
                     "%p in FILE is the process id")
          ->type_name("[=FILE]")
          ->expected(0, 1)
          ->default_str("");
  app.add_option("--report", line.reports,
                 "Write a report of what was executed, and where, when the program has ended: FILE.html, FILE.json or "
                 "FILE.txt, or - for text on stderr; %p in FILE is the process id. May be given more than once")
      ->type_name("FILE")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->check([](const std::string& file) {
        for (const char* ending : {".html", ".json", ".txt"})
          if (file == "-" || file.ends_with(ending)) return std::string();
        return "a report ends in .html, .json or .txt, or is - for text on stderr; " + file + " does not";
      });
  app.add_flag("--lane-use", line.lane_use,
               "Count for the report how many elements of each vector were active, and what was loaded and stored; "
               "every instruction is then a call of the model");
  app.add_flag("--time", line.time,
               "Measure for the report how much of the processors' time went into SVE instructions");
  app.footer(
      "Exit status: the program's; 125 if sve-run fails, 126 if PROGRAM cannot be run, 127 if it is not found. With "
      "--check 0 if it runs, 1 if it may end by an instruction that is refused.");

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
  if (line.dynamorio && (line.quiet || line.counts || line.time)) {
    result.status = status_failed;
    result.text = "--quiet, --counts and --time go with --platform=embedded only; leave them away\n";
    return result;
  }
  line.counts_file = counts;
  if ((line.lane_use || line.time) && line.reports.empty()) {
    result.status = status_failed;
    result.text = std::string(line.time ? "--time" : "--lane-use") + " goes with a report; give --report FILE, too\n";
    return result;
  }
  if (line.program.empty()) {
    result.status = status_failed;
    result.text = "no program given; see sve-run --help\n";
    return result;
  }
  result.run = true;
  return result;
}

std::string options_value(const CommandLine& line) {
  std::string value;
  const auto add = [&](std::string_view word) {
    if (!value.empty()) value += ':';
    value += word;
  };
  if (line.quiet) add(quiet_word);
  if (!line.announce) add(no_announce_word);
  if (!line.patch || line.translate == "off") add(no_patch_word);
  if (line.translate == "handlers") add(handlers_word);
  if (line.trace_translation) add(trace_word);
  if (!line.report_directory.empty()) {
    if (line.lane_use) add(lane_use_word);
    if (line.time) add(time_word);
    add(std::string(report_word) + line.report_directory);
  }
  if (line.counts_file.find("%p") != std::string::npos) add(std::string(begun_word) + std::string(begun_width, '0'));
  if (line.counts) add(std::string(counts_word) + (line.counts_file.empty() ? "" : "=" + line.counts_file));
  return value;
}

std::string with_outer_wishes(std::string options, const char* outer) {
  const auto has = [](std::string_view all, std::string_view word) {
    return (":" + std::string(all)).find(":" + std::string(word)) != std::string::npos;
  };
  const bool reports = has(options, report_word), counts = has(options, counts_word);
  std::string_view rest = outer ? outer : "";
  std::string first, last;  // counts are the last word, and may hold a ':'
  while (!rest.empty()) {
    const bool is_counts = rest.starts_with(counts_word);
    const std::string_view word = is_counts ? rest : rest.substr(0, rest.find(':'));
    if (!reports && (word.starts_with(report_word) || word == lane_use_word || word == time_word))
      first.append(word).append(":");
    if (!counts && (is_counts || word.starts_with(begun_word))) last.append(":").append(word);
    rest.remove_prefix(std::min(rest.size(), word.size() + 1));
  }
  options = first + options + last;
  if (options.starts_with(':')) options.erase(0, 1);
  if (options.ends_with(':')) options.pop_back();
  return options;
}

}  // namespace sve::runner
