#include "sve/runner/preload/report.h"

#include <fcntl.h>

#include <atomic>
#include <cstring>

#include "sve/decode/text.h"
#include "sve/decode/words.h"
#include "sve/runner/preload/copies.h"
#include "sve/runner/preload/descriptors.h"
#include "sve/runner/preload/interpose.h"
#include "sve/runner/preload/kernel.h"
#include "sve/runner/preload/place.h"
#include "sve/runner/preload/process.h"
#include "sve/runner/preload/run_data.h"
#include "sve/runner/sites/site.h"

namespace sve::runner {
namespace {

struct {
  const char* program_name = "";
  bool totals = false;
  bool counts = false;
  const char* counts_file = "";
} wanted;

KeptFile stderr_file, counts_file;
std::atomic<bool> reported{false};

// The program's stderr, whatever has become of descriptor 2 since it was closed; -1 if all ways there are closed.
int report_target() {
  if (const int fd = stderr_file.get(); fd >= 0) return fd;
  return stderr_file.refers(STDERR_FILENO) ? STDERR_FILENO : -1;
}

// In a sandbox nothing but a write is sure to be allowed.
void write_line(const char* text, std::size_t size) {
  if (is_sandboxed()) {
    if (stderr_file.number() >= 0) kernel_write(stderr_file.number(), text, size);
  } else if (const int fd = report_target(); fd >= 0) {
    write_quietly(fd, text, size);
  }
}

// A %p in the file's name stands for the process id.
Text<4096> counts_path() {
  Text<4096> path;
  for (const char* c = wanted.counts_file; *c; ++c) {
    if (c[0] == '%' && c[1] == 'p') {
      path << static_cast<unsigned long>(kernel_process_id());
      ++c;
    } else {
      path << std::string_view(c, 1);
    }
  }
  return path;
}

void print_counts_error(int error) {
  Text<4096 + 160> line;
  const char* const reason = real.strerrordesc_np ? real.strerrordesc_np(error) : nullptr;
  line << counts_path().c_str() << ": " << (reason ? reason : "cannot be written")
       << "; give --counts a file that can be written";
  print_line(line.c_str());
}

// Returns 0 or an error number.
int open_counts_file(int begin) {
  const int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | begin;
  const long fd = system_call(SYS_openat, AT_FDCWD, address(counts_path().c_str()), flags, 0666);
  if (fd < 0) return static_cast<int>(-fd);
  counts_file.take(static_cast<int>(fd));
  return 0;
}

bool one_file_a_process() { return std::strstr(wanted.counts_file, "%p") != nullptr; }

// The lines of dump_sve_stats, to any descriptor, with the instructions' assembler text.
int write_counts(int fd) {
  std::size_t size = 0;
  const CountedWord* const words = collect_counts(size);
  if (!words) {
    print_line("no memory for the counts; give the program more to have them");
    return 0;
  }
  Text<8192> lines;
  for (std::size_t i = 0; i < size; ++i) {
    lines.hex(reinterpret_cast<std::uintptr_t>(words[i].address)) << ": ";
    char text[decode::max_text];
    const bool is_known = !decode::text_of(words[i].word, text).empty();
    lines.hex(words[i].word, 8) << " " << words[i].count << " " << (is_known ? text : "") << "\n";
    if (lines.room() >= 64 + sizeof text) continue;
    if (const int error = write_quietly(fd, lines.data(), lines.size()); error != 0) return error;
    lines.clear();
  }
  return write_quietly(fd, lines.data(), lines.size());
}

void report_counts() {
  if (!wanted.counts_file[0]) {
    if (const int fd = report_target(); fd >= 0) write_counts(fd);
    return;
  }
  int error = 0;
  const RoomForDescriptors room;
  if (counts_file.get() < 0) error = open_counts_file(0);
  if (error == 0) error = write_counts(counts_file.get());
  if (error != 0) print_counts_error(error);
}

}  // namespace

void start_report(const char* program_name, bool totals, bool counts, const char* file, bool file_begun) {
  wanted = {program_name, totals, counts, file};
  stderr_file.keep(STDERR_FILENO);
  if (!counts || !file[0]) return;
  if (const int error = open_counts_file(one_file_a_process() && !file_begun ? O_TRUNC : 0); error != 0)
    print_counts_error(error);
}

void stderr_changed() {
  if (is_active() && !in_borrowed_memory()) stderr_file.keep(STDERR_FILENO);
}

void restart_report() {
  reported = false;
  restart_run_data();
  if (wanted.counts && one_file_a_process()) open_counts_file(O_TRUNC);  // if it fails, it is tried again and told then
}

namespace {

void write_total() {
  Text<320> line;
  line << wanted.program_name << ": " << count_executions() << " SVE instructions executed\n";
  write_line(line.data(), line.size());
}

}  // namespace

void report(ProcessEnd how, int signal) {
  if (!is_active()) return;
  notice_sandbox();
  if (is_sandboxed()) {
    if (reported.exchange(true)) return;
    if (wanted.totals) write_total();
    write_run_data(how, signal);
    return;
  }
  if (in_borrowed_memory() || reported.exchange(true)) return;
  const SignalsBlocked signals;
  if (wanted.totals) write_total();
  if (wanted.counts) report_counts();
  write_run_data(how, signal);
}

void report_again() { reported = false; }

namespace {

// What a program is told that dies by an instruction which neither the processor nor the runner executes.
void explain_illegal(ThreadBlock* block, const void* instruction) {
  std::uint32_t word;
  std::memcpy(&word, instruction, sizeof word);
  const char* const extension = decode::extension_of(word);
  if (!extension) return;
  Text<1024> line;
  (line << "illegal instruction ").hex(word, 8) << " of " << extension << " at ";
  add_place(line, block, reinterpret_cast<std::uintptr_t>(instruction));
  line << ": sve-run executes no " << extension << "; build with -march=armv8-a+sve";
  print_line(line.c_str());
}

}  // namespace

void report_death(ThreadBlock* block, const siginfo_t& info) {
  if (!is_active() || in_borrowed_memory()) return;
  const int sig = info.si_signo;
  const bool is_fault = sig == SIGSEGV || sig == SIGBUS;
  if (is_fault && wanted.totals && !reported) {
    Text<160> line;
    line << "zorvi's SVESigHandler caught signal " << (sig == SIGSEGV ? "SIGSEGV" : "SIGBUS")
         << " from the process being emulated, passing it to the default signal handler.\n";
    write_line(line.data(), line.size());
  }
  if (sig == SIGILL && info.si_code > 0) explain_illegal(block, info.si_addr);
  report(ProcessEnd::signal, sig);
}

void print_line(const char* text) {
  Text<4096 + 256> line;
  line << "sve-run: " << text << "\n";
  write_line(line.data(), line.size());
}

}  // namespace sve::runner
