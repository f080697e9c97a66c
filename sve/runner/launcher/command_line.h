// sve-run's command line.
#pragma once

#include <string>
#include <vector>

namespace sve::runner {

struct command_line {
  bool quiet = false;
  bool announce = true;
  bool patch = true;
  std::string translate = "native";  ///< or handlers, or off
  bool trace_translation = false;
  std::string vector_length;  ///< in bits; empty: none is asked for
  bool counts = false;
  std::string counts_file;           ///< empty: stderr
  bool dynamorio = false;            ///< the platform is DynamoRIO, not the embedded one
  std::string dynamorio_home;        ///< where it is installed; empty: the environment says it
  std::string dynamorio_options;     ///< for the platform itself, separated by spaces
  std::vector<std::string> program;  ///< PROGRAM and its arguments
};

/// What to do with a command line: run it, or print `text` and end with `status`.
struct parse_result {
  command_line line;
  bool run = false;
  int status = 0;
  std::string text;
};

/// `arguments` without the runner's own name. Options end at the first word that is none; the rest is the program's.
parse_result parse_command_line(const std::vector<std::string>& arguments);

/// The value of the variable that carries the options to the preloaded library; see options.h.
std::string options_value(const command_line& line);

/// `options` with the counts that an outer sve-run asked for by its own options; null if it passed none.
std::string with_outer_counts(std::string options, const char* outer);

}  // namespace sve::runner
