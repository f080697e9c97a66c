// A tree of processes: copies that go on with the parent's data, and new programs, with and without an environment.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common.h"

#define N 250

extern char** environ;

// How a new program is started: as it is, or by what stands in for a processor with SVE where the kernel has none.
static const char* path = "/proc/self/exe";
static char* arguments[] = {NULL, NULL, NULL, NULL};
static char** number = &arguments[1];
static char own_path[4096];

static void choose_start(char* name) {
  arguments[0] = name;
  if (!getenv("SVE_CHILDREN_BY")) return;
  if (readlink("/proc/self/exe", own_path, sizeof own_path - 1) < 0) return;
  path = arguments[0] = getenv("SVE_CHILDREN_BY");
  arguments[1] = own_path;
  number = &arguments[2];
}

KERNEL void step(int32_t* a, int32_t factor, size_t n) {
  for (size_t i = 0; i < n; ++i) a[i] = a[i] * factor + (int32_t)i;
}

static int finish(pid_t child) {
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

int main(int argc, char** argv) {
  static int32_t a[N];
  setvbuf(stdout, NULL, _IONBF, 0);
  step(a, 3, N);
  if (argc > 1) {
    step(a, atoi(argv[1]), N);
    printf("new program %s: %016llx\n", argv[1], (unsigned long long)digest(a, sizeof a));
    return atoi(argv[1]);
  }
  for (int i = 1; i <= 3; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      step(a, i, N);
      printf("copy %d: %016llx\n", i, (unsigned long long)digest(a, sizeof a));
      _exit(i);
    }
    printf("copy ended with %d\n", finish(child));
  }
  choose_start(argv[0]);
  *number = "7";
  pid_t child = fork();
  if (child == 0) {
    execv(path, arguments);
    _exit(99);
  }
  printf("exec ended with %d\n", finish(child));
  *number = "8";
  child = vfork();
  if (child == 0) {
    execv(path, arguments);
    _exit(99);
  }
  printf("vfork and exec ended with %d\n", finish(child));
  *number = "9";
  if (posix_spawn(&child, path, NULL, NULL, arguments, environ) != 0) child = -1;
  printf("spawn ended with %d\n", finish(child));
  step(a, 5, N);
  printf("parent: %016llx\n", (unsigned long long)digest(a, sizeof a));
  return 5;
}
