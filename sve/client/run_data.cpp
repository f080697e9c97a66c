#include "sve/client/run_data.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "sve/client/call_sites.h"
#include "sve/client/port.h"
#include "sve/client/sve_client.h"
#include "sve/report/run_data.h"
#include "sve/report/wishes.h"
#include "sve/stats/stats.h"

namespace sve::client {
namespace {

// A file of the platform's stays open and is out of the program's reach.
struct {
  std::string directory;  // empty if there is no report
  bool lanes = false;
  file_t file = INVALID_FILE;
  int process = 0;  // that the file is of
} wanted;

bool write_to_file(void*, const char* text, std::size_t size) {
  return dr_write_file(wanted.file, text, size) == static_cast<ssize_t>(size);
}

template <class Write>
void write_lines(Write&& write) {
  bool good = wanted.file != INVALID_FILE;
  if (good) {
    RunDataWriter data(write_to_file, nullptr);
    write(data);
    good = data.flush();
  }
  if (!good)
    dr_fprintf(our_stderr, "sve-run: no data of process %d for the report: its file in %s cannot be written\n",
               dr_get_process_id(), wanted.directory.c_str());
}

// `parent`: of a copy of a process the one that it is a copy of, which may have ended by now.
void begin_file(int parent) {
  wanted.process = static_cast<int>(dr_get_process_id());
  const std::string path = wanted.directory + "/" + std::to_string(dr_get_process_id()) + ".";
  // A process that has become another program by exec has files of the earlier ones.
  for (unsigned n = 0; n < 1000; ++n) {
    wanted.file = dr_open_file((path + std::to_string(n)).c_str(), DR_FILE_WRITE_REQUIRE_NEW);
    if (wanted.file != INVALID_FILE) break;
  }
  write_lines([parent](RunDataWriter& data) {
    data.begin("dynamorio", wanted.process, parent, exe && exe->full_path ? exe->full_path : "");
  });
}

struct Mapping {
  unsigned long begin, end, offset;
  std::string path;
};

std::vector<Mapping> executable_files() {
  std::string text;
  if (const file_t maps = dr_open_file("/proc/self/maps", DR_FILE_READ); maps != INVALID_FILE) {
    char part[4096];
    for (ssize_t n; (n = dr_read_file(maps, part, sizeof part)) > 0;) text.append(part, static_cast<std::size_t>(n));
    dr_close_file(maps);
  }
  std::vector<Mapping> all;
  for (std::size_t at = 0, end; (end = text.find('\n', at)) != text.npos; at = end + 1) {
    const std::string line = text.substr(at, end - at);
    Mapping m{};
    char rights[5];
    int path = 0;
    if (std::sscanf(line.c_str(), "%lx-%lx %4s %lx %*s %*s %n", &m.begin, &m.end, rights, &m.offset, &path) < 4)
      continue;
    m.path = line.substr(static_cast<std::size_t>(path));
    if (rights[2] == 'x' && m.path.starts_with('/')) all.push_back(m);
  }
  return all;
}

aarch64_decode_rc execute_counted(cpu_state* state, unsigned int word) {
  CallSite* const site = need_call_site(word, reinterpret_cast<unsigned char*>(state->pc), nullptr);
  return execute_and_count(state, word, *site->row, &site->lanes);
}

}  // namespace

void start_run_data() {
  wanted = {};
  const char* const options = std::getenv(options_variable);
  std::string_view rest = options ? options : "";
  while (!rest.empty()) {
    const std::string_view word = rest.substr(0, rest.find(':'));
    if (word.starts_with(report_word)) wanted.directory = word.substr(report_word.size());
    if (word == lane_use_word) wanted.lanes = true;
    rest.remove_prefix(std::min(rest.size(), word.size() + 1));
  }
  if (!wanted.directory.empty()) begin_file(getppid());
}

void restart_run_data() {
  if (!wanted.directory.empty()) begin_file(wanted.process);
}

void write_run_data() {
  if (wanted.directory.empty()) return;
  write_lines([](RunDataWriter& data) {
    data.begin_counts(ProcessEnd::unknown, 0, sve_instr_count.load(), wanted.lanes);
    const std::vector<Mapping> files = executable_files();
    for (std::size_t n = 0; n < files.size(); ++n)
      data.line("module", std::uint64_t{n + 1}, RunDataWriter::Hex{files[n].begin}, RunDataWriter::Hex{files[n].end},
                RunDataWriter::Hex{files[n].offset}, std::string_view(files[n].path));
    std::uint64_t placed = 0;
    for (const auto& [pc, entry] : icounts) {
      const auto address = reinterpret_cast<unsigned long>(pc);
      std::uint64_t module = 0;
      for (std::size_t n = 0; n < files.size(); ++n)
        if (address >= files[n].begin && address < files[n].end) module = n + 1;
      const std::uint64_t count = entry.second.load();
      placed += count;
      data.line("run", module, RunDataWriter::Hex{address}, std::uint64_t{1}, count, std::uint64_t{0});
      data.word(
          0, entry.first, 0,
          wanted.lanes ? &need_call_site(entry.first, reinterpret_cast<unsigned char*>(pc), nullptr)->lanes : nullptr);
    }
    if (placed < sve_instr_count.load()) data.line("unplaced", sve_instr_count.load() - placed);
    data.end();
  });
  if (wanted.file != INVALID_FILE) dr_close_file(wanted.file);
}

DecodeHandler counting_handler(DecodeHandler handler) { return wanted.lanes && handler ? execute_counted : handler; }

}  // namespace sve::client
