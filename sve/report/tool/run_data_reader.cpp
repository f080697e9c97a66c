#include "sve/report/tool/run_data_reader.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <stdexcept>
#include <string_view>

#include "sve/report/run_data.h"

namespace sve::report {
namespace {

namespace fs = std::filesystem;

// The fields of a line, one after the other.
class Fields {
 public:
  explicit Fields(std::string_view line) : rest_(line) {}
  std::string_view word() {
    const std::size_t end = std::min(rest_.find(' '), rest_.size());
    const std::string_view field = rest_.substr(0, end);
    rest_.remove_prefix(std::min(end + 1, rest_.size()));
    return field;
  }
  std::uint64_t number() {
    std::string_view digits = word();
    const int base = digits.starts_with("0x") ? 16 : 10;
    if (base == 16) digits.remove_prefix(2);
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
    if (error != std::errc() || end != digits.data() + digits.size())
      throw std::runtime_error("no number: " + std::string(digits));
    return value;
  }
  /// All that is left.
  std::string text() {
    std::string result;
    for (std::size_t i = 0; i < rest_.size(); ++i) {
      if (rest_[i] != '\\' || i + 1 == rest_.size())
        result += rest_[i];
      else
        result += rest_[++i] == 'n' ? '\n' : rest_[i];
    }
    return result;
  }

 private:
  std::string_view rest_;
};

void read_line(std::string_view line, ProcessData& p) {
  Fields f(line);
  const std::string_view what = f.word();
  if (what == "bits") p.bits = static_cast<unsigned>(f.number());
  if (what == "platform") p.platform = f.text();
  if (what == "process") p.id = f.number(), p.parent = f.number();
  if (what == "program") p.program = f.text();
  if (what == "counts") {  // an exec that failed has left some before
    p.modules.clear();
    p.threads.clear();
    p.runs.clear();
    p.unplaced = 0;
    p.end.clear();
  }
  if (what == "end") {
    p.end = f.word();
    if (p.end == "signal") p.signal = static_cast<int>(f.number());
  }
  if (what == "total") p.total = f.number();
  if (what == "lanes") p.has_lanes = true;
  if (what == "emulation") p.emulation = f.number();
  if (what == "processor") p.processor = f.number();
  if (what == "traps") p.traps = f.number();
  if (what == "unplaced") p.unplaced = f.number();
  if (what == "module") {
    MappedModule& m = p.modules[static_cast<std::uint32_t>(f.number())];
    m.begin = f.number(), m.end = f.number(), m.offset = f.number(), m.path = f.text();
  }
  if (what == "thread") {
    const std::uint64_t id = f.number();
    p.threads.emplace_back(id, f.number());
  }
  if (what == "run") {
    ExecutedRun& r = p.runs.emplace_back();
    r.module = static_cast<std::uint32_t>(f.number());
    r.address = f.number(), r.length = static_cast<unsigned>(f.number()), r.executions = f.number();
    r.patched = f.number() != 0;
  }
  if (p.runs.empty()) return;
  if (what == "word" || what == "word-") {
    ExecutedWord& w = p.runs.back().words.emplace_back();
    w.place = static_cast<unsigned>(f.number());
    w.word = static_cast<std::uint32_t>(f.number());
    w.partial = static_cast<std::int64_t>(f.number());
    if (what == "word-") w.partial = -w.partial;
  }
  if (p.runs.back().words.empty()) return;
  std::optional<UseCounts>& use = p.runs.back().words.back().use;
  if (what == "use") {
    use.emplace();
    use->executions = f.number(), use->active = f.number(), use->bytes = f.number();
    use->crossing = f.number(), use->shortened = f.number();
  }
  if (what == "bins" && use)
    for (std::uint64_t& bin : use->bins) bin = f.number();
}

ProcessData read_process(const fs::path& path) {
  std::ifstream file(path);
  const auto damaged = [&](const std::string& why) {
    return std::runtime_error(path.string() + ": " + why + "; give the data that sve-run has collected");
  };
  std::string line;
  if (!std::getline(file, line) || line != "sve-run-data " + std::to_string(run_data_version))
    throw damaged("no run data of version " + std::to_string(run_data_version));
  ProcessData p;
  bool done = false;
  try {
    while (std::getline(file, line)) {
      done = line == "done";
      read_line(line, p);
    }
  } catch (const std::runtime_error& error) {
    throw damaged(error.what());
  }
  if (!done) p.end.clear();
  return p;
}

// "12.3": process 12, its fourth program.
std::pair<unsigned long, unsigned long> order_of(const fs::path& path) {
  const std::string name = path.filename().string();
  const std::size_t dot = name.find('.');
  try {
    return {std::stoul(name), dot == name.npos ? 0 : std::stoul(name.substr(dot + 1))};
  } catch (const std::logic_error&) {
    throw std::runtime_error(path.string() + ": not a file of sve-run; give a directory that sve-run has written");
  }
}

}  // namespace

void UseCounts::add(const UseCounts& other) {
  executions += other.executions;
  active += other.active;
  bytes += other.bytes;
  crossing += other.crossing;
  shortened += other.shortened;
  for (std::size_t i = 0; i < bins.size(); ++i) bins[i] += other.bins[i];
}

std::vector<ProcessData> read_run_data(const fs::path& directory) {
  std::error_code error;
  std::vector<fs::path> paths;
  for (const auto& entry : fs::directory_iterator(directory, error)) paths.push_back(entry.path());
  if (error) throw std::runtime_error(directory.string() + ": " + error.message() + "; give a directory of sve-run");
  if (paths.empty()) throw std::runtime_error(directory.string() + ": empty; no process has left data there");
  std::sort(paths.begin(), paths.end(), [](const auto& a, const auto& b) { return order_of(a) < order_of(b); });
  std::vector<ProcessData> processes;
  for (const fs::path& path : paths) processes.push_back(read_process(path));
  return processes;
}

}  // namespace sve::report
