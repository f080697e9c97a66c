// Process and thread functions as the program sees them: start, end, new programs, new threads, and questions about
// SVE.
#include <alloca.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/seccomp.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "sve/report/text.h"
#include "sve/runner/options.h"
#include "sve/runner/preload/copies.h"
#include "sve/runner/preload/early.h"
#include "sve/runner/preload/frame.h"
#include "sve/runner/preload/interpose.h"
#include "sve/runner/preload/kernel.h"
#include "sve/runner/preload/process.h"
#include "sve/runner/preload/report.h"
#include "sve/runner/preload/signals.h"
#include "sve/runner/preload/thread_block.h"
#include "sve/state/vector_length.h"

namespace sve::runner {

RealFunctions real;

void find_real_functions() {
#define SVE_FIND(name) real.name = reinterpret_cast<decltype(&::name)>(dlsym(RTLD_NEXT, #name));
  SVE_INTERPOSED(SVE_FIND)
#undef SVE_FIND
  real.sigaction = reinterpret_cast<decltype(real.sigaction)>(dlsym(RTLD_NEXT, "sigaction"));
  real.sigaltstack = reinterpret_cast<decltype(real.sigaltstack)>(dlsym(RTLD_NEXT, "sigaltstack"));
  real.cxa_atexit = reinterpret_cast<decltype(real.cxa_atexit)>(dlsym(RTLD_NEXT, "__cxa_atexit"));
  real.strerrordesc_np = reinterpret_cast<decltype(real.strerrordesc_np)>(dlsym(RTLD_NEXT, "strerrordesc_np"));
}

}  // namespace sve::runner

#pragma GCC visibility push(default)

namespace {

using namespace sve::runner;

[[noreturn]] void end_process(int status) {
  if (!is_active()) next<void(int)>("_exit")(status);
  report(ProcessEnd::exit);
  for (;;) system_call(SYS_exit_group, status);
}

// Tells libc's functions that ours have begun before our start has run.
void need_real_functions() {
  if (!real.getauxval) find_real_functions();
}

// Puts the parts one behind the other and a 0 behind the last; returns the place of the 0.
char* join(char* to, std::initializer_list<std::string_view> parts) {
  for (const std::string_view part : parts) to += part.copy(to, part.size());
  *to = 0;
  return to;
}

bool is_variable(const char* entry, const char* name) {
  const std::size_t size = std::strlen(name);
  return std::strncmp(entry, name, size) == 0 && entry[size] == '=';
}

// Whether a new program would find the library. Not so when the root directory has been changed: there it runs without
// emulation, and that is said.
bool library_is_reachable() {
  static std::atomic<bool> said{false};
  if (system_call(SYS_faccessat, AT_FDCWD, address(library_path()), R_OK) == 0) return true;
  if (!said.exchange(true)) {
    Text<4096 + 160> line;
    line << library_path() << ": not to be reached any more; what is started from here runs without emulation";
    print_line(line.c_str());
  }
  return false;
}

bool inherits_length() {
  const ThreadBlock* block = need_thread_block();
  return block && block->inherits_length;
}

// What a new program needs in its environment to be emulated too. A program may give one that lacks it; one that has
// the library has the options too, or goes without them by intent.
struct NeededEnvironment {
  int preload_at = -1;
  int options_at = -1;
  int ignored_at = -1;
  int count = 0;
  bool has_library = false;
  bool is_reachable = true;
  SignalBits ignored;

