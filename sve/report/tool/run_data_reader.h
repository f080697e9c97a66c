// What processes have left behind, as it was written.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "sve/report/lane_use.h"

namespace sve::report {

/// Of one instruction, or of several added up.
struct UseCounts {
  std::uint64_t executions = 0, active = 0, bytes = 0, crossing = 0, shortened = 0;
  std::array<std::uint64_t, lane_bins> bins{};

  void add(const UseCounts& other);
};

struct ExecutedWord {
  unsigned place = 0;  ///< in the run
  std::uint32_t word = 0;
  std::int64_t partial = 0;  ///< executions in runs that did not come to their end; with them the run's own
  std::optional<UseCounts> use;
};

struct ExecutedRun {
  std::uint32_t module = 0;  ///< 0: code of no file
  std::uint64_t address = 0, executions = 0;
  unsigned length = 0;  ///< in instructions, those between SVE instructions included
  bool patched = false;
  std::vector<ExecutedWord> words;
};

struct MappedModule {
  std::uint64_t begin = 0, end = 0, offset = 0;
  std::string path;
};

struct ProcessData {
  unsigned bits = 0;
  std::string platform, program;
  std::uint64_t id = 0, parent = 0;
  std::string end;  ///< exit, exec, signal; empty if it has told nothing at its end
  int signal = 0;
  bool has_lanes = false;
  std::optional<std::uint64_t> emulation, processor;  ///< nanoseconds
  std::uint64_t total = 0, traps = 0, unplaced = 0;
  std::map<std::uint32_t, MappedModule> modules;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> threads;  ///< identity, executions
  std::vector<ExecutedRun> runs;
};

/// Reads the files of a directory, in the order in which their processes began. Throws std::runtime_error where there
/// are none, or one is no such file.
std::vector<ProcessData> read_run_data(const std::filesystem::path& directory);

}  // namespace sve::report
