// Process and thread functions as the program sees them: start, end, new programs, new threads, and questions about
// SVE.
#include <alloca.h>
#include <dlfcn.h>
#include <fcntl.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "sve/runner/options.h"
#include "sve/runner/preload/interpose.h"
#include "sve/runner/preload/kernel.h"
#include "sve/runner/preload/process.h"
#include "sve/runner/preload/report.h"
#include "sve/runner/preload/signals.h"
#include "sve/state/vector_length.h"

namespace sve::runner {

real_functions real;

void find_real_functions() {
#define SVE_FIND(name) real.name = reinterpret_cast<decltype(&::name)>(dlsym(RTLD_NEXT, #name));
  SVE_INTERPOSED(SVE_FIND)
#undef SVE_FIND
  real.cxa_atexit = reinterpret_cast<decltype(real.cxa_atexit)>(dlsym(RTLD_NEXT, "__cxa_atexit"));
  real.strerrordesc_np = reinterpret_cast<decltype(real.strerrordesc_np)>(dlsym(RTLD_NEXT, "strerrordesc_np"));
}

}  // namespace sve::runner

#pragma GCC visibility push(default)

namespace {

using namespace sve::runner;

[[noreturn]] void end_process(int status) {
  report();
  for (;;) system_call(SYS_exit_group, status);
}

// Tells libc's functions that ours have begun before our start has run.
void need_real_functions() {
  if (!real.getauxval) find_real_functions();
}

bool is_variable(const char* entry, const char* name) {
  const std::size_t size = std::strlen(name);
  return std::strncmp(entry, name, size) == 0 && entry[size] == '=';
}

// What a new program needs in its environment to be emulated too. A program may give one that lacks it; one that has
// the library has the options too, or goes without them by intent.
struct needed_environment {
  int preload_at = -1;
  int options_at = -1;
  int count = 0;
  bool complete = false;

  explicit needed_environment(char* const* environment) {
    for (; environment && environment[count]; ++count) {
      if (is_variable(environment[count], preload_variable)) preload_at = count;
      if (is_variable(environment[count], options_variable)) options_at = count;
    }
    complete = preload_at >= 0 && std::strstr(environment[preload_at], library_name) != nullptr;  // of any build
  }
  std::size_t text_size(char* const* environment) const {
    const std::size_t theirs = preload_at >= 0 ? std::strlen(environment[preload_at]) : 0;
    return sizeof preload_variable + std::strlen(library_path()) + theirs + sizeof options_variable +
           std::strlen(options_text()) + 8;
  }
  // `entries` has room for count + 3, `text` for text_size().
  void fill(char* const* environment, char** entries, char* text) const {
    int n = 0;
    for (int i = 0; i < count; ++i) {
      if (i != preload_at && i != options_at) entries[n++] = environment[i];
    }
    const char* theirs = preload_at >= 0 ? environment[preload_at] + sizeof preload_variable : "";
    entries[n++] = text;
    text += std::sprintf(text, "%s=%s%s%s", preload_variable, library_path(), *theirs ? ":" : "", theirs) + 1;
    if (options_at >= 0) {
      entries[n++] = environment[options_at];
    } else if (options_text()[0]) {
      entries[n++] = text;
      std::sprintf(text, "%s=%s", options_variable, options_text());
    }
    entries[n] = nullptr;
  }
};

// Calls `function` with an environment that has what is needed. On the stack: the caller may be a vforked child.
template <class Function>
int with_environment(char* const* environment, Function function) {
  const needed_environment needed(environment);
  if (!is_active() || needed.complete) return function(environment);
  auto** entries = static_cast<char**>(alloca(sizeof(char*) * (static_cast<std::size_t>(needed.count) + 3)));
  auto* text = static_cast<char*>(alloca(needed.text_size(environment)));
  needed.fill(environment, entries, text);
  return function(entries);
}

bool is_executable(const char* path) { return system_call(SYS_faccessat, AT_FDCWD, address(path), X_OK) == 0; }

// Whether a program of this name is found as execvp finds one.
bool is_found(const char* file) {
  if (std::strchr(file, '/')) return is_executable(file);
  const char* const path = getenv("PATH");
  for (std::string_view rest = path ? path : "/bin:/usr/bin";;) {
    const std::string_view directory = rest.substr(0, rest.find(':'));
    Text<4096> candidate;
    if (is_executable((candidate << (directory.empty() ? "." : directory) << "/" << file).c_str())) return true;
    if (directory.size() == rest.size()) return false;
    rest.remove_prefix(directory.size() + 1);
  }
}

// `likely`: the program can be started as far as one can see. This one then ends here and reports.
template <class Function>
int replace_program(bool likely, char* const* environment, Function function) {
  if (!is_active()) return function(environment);
  if (likely) report();
  actions_before_exec();
  const int status = with_environment(environment, function);
  const int error = errno;
  actions_after_failed_exec();
  if (likely) report_again();
  errno = error;
  return status;
}

// The arguments of the execl family, as an array on the caller's stack.
#define COLLECT_ARGUMENTS(first, list)                                                  \
  va_list list;                                                                         \
  va_start(list, first);                                                                \
  std::size_t argument_count = 1;                                                       \
  while (va_arg(list, const char*)) ++argument_count;                                   \
  va_end(list);                                                                         \
  auto** arguments = static_cast<char**>(alloca(sizeof(char*) * (argument_count + 1))); \
  arguments[0] = const_cast<char*>(first);                                              \
  va_start(list, first);                                                                \
  for (std::size_t i = 1; i <= argument_count; ++i) arguments[i] = va_arg(list, char*);

struct thread_start {
  void* (*function)(void*);
  void* argument;
};

void* start_with_sigill_blocked(void* record) {
  const thread_start start = *static_cast<thread_start*>(record);
  std::free(record);
  set_sigill_blocked(true);
  return start.function(start.argument);
}

constexpr unsigned long hwcap_sve = 1ul << 22;

int vector_length_request(unsigned long argument) {
  const unsigned long length = argument & PR_SVE_VL_LEN_MASK;
  const unsigned long flags = argument & ~static_cast<unsigned long>(PR_SVE_VL_LEN_MASK);
  const bool known_flags = (flags & ~static_cast<unsigned long>(PR_SVE_VL_INHERIT | PR_SVE_SET_VL_ONEXEC)) == 0;
  // The kernel answers with the greatest length that is not above the request. There is one length here.
  if (!known_flags || length % 16 != 0 || length < sve::vector_bytes) {
    errno = EINVAL;
    return -1;
  }
  return static_cast<int>(sve::vector_bytes);
}

}  // namespace

