// What a process leaves behind for a report: lines of text, written by either platform and read by sve-report. They
// hold what only the process knows; what words mean, and where in the source they come from, is found out afterwards.
//
// docs/report.md has the lines. Writing them allocates nothing and calls nothing but the sink.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "sve/report/lane_use.h"
#include "sve/report/text.h"
#include "sve/state/vector_length.h"

namespace sve {

inline constexpr unsigned run_data_version = 1;

/// How a process came to its end, as far as it could tell.
enum class ProcessEnd : std::uint8_t { exit, exec, signal, unknown };

class RunDataWriter {
 public:
  /// Returns whether all of the text could be written.
  using Sink = bool (*)(void* to, const char* text, std::size_t size);

  struct Hex {
    std::uint64_t value;
  };

  RunDataWriter(Sink write, void* to) : write_(write), to_(to) {}
  ~RunDataWriter() { flush(); }
  RunDataWriter(const RunDataWriter&) = delete;
  RunDataWriter& operator=(const RunDataWriter&) = delete;

  /// One line: a word, and fields of which a text can only be the last.
  template <class... Fields>
  void line(std::string_view word, const Fields&... fields) {
    if (text_.room() < longest_line) flush();
    text_ << word;
    (put(fields), ...);
    text_ << "\n";
  }

  void begin(std::string_view platform, int process, int parent, std::string_view program) {
    line("sve-run-data", std::uint64_t{run_data_version});
    line("bits", std::uint64_t{vector_bytes * 8});
    line("platform", platform);
    line("process", number(process), number(parent));
    line("program", program);
  }

  /// Where the data begin, and what they begin with. What a process writes last counts.
  void begin_counts(ProcessEnd how, int signal, std::uint64_t total, bool with_lanes) {
    line("counts");
    constexpr std::string_view names[] = {"exit", "exec", "signal", "unknown"};
    const std::string_view name = names[static_cast<unsigned>(how)];
    if (how == ProcessEnd::signal)
      line("end signal", number(signal));
    else
      line("end", name);
    line("total", total);
    if (with_lanes) line("lanes");
  }

  /// An instruction of a run: its place there, and its executions in runs that did not come to their end.
  void word(std::size_t place, std::uint32_t word, std::int64_t partial, const LaneUse* lanes) {
    line(partial < 0 ? "word-" : "word", std::uint64_t{place}, Hex{word},
         static_cast<std::uint64_t>(partial < 0 ? -partial : partial));
    if (!lanes || lanes->executions == 0) return;
    line("use", lanes->executions.load(), lanes->active.load(), lanes->bytes.load(), lanes->crossing.load(),
         lanes->shortened.load());
    text_ << "bins";
    for (const auto& bin : lanes->bins) put(bin.load());
    text_ << "\n";
  }

  /// Everything is told.
  bool end() {
    line("done");
    return flush();
  }

  bool flush() {
    good_ = good_ && (text_.size() == 0 || write_(to_, text_.data(), text_.size()));
    text_.clear();
    return good_;
  }

 private:
  static constexpr std::size_t longest_line = 4096 + 1024;

  static std::uint64_t number(int value) { return static_cast<std::uint64_t>(value); }
  void put(std::uint64_t value) { text_ << " " << value; }
  void put(Hex value) { (text_ << " ").hex(value.value); }
  void put(std::string_view text) {
    text_ << " ";
    for (const char c : text.substr(0, 4096))
      c == '\n' ? text_ << "\\n" : c == '\\' ? text_ << "\\\\" : text_ << std::string_view(&c, 1);
  }

  Sink write_;
  void* to_;
  bool good_ = true;
  Text<12288> text_;
};

}  // namespace sve
