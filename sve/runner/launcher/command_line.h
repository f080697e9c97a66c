// sve-run's command line.
#pragma once

#include <string>
#include <vector>

namespace sve::runner {

struct CommandLine {
  bool check = false;  ///< tell what would happen instead
  bool quiet = false;
  bool announce = true;
  bool patch = true;
  std::string translate = "native";  ///< or handlers, or off
  bool trace_translation = false;
  std::string vector_length;  ///< in bits; empty: none is asked for
  bool counts = false;
  std::string counts_file;           ///< empty: stderr
  std::vector<std::string> reports;  ///< files, by their endings; - is text on stderr
  bool lane_use = false;
  bool time = false;
  std::string report_directory;      ///< where processes leave their data for reports
  bool dynamorio = false;            ///< the platform is DynamoRIO, not the embedded one
  std::string dynamorio_home;        ///< where it is installed; empty: the environment says it
  std::string dynamorio_options;     ///< for the platform itself, separated by spaces
  std::vector<std::string> program;  ///< PROGRAM and its arguments
};

/// What to do with a command line: run it, or print `text` and end with `status`.
struct ParseResult {
  CommandLine line;
  bool run = false;
  int status = 0;
  std::string text;
};

/// `arguments` without the runner's own name. Options end at the first word that is none; the rest is the program's.
ParseResult parse_command_line(const std::vector<std::string>& arguments);

/// The value of the variable that carries the options to the preloaded library; see options.h.
std::string options_value(const CommandLine& line);

/// `options` with the counts and the data for a report that an outer sve-run asked for by its own options, null if it
/// passed none, where these ask for none.
std::string with_outer_wishes(std::string options, const char* outer);

}  // namespace sve::runner
