// Running a piece of a test in a process of its own.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

struct child_result {
  int status = -1;  ///< as waitpid has it
  std::string error_output;
  bool exited_with(int code) const { return WIFEXITED(status) && WEXITSTATUS(status) == code; }
  bool killed_by(int sig) const { return WIFSIGNALED(status) && WTERMSIG(status) == sig; }
};

/// Forks and runs `body`, whose stderr is captured. The child ends with status 0 if `body` returns.
template <class Body>
child_result in_child(Body body) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return {};
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[1], STDERR_FILENO);
    close(ends[0]);
    close(ends[1]);
    body();
    _exit(0);
  }
  close(ends[1]);
  child_result result;
  char buffer[512];
  for (ssize_t n; (n = read(ends[0], buffer, sizeof buffer)) > 0;)
    result.error_output.append(buffer, static_cast<size_t>(n));
  close(ends[0]);
  waitpid(child, &result.status, 0);
  return result;
}
