// Running a piece of a test in a process of its own.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

struct ChildResult {
  int status = -1;  ///< as waitpid has it
  std::string error_output;
  bool exited_with(int code) const { return WIFEXITED(status) && WEXITSTATUS(status) == code; }
  bool killed_by(int sig) const { return signal() == sig; }
  int signal() const { return WIFSIGNALED(status) ? WTERMSIG(status) : 0; }  ///< that ended it, or 0
};

/// Forks and runs `body`, whose stderr is captured. The child ends with status 0 if `body` returns, and leaves no core.
template <class Body>
ChildResult in_child(Body body) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return {};
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    dup2(ends[1], STDERR_FILENO);
    close(ends[0]);
    close(ends[1]);
    body();
    _exit(0);
  }
  close(ends[1]);
  ChildResult result;
  char buffer[512];
  for (ssize_t n; (n = read(ends[0], buffer, sizeof buffer)) > 0;)
    result.error_output.append(buffer, static_cast<size_t>(n));
  close(ends[0]);
  // An emulator that runs this test says in a line of its own how the process ended.
  const size_t emulator = result.error_output.find("qemu: uncaught target signal");
  if (emulator != std::string::npos) result.error_output.resize(emulator);
  waitpid(child, &result.status, 0);
  return result;
}