extern "C" {

void _exit(int status) { end_process(status); }
void _Exit(int status) noexcept { end_process(status); }

int execve(const char* path, char* const arguments[], char* const environment[]) noexcept {
  return replace_program(is_executable(path), environment,
                         [&](char* const* e) { return real.execve(path, arguments, e); });
}
int execv(const char* path, char* const arguments[]) noexcept { return execve(path, arguments, environ); }
int execvpe(const char* file, char* const arguments[], char* const environment[]) noexcept {
  return replace_program(is_found(file), environment, [&](char* const* e) { return real.execvpe(file, arguments, e); });
}
int execvp(const char* file, char* const arguments[]) noexcept { return execvpe(file, arguments, environ); }
int fexecve(int fd, char* const arguments[], char* const environment[]) noexcept {
  return replace_program(true, environment, [&](char* const* e) { return real.fexecve(fd, arguments, e); });
}
int execveat(int directory, const char* path, char* const arguments[], char* const environment[], int flags) noexcept {
  return replace_program(true, environment,
                         [&](char* const* e) { return real.execveat(directory, path, arguments, e, flags); });
}
int execl(const char* path, const char* first, ...) noexcept {
  COLLECT_ARGUMENTS(first, list)
  va_end(list);
  return execve(path, arguments, environ);
}
int execlp(const char* file, const char* first, ...) noexcept {
  COLLECT_ARGUMENTS(first, list)
  va_end(list);
  return execvpe(file, arguments, environ);
}
int execle(const char* path, const char* first, ...) noexcept {
  COLLECT_ARGUMENTS(first, list)
  char* const* environment = va_arg(list, char* const*);
  va_end(list);
  return execve(path, arguments, environment);
}

int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* files,
                const posix_spawnattr_t* attributes, char* const arguments[], char* const environment[]) {
  return with_environment(environment,
                          [&](char* const* e) { return real.posix_spawn(pid, path, files, attributes, arguments, e); });
}
int posix_spawnp(pid_t* pid, const char* file, const posix_spawn_file_actions_t* files,
                 const posix_spawnattr_t* attributes, char* const arguments[], char* const environment[]) {
  return with_environment(
      environment, [&](char* const* e) { return real.posix_spawnp(pid, file, files, attributes, arguments, e); });
}

// A descriptor that is put in the place of stderr is the new stderr. What a program opens there after it has closed
// descriptor 2 is a file of its own.
int dup3(int from, int to, int flags) noexcept {
  const long result = system_call(SYS_dup3, from, to, flags);
  if (result == STDERR_FILENO) stderr_changed();
  if (result >= 0) return static_cast<int>(result);
  errno = static_cast<int>(-result);
  return -1;
}
int dup2(int from, int to) noexcept {
  if (from != to) return dup3(from, to, 0);
  return fcntl(from, F_GETFL) < 0 ? -1 : to;
}

// A fork that runs no fork handlers, so ours are called here.
pid_t _Fork() noexcept {
  before_fork();
  const long child = system_call(SYS_clone, SIGCHLD);
  if (child == 0) {
    after_fork_in_child();
  } else {
    after_fork_in_parent();
  }
  if (child >= 0) return static_cast<pid_t>(child);
  errno = static_cast<int>(-child);
  return -1;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*function)(void*),
                   void* argument) noexcept {
  // The kernel's mask is inherited; SIGILL, which is not in it, is handed over.
  if (!sigill_blocked()) return real.pthread_create(thread, attributes, function, argument);
  auto* start = static_cast<thread_start*>(std::malloc(sizeof(thread_start)));
  if (!start) return EAGAIN;
  *start = {function, argument};
  const int error = real.pthread_create(thread, attributes, start_with_sigill_blocked, start);
  if (error != 0) std::free(start);
  return error;
}

unsigned long getauxval(unsigned long type) noexcept {
  need_real_functions();
  const unsigned long value = real.getauxval(type);
  return type == AT_HWCAP && announces() ? value | hwcap_sve : value;
}

int prctl(int option, ...) noexcept {
  va_list list;
  va_start(list, option);
  unsigned long a[4];
  for (unsigned long& argument : a) argument = va_arg(list, unsigned long);
  va_end(list);
  if (announces() && option == PR_SVE_GET_VL) return static_cast<int>(sve::vector_bytes);
  if (announces() && option == PR_SVE_SET_VL) return vector_length_request(a[0]);
  return real.prctl(option, a[0], a[1], a[2], a[3]);
}

}  // extern "C"
#pragma GCC visibility pop
