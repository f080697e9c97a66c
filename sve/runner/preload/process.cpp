#include "sve/runner/preload/process.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/auxv.h>
#include <sys/prctl.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "sve/fault/fault_capture.h"
#include "sve/report/text.h"
#include "sve/runner/options.h"
#include "sve/runner/preload/copies.h"
#include "sve/runner/preload/early.h"
#include "sve/runner/preload/emulate.h"
#include "sve/runner/preload/frame.h"
#include "sve/runner/preload/interpose.h"
#include "sve/runner/preload/kernel.h"
#include "sve/runner/preload/report.h"
#include "sve/runner/preload/run_data.h"
#include "sve/runner/preload/signals.h"
#include "sve/runner/preload/thread_block.h"
#include "sve/runner/sites/interruption.h"
#include "sve/runner/sites/site.h"

namespace sve::runner {
namespace {

struct ProcessOptions {
  bool quiet = false;
  bool announce = true;
  bool patch = true;
  Translation how = Translation::native;
  bool trace = false;
  bool counts = false;
  bool counts_begun = false;  ///< this process, before an exec, has begun its file
  char counts_file[4096] = "";
  bool lane_use = false;
  bool time = false;
  char report_directory[4096] = "";  ///< empty if there is no report
};

ProcessOptions options;
bool active = false;
char program_name[256] = "";
char own_path[4096] = "";
char all_options[4608] = "";
char* environment_options = nullptr;  // the same text where the environment has it
thread_local SignalBits mask_before_fork __attribute__((tls_model("initial-exec"))) = 0;

// As much of `text` as there is room for; returns the end.
template <std::size_t Size>
char* copy(char (&to)[Size], std::string_view text) {
  return to + text.copy(to, Size - 1);
}

// libc's own need its locale, which is not there yet.
unsigned long number(std::string_view digits) {
  unsigned long value = 0;
  for (const char c : digits) value = value * 10 + static_cast<unsigned long>(c - '0');
  return value;
}

void read_options() {
  const auto process_id = static_cast<unsigned long>(kernel_process_id());
  std::string_view rest = all_options;
  while (!rest.empty()) {
    if (rest.starts_with(counts_word)) {
      options.counts = true;
      rest.remove_prefix(counts_word.size());
      if (rest.starts_with('=')) *copy(options.counts_file, rest.substr(1)) = 0;
      return;
    }
    const std::string_view word = rest.substr(0, rest.find(':'));
    if (word == quiet_word) options.quiet = true;
    if (word == no_announce_word) options.announce = false;
    if (word == no_patch_word) options.patch = false;
    if (word == handlers_word) options.how = Translation::handlers;
    if (word == trace_word) options.trace = true;
    if (word == lane_use_word) options.lane_use = true;
    if (word == time_word) options.time = true;
    if (word.starts_with(report_word)) *copy(options.report_directory, word.substr(report_word.size())) = 0;
    if (word.starts_with(begun_word)) options.counts_begun = number(word.substr(begun_word.size())) == process_id;
    rest.remove_prefix(std::min(rest.size(), word.size() + 1));
  }
}

// Leaves word for a program that this process becomes: its file of counts has been begun.
void mark_counts_begun() {
  Text<16> id;
  id.number(static_cast<unsigned>(kernel_process_id()), 10, begun_width);
  for (char* text : {all_options, environment_options}) {
    char* const at = text ? std::strstr(text, begun_word.data()) : nullptr;
    if (at) std::memcpy(at + begun_word.size(), id.data(), begun_width);
  }
}

char program_path[4096];

void find_names(const char* argv0) {
  const long size =
      system_call(SYS_readlinkat, AT_FDCWD, address("/proc/self/exe"), address(program_path), sizeof program_path - 1);
  program_path[size > 0 ? size : 0] = 0;
  const char* full = size > 0 ? program_path : argv0;
  const char* slash = std::strrchr(full, '/');
  *copy(program_name, slash ? slash + 1 : full) = 0;
  Dl_info info;
  if (dladdr(&options, &info) && info.dli_fname) *copy(own_path, info.dli_fname) = 0;
}

void report_at_exit(void*) { report(ProcessEnd::exit); }

}  // namespace

bool is_active() { return active; }

namespace {
std::atomic<bool> sandboxed{false};
long filter_at_start = 0;

// How system calls are filtered, or an error.
long filter_of_calls() { return system_call(SYS_prctl, PR_GET_SECCOMP); }
}  // namespace
bool is_sandboxed() { return sandboxed.load(std::memory_order_relaxed); }
void sandbox_begins() {
  if (!active || in_borrowed_memory()) return;
  need_thread_block();
  sandboxed = true;
}
void notice_sandbox() {
  if (active && !is_sandboxed() && filter_of_calls() != filter_at_start) sandboxed = true;
}
bool announces() { return active && options.announce; }
const char* library_path() { return own_path; }
const char* options_text() { return all_options; }

void before_fork() {
  if (!active) return;
  mask_before_fork = kernel_mask(SIG_SETMASK, ~SignalBits{0});
  lock_sites();
  lock_actions();
}

void after_fork_in_parent() {
  if (!active) return;
  unlock_actions();
  unlock_sites();
  kernel_mask(SIG_SETMASK, mask_before_fork);
}

namespace {

void begin_copy(bool has_counted) {
  begin_process();
  keep_own_thread_block();
  forget_pending();
  sites_after_fork_in_child(has_counted);
  restart_report();
  mark_counts_begun();
  after_fork_in_parent();
}

}  // namespace

void after_fork_in_child() {
  if (active) begin_copy(false);
}

namespace {

// A copy made by a system call of the program's own: other threads may have held our locks, which are not in it.
void adopt_copy() {
  SleepingLock::holders_are_gone = true;
  before_fork();
  SleepingLock::holders_are_gone = false;
  actions_are_whole();
  begin_copy(copies_are_wiped());
}

// The signals that the parent ignored, where it could not tell the kernel.
SignalBits take_ignored(char** environment) {
  SignalBits ignored = 0;
  for (char** e = environment; *e; ++e) {
    if (std::strncmp(*e, ignored_variable, sizeof ignored_variable - 1) != 0) continue;
    char* digit = *e + sizeof ignored_variable;
    ignored = number(digit);
    *digit = 0;
  }
  return ignored;
}

unsigned long* features = nullptr;  // of the processor, in the auxiliary vector

}  // namespace

void serve_traps(char** environment) {
  if (features) return;
  const std::size_t name_size = sizeof options_variable - 1;
  for (char** e = environment; *e; ++e) {
    if (std::strncmp(*e, options_variable, name_size) == 0 && (*e)[name_size] == '=') {
      environment_options = *e + name_size + 1;
      *copy(all_options, environment_options) = 0;
    }
  }
  begin_process();
  read_options();
  features = auxiliary_value(AT_HWCAP);
  // A new program has no handlers: who has one for SIGILL as early as this is another copy of this library, which
  // serves the process alone.
  KernelAction inherited;
  kernel_sigaction(SIGILL, nullptr, &inherited);
  const bool is_served = inherited.handler > reinterpret_cast<std::uintptr_t>(SIG_IGN);
  active = (*features & hwcap_sve) == 0 && !is_served;
  if (!active) return;
  filter_at_start = filter_of_calls();
  if (options.report_directory[0]) note_for_report(options.lane_use, options.time);
  start_thread_blocks();
  const SignalBits ignored = take_ignored(environment);
  if (this_thread_block) this_thread_block->inherits_length = (ignored & length_is_inherited) != 0;
  start_signals({interrupt_run, serve_trap, recover_guarded_fault, report_death,
                 !options.quiet || options.counts || options.report_directory[0]},
                ignored);
  when_copied(adopt_copy);
}

namespace {

// After the model's own initialisers.
__attribute__((constructor(2000))) void start(int, char** argv, char** environment) {
  // Traps are served before anything else is asked of libc, which might ask the program's own malloc for memory.
  serve_traps(environment);
  find_real_functions();
  find_names(argv[0] ? argv[0] : "");
  if (!active) return;
  start_report(program_name, !options.quiet, options.counts, options.counts_file, options.counts_begun);
  if (options.report_directory[0]) start_run_data(options.report_directory, program_path, options.lane_use);
  mark_counts_begun();
  start_sites(options.patch, options.how, options.trace);
  // Programs that read the auxiliary vector themselves find SVE there too.
  if (options.announce) *features |= hwcap_sve;
  if (unsigned long* room = auxiliary_value(AT_MINSIGSTKSZ)) *room = std::max(*room, least_signal_stack);
  pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
  // First registered, last run: other exit handlers and destructors may use SVE too. They belong to no library, so that
  // the end of ours does not run them.
  real.cxa_atexit(report_at_exit, nullptr, nullptr);
  real.__cxa_at_quick_exit(report_at_exit, nullptr);
}

}  // namespace
}  // namespace sve::runner
