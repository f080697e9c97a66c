#include "sve/runner/launcher/reporting.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace sve::runner {
namespace {

Finding failure(std::string text) {
  Finding f;
  f.status = status_failed;
  f.error = std::move(text);
  return f;
}

// The processes' own directory lies in one that is the user's alone. Every process of the tree may write there by the
// descriptor that it has, whatever user it has become.
std::string make_directory() {
  const char* const wished = std::getenv("TMPDIR");
  std::string path = wished && *wished && !std::strchr(wished, ':') ? wished : "/tmp";
  path += "/sve-run-XXXXXX";
  if (!mkdtemp(path.data())) return "";
  path += "/data";
  if (mkdir(path.c_str(), 0777) != 0 || chmod(path.c_str(), 0777) != 0) return "";
  return path;
}

struct sigaction action_of(int sig, void (*handler)(int)) {
  struct sigaction action {
  }, before{};
  action.sa_handler = handler;
  sigaction(sig, &action, &before);
  return before;
}

// What the program's own parent would have to do if this process were not between them.
int wait_for(pid_t child, const sigset_t& all) {
  for (;;) {
    siginfo_t info;
    const int sig = sigwaitinfo(&all, &info);
    if (sig < 0) continue;
    if (sig != SIGCHLD) {
      // What a terminal sends, it sends to the program, too.
      if (info.si_code <= 0 || sig == SIGCONT) kill(child, sig);
      continue;
    }
    int status = 0;
    while (waitpid(child, &status, WNOHANG | WUNTRACED) == child) {
      if (!WIFSTOPPED(status)) return status;
      kill(getpid(), SIGSTOP);
    }
  }
}

void write_reports(const CommandLine& line, const std::string& sve_report, const sigset_t& mask) {
  if (std::filesystem::is_empty(line.report_directory)) return;  // nothing was begun
  const pid_t child = fork();
  if (child == 0) {
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    std::vector<std::string> words = {sve_report, "--data", line.report_directory};
    for (const std::string& file : line.reports) words.insert(words.end(), {"--output", file});
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    execv(sve_report.c_str(), arguments.data());
    std::fprintf(stderr, "sve-run: %s: %s; install it again\n", sve_report.c_str(), std::strerror(errno));
    _exit(status_failed);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFSIGNALED(status))
    std::fprintf(stderr, "sve-run: sve-report was ended by signal %d; the report is missing\n", WTERMSIG(status));
}

}  // namespace

Finding prepare_reports(CommandLine& line, const std::vector<std::string>& places) {
  Finding found = failure("sve-report: not found beside sve-run; build it with libdw-dev, and install");
  for (const std::string& place : places) {
    if (access(place.c_str(), X_OK) != 0) continue;
    found = {};
    found.path = place;
    break;
  }
  if (found.status != 0) return found;
  for (const std::string& file : line.reports) {
    if (file == "-" || file.find("%p") != std::string::npos) continue;
    const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) return failure(file + ": " + std::strerror(errno) + "; give --report a file that can be written");
    close(fd);
  }
  line.report_directory = make_directory();
  if (line.report_directory.empty())
    return failure(std::string("no directory for the report's data: ") + std::strerror(errno) +
                   "; set TMPDIR to one that can be written");
  return found;
}

int run_for_reports(const CommandLine& line, const std::string& sve_report,
                    const std::function<int()>& become_program) {
  sigset_t all, before;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, &before);
  const struct sigaction children_before = action_of(SIGCHLD, SIG_DFL);
  const pid_t child = fork();
  if (child == 0) {
    sigaction(SIGCHLD, &children_before, nullptr);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    const int status = become_program();
    std::fflush(nullptr);
    _exit(status);
  }
  int status = status_failed << 8;
  if (child < 0)
    std::fprintf(stderr, "sve-run: no process for the program: %s; try again later\n", std::strerror(errno));
  else
    status = wait_for(child, all);
  write_reports(line, sve_report, before);
  std::error_code ignored;
  std::filesystem::remove_all(std::filesystem::path(line.report_directory).parent_path(), ignored);
  if (!WIFSIGNALED(status)) return WEXITSTATUS(status);
  // As the program died; the core is its own.
  const rlimit no_core{0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  action_of(WTERMSIG(status), SIG_DFL);
  sigset_t its;
  sigemptyset(&its);
  sigaddset(&its, WTERMSIG(status));
  raise(WTERMSIG(status));
  sigprocmask(SIG_UNBLOCK, &its, nullptr);
  return 128 + WTERMSIG(status);
}

}  // namespace sve::runner
