// Memory for tests of loads and stores: readable pages between unreadable ones, and actions in child processes.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace test {

inline constexpr std::size_t page = 4096;

/// `pages` readable and writable pages with an unreadable one on each side; shared with child processes.
class guarded_memory {
 public:
  explicit guarded_memory(std::size_t pages = 1) : size_((pages + 2) * page) {
    base_ = static_cast<std::uint8_t*>(mmap(nullptr, size_, PROT_NONE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    if (base_ == MAP_FAILED || mprotect(base_ + page, pages * page, PROT_READ | PROT_WRITE) != 0) {
      ADD_FAILURE() << "no memory for the test";
      std::abort();
    }
  }
  ~guarded_memory() { munmap(base_, size_); }
  guarded_memory(const guarded_memory&) = delete;
  guarded_memory& operator=(const guarded_memory&) = delete;

  std::uint8_t* begin() const { return base_ + page; }
  std::uint8_t* end() const { return base_ + size_ - page; }
  std::uint64_t address(std::ptrdiff_t from_begin = 0) const {
    return reinterpret_cast<std::uint64_t>(begin()) + static_cast<std::uint64_t>(from_begin);
  }
  std::uint64_t end_address(std::ptrdiff_t before = 0) const {
    return reinterpret_cast<std::uint64_t>(end()) - static_cast<std::uint64_t>(before);
  }
  void fill_counting() const {
    for (std::uint8_t* p = begin(); p < end(); ++p) *p = static_cast<std::uint8_t>((p - begin()) * 7 + 3);
  }

 private:
  std::uint8_t* base_;
  std::size_t size_;
};

struct child_result {
  int signal;  ///< that ended it, or 0
  int status;  ///< exit status, if it exited
  std::string stderr_text;
};

/// Runs `action` in a child process and tells how it ended.
template <class Action>
child_result in_child(Action action) {
  int fds[2];
  if (pipe(fds) != 0) std::abort();
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    dup2(fds[1], 2);
    close(fds[0]);
    action();
    _exit(0);
  }
  close(fds[1]);
  child_result result{0, 0, ""};
  char buffer[512];
  for (ssize_t n; (n = read(fds[0], buffer, sizeof buffer)) > 0;)
    result.stderr_text.append(buffer, static_cast<std::size_t>(n));
  close(fds[0]);
  // An emulator that runs this test says in a line of its own how the process ended.
  const std::size_t emulator = result.stderr_text.find("qemu: uncaught target signal");
  if (emulator != std::string::npos) result.stderr_text.resize(emulator);
  int status = 0;
  waitpid(pid, &status, 0);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
  return result;
}

}  // namespace test