  NeededEnvironment(char* const* environment, SignalBits ignored_signals)
      : ignored(ignored_signals | (inherits_length() ? length_is_inherited : 0)) {
    for (; environment && environment[count]; ++count) {
      if (is_variable(environment[count], preload_variable)) preload_at = count;
      if (is_variable(environment[count], options_variable)) options_at = count;
      if (is_variable(environment[count], ignored_variable)) ignored_at = count;
    }
    has_library = preload_at >= 0 && std::strstr(environment[preload_at], library_prefix) != nullptr;  // of any build
    is_reachable = !is_active() || library_is_reachable();
  }
  bool is_complete() const { return is_reachable && has_library && ignored == 0 && ignored_at < 0; }
  std::size_t text_size(char* const* environment) const {
    const std::size_t theirs = preload_at >= 0 ? std::strlen(environment[preload_at]) : 0;
    return sizeof preload_variable + std::strlen(library_path()) + theirs + sizeof options_variable +
           std::strlen(options_text()) + sizeof ignored_variable + 20 + 8;
  }
  // `entries` has room for count + 4, `text` for text_size().
  void fill(char* const* environment, char** entries, char* text) const {
    int n = 0;
    const bool adds_library = is_reachable && !has_library;
    for (int i = 0; i < count; ++i) {
      if (i == ignored_at || (adds_library && (i == preload_at || i == options_at))) continue;
      char* entry = environment[i];
      if (char* const ours = i == preload_at && !is_reachable ? std::strstr(entry, library_path()) : nullptr) {
        // The loader would complain of it.
        const char* behind = ours + std::strlen(library_path());
        const std::string_view before(entry, static_cast<std::size_t>(ours - entry));
        entry = text;
        text = join(text, {before, *behind == ':' ? behind + 1 : behind}) + 1;
      }
      entries[n++] = entry;
    }
    if (adds_library) {
      const char* theirs = preload_at >= 0 ? environment[preload_at] + sizeof preload_variable : "";
      entries[n++] = text;
      text = join(text, {preload_variable, "=", library_path(), *theirs ? ":" : "", theirs}) + 1;
      if (options_at >= 0) {
        entries[n++] = environment[options_at];
      } else if (options_text()[0]) {
        entries[n++] = text;
        text = join(text, {options_variable, "=", options_text()}) + 1;
      }
    }
    if (ignored != 0) {
      entries[n++] = text;
      join(text, {ignored_variable, "=", (Text<20>() << ignored).c_str()});
    }
    entries[n] = nullptr;
  }
};

// Calls `function` with an environment that has what is needed. On the stack: the caller may be a vforked child.
template <class Function>
int with_environment(char* const* environment, SignalBits ignored, Function function) {
  const NeededEnvironment needed(environment, ignored);
  if (!is_active() || needed.is_complete()) return function(environment);
  auto** entries = static_cast<char**>(alloca(sizeof(char*) * (static_cast<std::size_t>(needed.count) + 4)));
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
  if (likely) report(ProcessEnd::exec);
  const SignalBits ignored = actions_before_exec();
  const int status = with_environment(environment, ignored, function);
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

// The child finds ours as the kernel's actions and an unblocked mask, and would inherit neither what the program
// ignores nor what it blocks.
int spawn(decltype(&::posix_spawn) function, pid_t* pid, const char* path, const posix_spawn_file_actions_t* files,
          const posix_spawnattr_t* attributes, char* const arguments[], char* const environment[]) {
  posix_spawnattr_t own{};
  if (attributes) own = *attributes;
  if (const SignalBits blocked = blocked_signals(); blocked != 0 && !(own.__flags & POSIX_SPAWN_SETSIGMASK)) {
    own.__flags |= POSIX_SPAWN_SETSIGMASK;
    own.__ss = to_set(kernel_mask(SIG_BLOCK, 0) | blocked);
  }
  SignalBits ignored = ignored_signals();
  if (own.__flags & POSIX_SPAWN_SETSIGDEF) ignored &= ~to_bits(own.__sd);
  return with_environment(environment, ignored, [&](char* const* e) {
    return function(pid, path, files, own.__flags ? &own : attributes, arguments, e);
  });
}

// Calls `function` with a command for the shell that puts what is needed into its environment first.
template <class Function>
auto with_command(const char* command, Function function) {
  const NeededEnvironment needed(environ, ignored_signals());
  if (!command || !is_active() || needed.is_complete()) return function(command);
  auto** entries = static_cast<char**>(alloca(sizeof(char*) * (static_cast<std::size_t>(needed.count) + 4)));
  auto* text = static_cast<char*>(alloca(needed.text_size(environ)));
  needed.fill(environ, entries, text);
  std::size_t size = std::strlen(command) + 1;
  for (char** e = entries; *e; ++e) size += std::strlen(*e) + sizeof "export ''; ";
  auto* whole = static_cast<char*>(alloca(size));
  char* at = whole;
  for (char** e = entries; *e; ++e) {
    const bool is_ours =
        is_variable(*e, preload_variable) || is_variable(*e, options_variable) || is_variable(*e, ignored_variable);
    if (is_ours && !std::strchr(*e, '\'')) at = join(at, {"export '", *e, "'; "});
  }
  join(at, {command});
  return function(whole);
}

int vector_length() { return static_cast<int>(sve::vector_bytes | (inherits_length() ? PR_SVE_VL_INHERIT : 0)); }

int request_vector_length(unsigned long argument) {
  constexpr unsigned long shortest = 16, longest = 8192;  // that the kernel knows
  const unsigned long length = argument & PR_SVE_VL_LEN_MASK;
  const unsigned long flags = argument & ~static_cast<unsigned long>(PR_SVE_VL_LEN_MASK);
  const bool known_flags = (flags & ~static_cast<unsigned long>(PR_SVE_VL_INHERIT | PR_SVE_SET_VL_ONEXEC)) == 0;
  // The kernel answers with the greatest length that is not above the request, or the least of all. There is one here.
  if (!known_flags || length % 16 != 0 || length < shortest || length > longest) {
    errno = EINVAL;
    return -1;
  }
  if (ThreadBlock* block = need_thread_block()) block->inherits_length = (flags & PR_SVE_VL_INHERIT) != 0;
  return vector_length();
}

}  // namespace

extern "C" {

// What a failed system call comes to.
__attribute__((visibility("hidden"))) long sve_fail(long result) {
  errno = static_cast<int>(-result);
  return -1;
}

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
  return spawn(real.posix_spawn, pid, path, files, attributes, arguments, environment);
}
int posix_spawnp(pid_t* pid, const char* file, const posix_spawn_file_actions_t* files,
                 const posix_spawnattr_t* attributes, char* const arguments[], char* const environment[]) {
  return spawn(real.posix_spawnp, pid, file, files, attributes, arguments, environment);
}

// libc starts the shell with the program's environment as it is.
int system(const char* command) {
  return with_command(command, [](const char* c) { return real.system(c); });
}
FILE* popen(const char* command, const char* mode) {
  return with_command(command, [mode](const char* c) { return real.popen(c, mode); });
}

// A descriptor that is put in the place of stderr is the new stderr. What a program opens there after it has closed
// descriptor 2 is a file of its own.
int dup3(int from, int to, int flags) noexcept {
  if (!is_active()) return next<int(int, int, int)>("dup3")(from, to, flags);
  const long result = system_call(SYS_dup3, from, to, flags);
  if (result == STDERR_FILENO) stderr_changed();
  return static_cast<int>(result < 0 ? sve_fail(result) : result);
}
int dup2(int from, int to) noexcept {
  if (from != to) return dup3(from, to, 0);
  const long flags = system_call(SYS_fcntl, from, F_GETFL);
  if (flags >= 0) return to;
  errno = static_cast<int>(-flags);
  return -1;
}

// A fork that runs no fork handlers, so ours are called here.
pid_t _Fork() noexcept {
  if (!is_active()) return next<pid_t()>("_Fork")();
  before_fork();
  const long child = system_call(SYS_clone, SIGCHLD);
  if (child == 0) {
    after_fork_in_child();
  } else {
    after_fork_in_parent();
  }
  return static_cast<pid_t>(child < 0 ? sve_fail(child) : child);
}

// A copy of the process that begins in a function, on a stack of its own.
int clone(int (*function)(void*), void* stack, int flags, void* argument, ...) noexcept {
  va_list list;
  va_start(list, argument);
  auto* const parent_id = va_arg(list, pid_t*);
  void* const thread_pointer = va_arg(list, void*);
  auto* const child_id = va_arg(list, pid_t*);
  va_end(list);
  const auto real_clone = real.clone ? real.clone : next<decltype(::clone)>("clone");
  if (!is_active() || (flags & CLONE_VM) || !function || !stack)
    return real_clone(function, stack, flags, argument, parent_id, thread_pointer, child_id);
  struct Call {
    int (*function)(void*);
    void* argument;
  } in_child{function, argument};
  before_fork();
  const int child = real_clone(
      [](void* raw) -> int {
        after_fork_in_child();
        const auto* own = static_cast<const Call*>(raw);
        end_process(own->function(own->argument));
      },
      stack, flags, &in_child, parent_id, thread_pointer, child_id);
  after_fork_in_parent();
  return child;
}

// The kernel's figure for the largest signal frame is that of a processor without SVE.
long sysconf(int name) noexcept {
  if (!real.sysconf && name == _SC_PAGESIZE) return static_cast<long>(*auxiliary_value(AT_PAGESZ));
  need_real_functions();
  const long value = real.sysconf(name);
  if (!is_active()) return value;
  const auto least = static_cast<long>(least_signal_stack);
  if (name == _SC_MINSIGSTKSZ) return std::max(value, least);
  if (name == _SC_SIGSTKSZ) return std::max(value, 4 * least);
  return value;
}

unsigned long getauxval(unsigned long type) noexcept {
  const unsigned long* early = real.getauxval ? nullptr : auxiliary_value(type);
  const unsigned long value = real.getauxval ? real.getauxval(type) : early ? *early : 0;
  if (type == AT_MINSIGSTKSZ && is_active()) return std::max<unsigned long>(value, least_signal_stack);
  return type == AT_HWCAP && announces() ? value | hwcap_sve : value;
}

int prctl(int option, ...) noexcept {
  va_list list;
  va_start(list, option);
  unsigned long a[4];
  for (unsigned long& argument : a) argument = va_arg(list, unsigned long);
  va_end(list);
  need_real_functions();
  if (announces() && option == PR_SVE_GET_VL) return vector_length();
  if (announces() && option == PR_SVE_SET_VL) return request_vector_length(a[0]);
  // Before a program filters its system calls it gives up what new programs could gain, unless it is root's, and then
  // it may load its filter by a raw system call.
  if (option == PR_SET_SECCOMP || option == PR_SET_NO_NEW_PRIVS) sandbox_begins();
  return real.prctl(option, a[0], a[1], a[2], a[3]);
}

// By syscall(): libc has no function of this name.
__attribute__((visibility("hidden"))) long sve_seccomp(unsigned operation, unsigned flags, void* arguments) {
  if (operation == SECCOMP_SET_MODE_STRICT || operation == SECCOMP_SET_MODE_FILTER) sandbox_begins();
  const long result = system_call(SYS_seccomp, operation, flags, address(arguments));
  return result < 0 ? sve_fail(result) : result;
}

}  // extern "C"
#pragma GCC visibility pop
