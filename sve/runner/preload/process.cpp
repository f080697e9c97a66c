#include "sve/runner/preload/process.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/auxv.h>
#include <sys/prctl.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sve/runner/options.h"
#include "sve/runner/preload/interpose.h"
#include "sve/runner/preload/kernel.h"
#include "sve/runner/preload/signals.h"
#include "sve/runner/preload/thread_block.h"
#include "sve/stats/stats.h"

namespace sve::runner {
namespace {

constexpr unsigned long hwcap_sve = 1ul << 22;

struct process_options {
  bool quiet = false;
  bool announce = true;
  bool counts = false;
  char counts_file[4096] = "";
};

process_options options;
bool active = false;
int process_id = 0;
char program_name[256] = "";
char own_path[4096] = "";
char all_options[4608] = "";
std::atomic<bool> reported{false};
std::atomic<int> kept_stderr{-1};
thread_local signal_bits mask_before_fork __attribute__((tls_model("initial-exec"))) = 0;

void read_options(const char* text) {
  std::snprintf(all_options, sizeof all_options, "%s", text);
  std::string_view rest = all_options;
  while (!rest.empty()) {
    if (rest.starts_with(counts_word)) {
      options.counts = true;
      rest.remove_prefix(counts_word.size());
      if (rest.starts_with('=')) std::snprintf(options.counts_file, sizeof options.counts_file, "%s", rest.data() + 1);
      return;
    }
    const std::string_view word = rest.substr(0, rest.find(':'));
    if (word == quiet_word) options.quiet = true;
    if (word == no_announce_word) options.announce = false;
    rest.remove_prefix(std::min(rest.size(), word.size() + 1));
  }
}

void find_names(const char* argv0) {
  char path[4096];
  const long size = system_call(SYS_readlinkat, AT_FDCWD, address("/proc/self/exe"), address(path), sizeof path - 1);
  path[size > 0 ? size : 0] = 0;
  const char* full = size > 0 ? path : argv0;
  const char* slash = std::strrchr(full, '/');
  const std::string_view base = slash ? slash + 1 : full;
  program_name[base.copy(program_name, sizeof program_name - 1)] = 0;
  Dl_info info;
  if (dladdr(&process_id, &info) && info.dli_fname) std::snprintf(own_path, sizeof own_path, "%s", info.dli_fname);
}

// The processor's features, in the auxiliary vector behind the environment.
unsigned long* hardware_features(char** environment) {
  while (*environment) ++environment;
  struct entry {
    unsigned long type, value;
  };
  static unsigned long none = 0;
  for (auto* e = reinterpret_cast<entry*>(environment + 1); e->type != AT_NULL; ++e) {
    if (e->type == AT_HWCAP) return &e->value;
  }
  return &none;
}

// A %p in the file's name stands for the process id.
void expand_counts_file(char* path, std::size_t size) {
  std::size_t n = 0;
  for (const char* c = options.counts_file; *c && n + 12 < size; ++c) {
    if (c[0] == '%' && c[1] == 'p') {
      n += static_cast<std::size_t>(std::snprintf(path + n, size - n, "%d", process_id));
      ++c;
    } else {
      path[n++] = *c;
    }
  }
  path[n] = 0;
}

// dump_sve_stats writes to stderr, so for a file stderr is that file meanwhile.
void dump_counts(int fd) {
  char path[4096 + 64] = "";
  if (options.counts_file[0]) {
    expand_counts_file(path, sizeof path);
    const long file = system_call(SYS_openat, AT_FDCWD, address(path), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (file < 0) {
      char text[sizeof path + 128];
      const int size = std::snprintf(text, sizeof text, "sve-run: %s: %s; give --counts a file that can be written\n",
                                     path, strerrordesc_np(static_cast<int>(-file)));
      kernel_write(fd, text, static_cast<std::size_t>(size));
      return;
    }
    fd = static_cast<int>(file);
  }
  const long saved = system_call(SYS_fcntl, STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
  if (fd != STDERR_FILENO) system_call(SYS_dup3, fd, STDERR_FILENO, 0);
  dump_sve_stats();
  std::fflush(stderr);
  if (saved >= 0) {
    if (fd != STDERR_FILENO) system_call(SYS_dup3, saved, STDERR_FILENO, 0);
    system_call(SYS_close, saved);
  } else {
    system_call(SYS_close, STDERR_FILENO);
  }
  if (path[0]) system_call(SYS_close, fd);
}

int report_target() {
  if (system_call(SYS_fcntl, STDERR_FILENO, F_GETFD) >= 0) return STDERR_FILENO;
  return kept_stderr.load();
}

void report_at_exit(void*) { report(); }

}  // namespace

bool is_active() { return active; }
bool announces() { return active && options.announce; }
bool in_borrowed_memory() { return kernel_process_id() != process_id; }
const char* library_path() { return own_path; }
const char* options_text() { return all_options; }

void exit_begins() {
  if (!active || kept_stderr >= 0 || in_borrowed_memory()) return;
  const long fd = system_call(SYS_fcntl, STDERR_FILENO, F_DUPFD_CLOEXEC, 100);
  if (fd >= 0) kept_stderr = static_cast<int>(fd);
}

void report() {
  if (!active || in_borrowed_memory() || reported.exchange(true)) return;
  const SignalsBlocked signals;
  const int saved_errno = errno;
  if (const int fd = report_target(); fd >= 0) {
    if (!options.quiet) {
      char text[320];
      const int size =
          std::snprintf(text, sizeof text, "%s: %lu SVE instructions executed\n", program_name, sve_instr_count.load());
      kernel_write(fd, text, static_cast<std::size_t>(size));
    }
    if (options.counts) {
      const std::lock_guard lock(icounts_mutex);  // other threads may still run
      dump_counts(fd);
    }
  }
  errno = saved_errno;
}

void report_death(int sig) {
  if (!active || in_borrowed_memory()) return;
  if (!options.quiet && !reported && sig != SIGILL) {
    char text[160];
    const int size = std::snprintf(text, sizeof text,
                                   "zorvi's SVESigHandler caught signal %s from the process being emulated, passing it "
                                   "to the default signal handler.\n",
                                   sig == SIGSEGV ? "SIGSEGV" : "SIGBUS");
    kernel_write(STDERR_FILENO, text, static_cast<std::size_t>(size));
  }
  report();
}

void before_fork() {
  if (!active) return;
  mask_before_fork = kernel_mask(SIG_SETMASK, ~signal_bits{0});
  icounts_mutex.lock();
  lock_actions();
}

void after_fork_in_parent() {
  if (!active) return;
  unlock_actions();
  icounts_mutex.unlock();
  kernel_mask(SIG_SETMASK, mask_before_fork);
}

void after_fork_in_child() {
  if (!active) return;
  process_id = kernel_process_id();
  reported = false;
  sve_instr_count = 0;
  aarch64_instr_count = 0;
  icounts.clear();
  after_fork_in_parent();
}

namespace {

// After the model's own initialisers, and (the library is linked with -z initfirst) before every other library's.
__attribute__((constructor(2000))) void start(int, char** argv, char** environment) {
  const char* text = "";
  const std::size_t name_size = sizeof options_variable - 1;
  for (char** e = environment; *e; ++e) {
    if (std::strncmp(*e, options_variable, name_size) == 0 && (*e)[name_size] == '=') text = *e + name_size + 1;
  }
  read_options(text);
  process_id = kernel_process_id();
  unsigned long* features = hardware_features(environment);
  active = (*features & hwcap_sve) == 0;
  // Traps are served before anything else is asked of libc, which might ask the program's own malloc for memory.
  if (active) {
    start_thread_blocks();
    start_signals();
  }
  find_real_functions();
  find_names(argv[0] ? argv[0] : "");
  if (!active) return;
  // Programs that read the auxiliary vector themselves find SVE there too.
  if (options.announce) *features |= hwcap_sve;
  pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
  // First registered, last run: other exit handlers and destructors may use SVE too. They belong to no library, so that
  // the end of ours does not run them.
  real.cxa_atexit(report_at_exit, nullptr, nullptr);
  real.__cxa_at_quick_exit(report_at_exit, nullptr);
}

}  // namespace
}  // namespace sve::runner
